// SPDX-License-Identifier: MIT
// The two canonical texts of a parsed date and its broken-down time.
//
// The UTC form is civil-calendar arithmetic (what timegm and gmtime do,
// without their cost, which was most of a date's): days past a month's end
// roll into the next month and a leap second into the next minute. The zone
// is a decimal ±HHMM number whose hours and minutes both carry its sign, so
// truncating division and remainder split it correctly: -530 moves the
// instant 5 h 30 min later. The local form prints the fields exactly as they
// were written.
#include <chrono>
#include <cstdio>
#include <ctime>

#include "date/rfc822_date.h"

namespace date {
namespace {

// "%4d-%02d-%02d %02d:%02d:%02d", written by hand for the four-digit years
// of real mail.
std::string format_utc(int year, unsigned month, unsigned day, long hour, long minute, long second) {
  char text[64];
  if (year < 1000 || year > 9999) {
    std::snprintf(text, sizeof text, "%4d-%02u-%02u %02ld:%02ld:%02ld", year, month, day, hour, minute, second);
    return text;
  }
  auto const two = [](char* out, long value) {
    out[0] = static_cast<char>('0' + value / 10);
    out[1] = static_cast<char>('0' + value % 10);
  };
  std::string out = "0000-00-00 00:00:00";
  two(&out[0], year / 100);
  two(&out[2], year % 100);
  two(&out[5], month);
  two(&out[8], day);
  two(&out[11], hour);
  two(&out[14], minute);
  two(&out[17], second);
  return out;
}

// The instant of fields written in a zone given as a decimal ±HHMM number.
std::chrono::sys_seconds utc_instant(std::tm const& time, std::int64_t zone) {
  using namespace std::chrono;
  year_month const first_month = year{time.tm_year} / January + months{time.tm_mon};
  return sys_days(first_month / 1) + days{time.tm_mday - 1} + hours{time.tm_hour} + minutes{time.tm_min} +
         seconds{time.tm_sec} - hours{zone / 100} - minutes{zone % 100};
}

} // namespace

std::optional<zoned_t> rfc822_date_parser_t::zoned() const {
  if (!parsed_)
    return std::nullopt;
  using namespace std::chrono;
  sys_seconds const instant = utc_instant(time_, zone_);
  int const utc_year = int(year_month_day{floor<days>(instant)}.year());
  if (utc_year < 1000 || utc_year > 9999)
    return std::nullopt;
  return zoned_t{instant, hours{zone_ / 100} + minutes{zone_ % 100}};
}

std::string rfc822_date_parser_t::canonical_format() const {
  if (!parsed_)
    return {};
  using namespace std::chrono;
  sys_seconds const instant = utc_instant(time_, zone_);
  sys_days const day = floor<days>(instant);
  year_month_day const date{day};
  hh_mm_ss const time{instant - day};
  return format_utc(int(date.year()), unsigned(date.month()), unsigned(date.day()), long(time.hours().count()),
                    long(time.minutes().count()), long(time.seconds().count()));
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
