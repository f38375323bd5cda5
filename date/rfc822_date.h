// SPDX-License-Identifier: MIT
// RFC 822 dates as mail really carries them.
//
// A date is read in two passes. The strict pass is a recursive-descent
// grammar close to RFC 2822 that also admits the obsolete RFC 822 forms
// (two-digit years, zone names, comments almost anywhere). Real mail breaks
// even that, so when it fails a "soup" pass picks the month, time, day, year
// and an optional zone out of the text in any order (the full reading first
// tries an ISO 8601 date in between). Every irregularity that
// either pass tolerates is described to the problem handler, when one is
// given, with the whole date text as its context.
//
// Each operation of the parser works on its cursor and returns true when it
// consumed something and stored its value; on false the cursor is back where
// it was unless the operation says otherwise. Comments nest, so their scanner
// keeps an explicit stack and remembers what it found at each "(": hostile
// input (a million "(") costs memory proportional to its length, never stack
// depth or quadratic time. That memory is tens of bytes per byte read, so the
// parser reads no more than the first max_date_length bytes of a value: real
// dates, comments and all, are a few dozen bytes, and a megabyte of "(((("
// must not cost a gigabyte.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "error/handler.h"

namespace date {

// How far the parser reaches beyond the desktop host's reading. By default a
// month is its first three letters ("June" leaves an "e" that the soup pass
// may take for a military zone) and the first zone the soup pass meets is
// kept. The full reading reads whole month names (and "Sept"), and lets an
// explicit numeric zone replace a zone taken from a stray word. It also reads
// zone offsets the way people and some mailers write them: an offset after
// GMT or UTC ("GMT+1", "UTC-05:30"), hours alone ("+1") and hours and
// minutes apart ("+05:30"); by default "GMT+1" is GMT, and "+05" five
// minutes. And it reads ISO 8601 dates ("2007-11-09T18:37:09.25+02:00",
// "2007-11-09 18:37:09"), which some programs write into Date fields; one
// without an offset is in UTC, as an RFC date without a zone is. Last, it
// reads a 12-hour clock ("06:09:22 PM EDT" is 18:09:22 in EDT), where by
// default the "PM" is taken for an unknown zone and the real one is lost.
struct rules_t {
  bool full_month_names = false;
  bool numeric_zone_wins = false;
  bool written_offsets = false;
  bool iso_dates = false;
  bool twelve_hour_clock = false;
  static constexpr rules_t full() { return {true, true, true, true, true}; }
};

// A parsed date as the message gave it: the instant, and the offset from UTC
// of the zone it was written in (+0200 is 120 minutes).
struct zoned_t {
  std::chrono::sys_seconds instant;
  std::chrono::minutes offset{0};
  bool operator==(zoned_t const&) const = default;
};

// The most of a date value the parser reads; the rest is ignored.
inline constexpr std::size_t max_date_length = 64 * 1024;

class rfc822_date_parser_t {
public:
  // problems may be null; when it is not, it must outlive the parser.
  rfc822_date_parser_t(char const* first, char const* last, quern::error::handler_t* problems, rules_t rules = {});

  // The strict pass, then the tolerant one; either sets parsed() on success
  // and leaves the cursor at the start on failure.
  bool parse();
  bool parse_soup();

  bool parse_day_of_week();
  bool parse_date();
  bool parse_time();
  bool parse_time_of_day();
  bool parse_zone();
  // A signed ±HHMM number. On failure after a sign the sign stays consumed.
  bool parse_zone_number(std::int64_t& zone);
  // A ±HHMM number with its sign; the cursor is restored on failure.
  bool parse_signed_zone();
  // With written_offsets: the digits of a signed offset, as HHMM, H, HH or
  // HH:MM, into a ±HHMM number; the cursor is restored on failure.
  bool parse_written_offset(bool negative, std::int64_t& zone);
  // With iso_dates: "YYYY-MM-DD", then optionally a time ("T" or blanks,
  // "hh:mm[:ss[.fraction]]") and a zone ("Z", an offset or a zone name),
  // and nothing else but comments.
  bool parse_iso();
  bool parse_day_name();
  bool parse_day();
  bool parse_month();
  bool parse_year();
  // At most max_digits digits (callers use 4); a longer run is no number.
  bool parse_int(int& value, int max_digits);

  // True only when a blank (space, tab or NUL) was consumed.
  bool skip_fws();
  // Always true: the dash is optional and only costs a problem record.
  bool skip_dash();
  bool skip_single_comment();
  // Always true.
  bool skip_ccontent();
  bool skip_ctext();

  // "YYYY-MM-DD hh:mm:ss" in UTC, or "" when the date was not parsed.
  std::string canonical_format() const;
  // The fields as written plus the zone, "YYYY-MM-DD hh:mm:ss +hhmm", or "".
  std::string local_canonical_format() const;
  // The instant and zone of a parsed date whose UTC year has four digits
  // (exactly the dates whose canonical text reads back as a date); nothing
  // otherwise.
  std::optional<zoned_t> zoned() const;
  // The broken-down time. A parsed date keeps the full year in tm_year; an
  // unparsed one is first filled with the current local time, in the C
  // library's own convention (years since 1900, weekday, DST).
  std::tm* get_time();

  bool parsed() const { return parsed_; }
  // The zone as a decimal ±HHMM number: +0200 is 200, -0530 is -530.
  std::int64_t zone() const { return zone_; }
  char const* cursor() const { return cursor_; }

private:
  // What is known about a "(" at one offset: where its comment ends and where
  // a run of comments starting with it ends (offsets + 0 unknown, npos none).
  struct memo_t {
    std::size_t comment = 0;
    std::size_t run = 0;
  };

  void skip_comments();
  char const* comment_end(char const* open);
  memo_t& memo_at(char const* open);
  // Records code; description, when given, is the code's pattern filled in.
  void note(quern::error::code_t code, bool low_priority = false, char const* description = nullptr) const;

  char const* first_;
  char const* cursor_;
  char const* last_;         // the end of what is read
  char const* context_last_; // the end of the whole value, quoted in problems
  quern::error::handler_t* problems_;
  rules_t rules_;
  bool parsed_ = false;
  std::int64_t zone_ = 0;
  std::tm time_{};
  std::vector<memo_t> memo_;
};

// A date value: parsed once on construction; copies share the parser.
class rfc822_date_t {
public:
  rfc822_date_t(char const* first, char const* last, quern::error::handler_t* problems, rules_t rules = {});

  std::string canonical_format() const { return parser_->canonical_format(); }
  std::string local_canonical_format() const { return parser_->local_canonical_format(); }
  std::optional<zoned_t> zoned() const { return parser_->zoned(); }
  std::tm* get_time() const { return parser_->get_time(); }

private:
  std::shared_ptr<rfc822_date_parser_t> parser_;
};

} // namespace date
