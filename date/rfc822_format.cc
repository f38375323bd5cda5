// SPDX-License-Identifier: MIT
// The two canonical texts of a parsed date and its broken-down time.
//
// The UTC form goes through timegm, which also normalises what the parser
// let through unchecked: the 31st of a 30-day month rolls into the next
// month and a leap second into the next minute. The zone is a decimal ±HHMM
// number whose hours and minutes both carry its sign, so truncating division
// and remainder split it correctly: -530 moves the instant 5 h 30 min later.
// The local form prints the fields exactly as they were written.
#include <cstdio>
#include <ctime>

#include "date/rfc822_date.h"

namespace date {

std::string rfc822_date_parser_t::canonical_format() const {
  if (!parsed_)
    return {};
  std::tm broken_down = time_;
  broken_down.tm_year -= 1900;
  std::time_t instant = timegm(&broken_down);
  instant -= static_cast<std::time_t>(3600 * (zone_ / 100) + 60 * (zone_ % 100));
  std::tm utc{};
  gmtime_r(&instant, &utc);
  char text[256];
  std::snprintf(text, sizeof text, "%4d-%02d-%02d %02d:%02d:%02d", utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday,
                utc.tm_hour, utc.tm_min, utc.tm_sec);
  return text;
}

std::string rfc822_date_parser_t::local_canonical_format() const {
  if (!parsed_)
    return {};
  char text[256];
  std::snprintf(text, sizeof text, "%4d-%02d-%02d %02d:%02d:%02d %+05lld", time_.tm_year, time_.tm_mon + 1,
                time_.tm_mday, time_.tm_hour, time_.tm_min, time_.tm_sec, static_cast<long long>(zone_));
  return text;
}

std::tm* rfc822_date_parser_t::get_time() {
  if (!parsed_) {
    std::time_t const now = std::time(nullptr);
    localtime_r(&now, &time_);
  }
  return &time_;
}

} // namespace date
