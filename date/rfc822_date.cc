// SPDX-License-Identifier: MIT
// The two passes of the date parser and their pieces.
//
// The strict pass reads day-of-week, date, time and zone in order; the date
// may be day-month-year or month-day-year, and each piece skips the folding
// white space and comments around it. The soup pass loops over the text: at
// each turn it offers the text to every piece it still lacks, in the order
// month, time, day, year, zone, and skips to the next space when none takes
// it. That order settles ambiguous numbers: "12:30" can only be a time, a
// lone "12" is the day until a day was found and the year after that, and a
// number left over after the year is read as an unsigned zone.
//
// Where the grammar expects one particular punctuation character a NUL byte
// is taken in its place, and NUL counts as a blank: some mailers pad dates
// with NULs and the date is still meant to be read.
//
// Comments nest. The recursive grammar is evaluated by a loop over an
// explicit stack of open comments, and the outcome at every "(" is
// remembered (where its comment ends, or that it does not, and where the run
// of comments it begins ends): the grammar retries the same places many
// times, and without the memo a nest of failing comments would cost
// exponential time and a comment-heavy text quadratic time in the soup pass.
#include "date/rfc822_date.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

#include <boost/container/small_vector.hpp>

#include "date/tables.h"
#include "text/ascii.h"

namespace date {
namespace {

constexpr std::size_t unknown = 0;
constexpr std::size_t none = static_cast<std::size_t>(-1);

using quern::error::code_t;
using text::is_alpha;
using text::is_digit;

// Unlike text::is_blank, a NUL counts: see above.
bool is_blank_or_nul(char c) {
  return text::is_blank(c) || c == '\0';
}
// The expected punctuation character, or a NUL standing in for it.
bool is_char(char c, char expected) {
  return c == expected || c == '\0';
}

bool is_ctext(char c) {
  auto const u = static_cast<unsigned char>(c);
  return (u >= 0x21 && u <= 0x27) || (u >= 0x2A && u <= 0x5B) || (u >= 0x5D && u <= 0x7E);
}

// Past the rest of a month's full name (or the "t" of "Sept") when the text
// holds it, ignoring ASCII case; otherwise p itself.
char const* month_name_end(char const* p, char const* last, int month) {
  static constexpr std::string_view tails[12] = {"uary", "ruary", "ch",     "il",   "",      "e",
                                                 "y",    "ust",   "tember", "ober", "ember", "ember"};
  auto const matches = [&](std::string_view tail) {
    if (tail.empty() || static_cast<std::size_t>(last - p) < tail.size())
      return false;
    for (std::size_t i = 0; i < tail.size(); ++i)
      if ((p[i] | 0x20) != tail[i])
        return false;
    return true;
  };
  std::string_view const tail = tails[month];
  if (matches(tail))
    return p + tail.size();
  if (month == 8 && matches("t"))
    return p + 1;
  return p;
}

// RFC 822 printed the military zones with the signs reversed from their usual
// reading; dates written by software that followed it expect that reading.
bool military_zone(char letter, std::int64_t& zone) {
  char const u = text::to_upper(letter);
  if (u >= 'A' && u <= 'I')
    zone = -100 * (u - 'A' + 1);
  else if (u >= 'K' && u <= 'M')
    zone = -100 * (u - 'K' + 10);
  else if (u >= 'N' && u <= 'Y')
    zone = 100 * (u - 'N' + 1);
  else if (u == 'Z')
    zone = 0;
  else
    return false;
  return true;
}

// Past an "AM" or "PM" after a time ("6:09 PM", "6:09pm", "6:09 p.m."),
// with hour moved onto the 24-hour clock: 12 AM is midnight, 12 PM noon.
// An hour outside 1 to 12 keeps its value. Without a marker, p itself; a
// word that only begins like one ("AMT") is none.
char const* meridiem_end(char const* p, char const* last, int& hour) {
  char const* q = p;
  while (q != last && is_blank_or_nul(*q))
    ++q;
  if (q == last || ((*q | 0x20) != 'a' && (*q | 0x20) != 'p'))
    return p;
  bool const afternoon = (*q | 0x20) == 'p';
  ++q;
  if (q != last && *q == '.')
    ++q;
  if (q == last || (*q | 0x20) != 'm')
    return p;
  ++q;
  if (q != last && *q == '.')
    ++q;
  if (q != last && text::is_alnum(*q))
    return p;
  if (hour >= 1 && hour <= 12)
    hour = hour % 12 + (afternoon ? 12 : 0);
  return q;
}

} // namespace

rfc822_date_parser_t::rfc822_date_parser_t(char const* first, char const* last, quern::error::handler_t* problems,
                                           rules_t rules)
    : first_(first), cursor_(first),
      last_(static_cast<std::size_t>(last - first) > max_date_length ? first + max_date_length : last),
      context_last_(last), problems_(problems), rules_(rules) {}

void rfc822_date_parser_t::note(code_t code, bool low_priority, char const* description) const {
  if (!problems_)
    return;
  quern::error::record_t record{{"context", std::string(first_, context_last_)}};
  if (description)
    record.emplace("description", description);
  if (low_priority)
    record.emplace("#priority", "low");
  problems_->push_back(code, record);
}

// ---- white space and comments -------------------------------------------

bool rfc822_date_parser_t::skip_fws() {
  bool blank = false;
  while (cursor_ != last_) {
    if (is_blank_or_nul(*cursor_)) {
      ++cursor_;
      blank = true;
      continue;
    }
    if (*cursor_ != '\r')
      break;
    // A CR LF followed by a blank is a fold and the run goes on; any other
    // CR or CR LF is consumed and ends the run.
    ++cursor_;
    if (cursor_ == last_ || !is_char(*cursor_, '\n'))
      break;
    ++cursor_;
    if (cursor_ == last_ || !is_blank_or_nul(*cursor_))
      break;
  }
  return blank;
}

bool rfc822_date_parser_t::skip_ctext() {
  char const* const start = cursor_;
  while (cursor_ != last_ && is_ctext(*cursor_))
    ++cursor_;
  return cursor_ != start;
}

bool rfc822_date_parser_t::skip_single_comment() {
  char const* const start = cursor_;
  skip_fws();
  if (cursor_ != last_ && is_char(*cursor_, '(')) {
    if (char const* end = comment_end(cursor_)) {
      cursor_ = end;
      return true;
    }
  }
  cursor_ = start;
  return false;
}

bool rfc822_date_parser_t::skip_ccontent() {
  for (;;) {
    if (skip_fws() || skip_ctext())
      continue;
    if (cursor_ != last_ && is_char(*cursor_, '\\') && last_ - cursor_ >= 2) {
      cursor_ += 2;
      continue;
    }
    bool nested = false;
    while (skip_single_comment())
      nested = true;
    if (!nested)
      return true;
  }
}

rfc822_date_parser_t::memo_t& rfc822_date_parser_t::memo_at(char const* open) {
  if (memo_.empty())
    memo_.resize(static_cast<std::size_t>(last_ - first_));
  return memo_[static_cast<std::size_t>(open - first_)];
}

// Where the comment opened at `open` ends (one past its ")"), or null. This
// is skip_single_comment and skip_ccontent unrolled: each stack frame is one
// open comment with the state its recursive call would have held.
char const* rfc822_date_parser_t::comment_end(char const* open) {
  auto const known = [&](char const* p) -> memo_t& { return memo_at(p); };
  if (std::size_t const end = known(open).comment; end != unknown)
    return end == none ? nullptr : first_ + end;

  struct frame_t {
    char const* open;
    char const* retry; // where the nested comment being tried began
    bool nested;       // a nested comment matched in the current run
  };
  boost::container::small_vector<frame_t, 8> stack{{open, nullptr, false}};
  enum class step_t { content, nested, close } step = step_t::content;
  // Back in the innermost open comment after one nested in it ended at
  // `end` (null: it did not close), as the recursive call would return.
  auto const resume = [&](char const* end) {
    if (end) {
      cursor_ = end;
      stack.back().nested = true;
      step = step_t::nested;
    } else {
      cursor_ = stack.back().retry;
      step = step_t::close;
    }
  };
  cursor_ = open + 1;
  for (;;) {
    frame_t& top = stack.back();
    switch (step) {
    case step_t::content:
      if (skip_fws() || skip_ctext())
        continue;
      if (cursor_ != last_ && is_char(*cursor_, '\\') && last_ - cursor_ >= 2) {
        cursor_ += 2;
        continue;
      }
      top.nested = false;
      step = step_t::nested;
      continue;
    case step_t::nested: {
      top.retry = cursor_;
      skip_fws();
      if (cursor_ == last_ || !is_char(*cursor_, '(')) {
        cursor_ = top.retry;
        step = step_t::close;
        continue;
      }
      std::size_t const end = known(cursor_).comment;
      if (end == unknown) {
        stack.push_back({cursor_, nullptr, false});
        ++cursor_;
        step = step_t::content;
      } else {
        resume(end == none ? nullptr : first_ + end);
      }
      continue;
    }
    case step_t::close: {
      if (top.nested) {
        step = step_t::content;
        continue;
      }
      char const* end = cursor_ != last_ && is_char(*cursor_, ')') ? cursor_ + 1 : nullptr;
      known(top.open).comment = end ? static_cast<std::size_t>(end - first_) : none;
      stack.pop_back();
      if (stack.empty())
        return end;
      resume(end);
      continue;
    }
    }
  }
}

// Skips every comment in a row. The end of the run is remembered at each "("
// of it, so a later attempt that lands on one of them costs nothing.
void rfc822_date_parser_t::skip_comments() {
  char const* const start = cursor_;
  for (;;) {
    char const* const before = cursor_;
    skip_fws();
    if (cursor_ == last_ || !is_char(*cursor_, '(')) {
      cursor_ = before;
      break;
    }
    if (std::size_t const run = memo_at(cursor_).run; run != unknown) {
      cursor_ = first_ + run;
      break;
    }
    char const* const end = comment_end(cursor_);
    if (!end) {
      cursor_ = before;
      break;
    }
    cursor_ = end;
  }
  char const* const run_end = cursor_;
  cursor_ = start;
  while (cursor_ != run_end) {
    skip_fws();
    memo_t& memo = memo_at(cursor_);
    if (memo.run != unknown)
      break;
    memo.run = static_cast<std::size_t>(run_end - first_);
    cursor_ = first_ + memo.comment;
  }
  cursor_ = run_end;
}

// ---- pieces ------------------------------------------------------------

bool rfc822_date_parser_t::parse_int(int& value, int max_digits) {
  max_digits = std::min(max_digits, 9);
  char const* p = cursor_;
  int number = 0;
  int digits = 0;
  while (p != last_ && is_digit(*p)) {
    if (digits == max_digits)
      return false;
    number = number * 10 + (*p - '0');
    ++digits;
    ++p;
  }
  if (digits == 0)
    return false;
  value = number;
  cursor_ = p;
  return true;
}

bool rfc822_date_parser_t::parse_day_name() {
  if (last_ - cursor_ < 3 || !tables().day_names.contains(cursor_))
    return false;
  cursor_ += 3;
  while (cursor_ != last_ && is_alpha(*cursor_))
    ++cursor_;
  return true;
}

bool rfc822_date_parser_t::parse_day_of_week() {
  char const* const start = cursor_;
  skip_fws();
  if (parse_day_name())
    return true;
  skip_comments();
  if (parse_day_name()) {
    skip_comments();
    return true;
  }
  cursor_ = start;
  return false;
}

bool rfc822_date_parser_t::parse_day() {
  char const* const start = cursor_;
  skip_fws();
  skip_comments();
  int day = 0;
  if (!parse_int(day, 4) || day < 1 || day > 31) {
    cursor_ = start;
    return false;
  }
  time_.tm_mday = day;
  skip_fws();
  skip_comments();
  return true;
}

bool rfc822_date_parser_t::parse_month() {
  char const* const start = cursor_;
  skip_fws();
  skip_comments();
  auto const& months = tables().month_names;
  auto const it = last_ - cursor_ >= 3 ? months.find(cursor_) : months.end();
  if (it == months.end()) {
    cursor_ = start;
    return false;
  }
  time_.tm_mon = it->second;
  // By default only the three letters are taken: "June" leaves its "e".
  cursor_ += 3;
  if (rules_.full_month_names)
    cursor_ = month_name_end(cursor_, last_, it->second);
  skip_fws();
  skip_comments();
  return true;
}

bool rfc822_date_parser_t::skip_dash() {
  if (cursor_ != last_ && is_char(*cursor_, '-')) {
    ++cursor_;
    note(code_t::date_dash);
  }
  return true;
}

bool rfc822_date_parser_t::parse_year() {
  char const* const start = cursor_;
  skip_comments();
  int year = 0;
  if (!parse_int(year, 4)) {
    cursor_ = start;
    return false;
  }
  // The value decides, not the number of digits: "7" and "0007" are 2007.
  if (year < 50) {
    year += 2000;
    note(code_t::date_two_digit_year_20xx, true);
  } else if (year < 100) {
    year += 1900;
    note(code_t::date_two_digit_year_19xx, true);
  }
  time_.tm_year = year;
  skip_comments();
  return true;
}

bool rfc822_date_parser_t::parse_date() {
  char const* const start = cursor_;
  if (parse_day() && skip_dash() && parse_month() && skip_dash() && parse_year())
    return true;
  cursor_ = start;
  if (parse_month() && skip_dash() && parse_day() && skip_dash() && parse_year())
    return true;
  cursor_ = start;
  return false;
}

bool rfc822_date_parser_t::parse_time_of_day() {
  char const* const start = cursor_;
  auto const fail = [&] {
    cursor_ = start;
    return false;
  };
  skip_comments();
  int hour = 0;
  if (!parse_int(hour, 4) || hour >= 24)
    return fail();
  skip_comments();
  if (cursor_ == last_ || !is_char(*cursor_, ':'))
    return fail();
  ++cursor_;
  int minute = 0;
  if (!parse_int(minute, 4) || minute >= 60)
    return fail();
  skip_comments();
  int second = 0;
  if (cursor_ != last_ && is_char(*cursor_, ':')) {
    char const* const colon = cursor_;
    ++cursor_;
    // 60 is a leap second. Without valid seconds the time still stands.
    if (parse_int(second, 4) && second < 61) {
      skip_comments();
    } else {
      second = 0;
      cursor_ = colon;
    }
  }
  if (rules_.twelve_hour_clock)
    cursor_ = meridiem_end(cursor_, last_, hour);
  time_.tm_hour = hour;
  time_.tm_min = minute;
  time_.tm_sec = second;
  return true;
}

bool rfc822_date_parser_t::parse_time() {
  char const* const start = cursor_;
  if (!parse_time_of_day())
    return false;
  skip_fws();
  if (cursor_ == last_)
    return true;
  if (!parse_zone()) {
    cursor_ = start;
    return false;
  }
  return true;
}

bool rfc822_date_parser_t::parse_zone_number(std::int64_t& zone) {
  if (cursor_ == last_)
    return false;
  bool negative = false;
  if (*cursor_ == '+' || *cursor_ == '-') {
    negative = *cursor_ == '-';
    ++cursor_;
    if (rules_.written_offsets)
      return parse_written_offset(negative, zone);
  } else if (is_digit(*cursor_)) {
    note(code_t::date_unsigned_zone);
  } else {
    return false;
  }
  int number = 0;
  if (!parse_int(number, 4))
    return false;
  // Minutes are not checked; only a number no zone could have is reported.
  if (number >= 9960)
    note(code_t::date_zone_bounds);
  zone = negative ? -number : number;
  return true;
}

bool rfc822_date_parser_t::parse_written_offset(bool negative, std::int64_t& zone) {
  char const* const start = cursor_;
  int number = 0;
  if (!parse_int(number, 4))
    return false;
  // One or two digits are hours, maybe with ":MM" after them; three or four
  // are the usual HMM or HHMM.
  if (cursor_ - start <= 2) {
    int minutes = 0;
    if (last_ - cursor_ >= 3 && *cursor_ == ':' && is_digit(cursor_[1]) && is_digit(cursor_[2]) &&
        (last_ - cursor_ == 3 || !is_digit(cursor_[3]))) {
      minutes = (cursor_[1] - '0') * 10 + (cursor_[2] - '0');
      cursor_ += 3;
    }
    number = number * 100 + minutes;
  }
  if (number >= 9960)
    note(code_t::date_zone_bounds);
  zone = negative ? -number : number;
  return true;
}

bool rfc822_date_parser_t::parse_signed_zone() {
  char const* const start = cursor_;
  if (cursor_ != last_ && (*cursor_ == '+' || *cursor_ == '-') && parse_zone_number(zone_))
    return true;
  cursor_ = start;
  return false;
}

bool rfc822_date_parser_t::parse_zone() {
  char const* const start = cursor_;
  if (parse_zone_number(zone_))
    return true;
  auto const is_name_char = [](char c) { return is_alpha(c) || c == '"'; };
  if (cursor_ == last_ || !is_name_char(*cursor_)) {
    cursor_ = start;
    return false;
  }
  char const* const name_first = cursor_;
  cursor_ = std::find_if_not(cursor_, last_, is_name_char);
  std::string_view name(name_first, static_cast<std::size_t>(cursor_ - name_first));
  if (name.size() >= 2 && name.front() == '"' && name.back() == '"') {
    note(code_t::date_quoted_zone);
    name = name.substr(1, name.size() - 2);
  }
  auto const& t = tables();
  if (auto const it = t.rfc822_zones.find(name); it != t.rfc822_zones.end()) {
    zone_ = it->second;
    note(code_t::date_zone_name, true);
  } else if (auto const other = t.other_zones.find(name); other != t.other_zones.end()) {
    zone_ = other->second;
    if (problems_) {
      char description[100];
      std::snprintf(description, sizeof description, quern::error::pattern_of<code_t::date_other_zone>,
                    static_cast<long long>(zone_));
      note(code_t::date_other_zone, false, description);
    }
  } else if (name.size() == 1 && military_zone(name.front(), zone_)) {
    note(code_t::date_military_zone);
  } else {
    // Any word in zone position is accepted; one we cannot read means UTC.
    zone_ = 0;
    note(code_t::date_unknown_zone);
  }
  // "GMT+1", "UTC-05:30": the offset from GMT the writer meant, written
  // onto the name.
  auto const is_utc_name = [](std::string_view n) {
    return text::equals_lower(n, "gmt") || text::equals_lower(n, "utc") || text::equals_lower(n, "ut");
  };
  if (rules_.written_offsets && is_utc_name(name) && last_ - cursor_ >= 2 && (*cursor_ == '+' || *cursor_ == '-') &&
      is_digit(cursor_[1])) {
    char const* const sign = cursor_++;
    if (!parse_written_offset(*sign == '-', zone_))
      cursor_ = sign;
  }
  return true;
}

// ---- passes ------------------------------------------------------------

bool rfc822_date_parser_t::parse() {
  char const* const start = cursor_;
  // A day of week must be followed by its comma; without one the date is
  // read from the day name on, which fails and leaves it to the soup pass.
  if (parse_day_of_week()) {
    if (cursor_ != last_ && is_char(*cursor_, ','))
      ++cursor_;
    else
      cursor_ = start;
  }
  if (!parse_date()) {
    cursor_ = start;
    return false;
  }
  bool const blank = skip_fws();
  zone_ = 0;
  time_.tm_hour = time_.tm_min = time_.tm_sec = 0;
  if (cursor_ != last_ && (!blank || !parse_time())) {
    cursor_ = start;
    return false;
  }
  skip_comments();
  parsed_ = true;
  return true;
}

bool rfc822_date_parser_t::parse_iso() {
  char const* const start = cursor_;
  auto const fail = [&] {
    cursor_ = start;
    return false;
  };
  auto const number = [&](int count, int& value) {
    if (last_ - cursor_ < count || !std::all_of(cursor_, cursor_ + count, is_digit))
      return false;
    value = 0;
    for (int i = 0; i < count; ++i)
      value = value * 10 + (*cursor_++ - '0');
    return true;
  };
  auto const take = [&](char c) {
    bool const taken = cursor_ != last_ && *cursor_ == c;
    cursor_ += taken;
    return taken;
  };
  skip_fws();
  int year = 0, month = 0, day = 0;
  if (!number(4, year) || !take('-') || !number(2, month) || !take('-') || !number(2, day) || month < 1 || month > 12 ||
      day < 1 || day > 31 || (cursor_ != last_ && is_digit(*cursor_)))
    return fail();
  int hour = 0, minute = 0, second = 0;
  std::int64_t zone = 0;
  bool const separator = take('T') || take('t');
  char const* const after_date = cursor_;
  skip_fws();
  if (cursor_ != last_ && is_digit(*cursor_) && (separator || cursor_ != after_date)) {
    if (!number(2, hour) || !take(':') || !number(2, minute) || hour >= 24 || minute >= 60)
      return fail();
    if (take(':') && (!number(2, second) || second >= 61))
      return fail();
    // Fractions of a second are dropped, as the canonical forms have none.
    if (last_ - cursor_ >= 2 && (*cursor_ == '.' || *cursor_ == ',') && is_digit(cursor_[1]))
      cursor_ = std::find_if_not(cursor_ + 1, last_, is_digit);
    skip_fws();
    if (cursor_ != last_ && (*cursor_ == 'Z' || *cursor_ == 'z') && (cursor_ + 1 == last_ || !is_alpha(cursor_[1]))) {
      ++cursor_;
    } else if (cursor_ != last_ && (*cursor_ == '+' || *cursor_ == '-')) {
      bool const negative = *cursor_++ == '-';
      if (!parse_written_offset(negative, zone))
        return fail();
    } else if (cursor_ != last_ && is_alpha(*cursor_)) {
      if (!parse_zone())
        return fail();
      zone = zone_;
    }
  } else if (separator) {
    return fail();
  }
  skip_comments();
  skip_fws();
  if (cursor_ != last_)
    return fail();
  time_.tm_year = year;
  time_.tm_mon = month - 1;
  time_.tm_mday = day;
  time_.tm_hour = hour;
  time_.tm_min = minute;
  time_.tm_sec = second;
  zone_ = zone;
  parsed_ = true;
  return true;
}

bool rfc822_date_parser_t::parse_soup() {
  char const* const start = cursor_;
  bool month = false, time = false, day = false, year = false, zone = false;
  bool numeric_zone = false, at_end = false;
  zone_ = 0;
  for (;;) {
    char const* const turn = cursor_;
    if (cursor_ == last_) {
      at_end = true;
      break;
    }
    skip_fws();
    parse_day_of_week();
    char const* const piece = cursor_;
    if (!month && parse_month())
      month = true;
    else if (!time && parse_time_of_day())
      time = true;
    else if (!day && parse_day())
      day = true;
    else if (!year && parse_year())
      year = true;
    else if (!zone && parse_zone())
      zone = true, numeric_zone = *piece == '+' || *piece == '-';
    else if (zone && !numeric_zone && rules_.numeric_zone_wins && parse_signed_zone())
      numeric_zone = true;
    else
      cursor_ = std::find(cursor_, last_, ' ');
    if (cursor_ == turn)
      break;
  }
  if (month && time && day && year && at_end) {
    parsed_ = true;
    return true;
  }
  cursor_ = start;
  return false;
}

rfc822_date_t::rfc822_date_t(char const* first, char const* last, quern::error::handler_t* problems, rules_t rules)
    : parser_(std::make_shared<rfc822_date_parser_t>(first, last, problems, rules)) {
  if (!parser_->parse() && !(rules.iso_dates && parser_->parse_iso()))
    parser_->parse_soup();
}

} // namespace date
