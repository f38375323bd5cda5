// SPDX-License-Identifier: MIT
#include "date/rfc822_date.h"

#include <chrono>
#include <ctime>
#include <optional>
#include <random>
#include <string_view>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/problems.h"
#include "tests/support/strings.h"
#include "text/format.h"

namespace {

using quern::error::code_t, quern::error::pattern_of;
using test_support::repeat;

using namespace std::string_literals;

// Every record as "description" plus " (priority)" when it has one; each
// record's context must be the whole date text.
std::vector<std::string> problems_of(quern::error::handler_t const& handler, std::string const& text) {
  std::vector<quern::error::record_t> records;
  handler.get_errors({}, records);
  test::expect_descriptions_fit_codes(handler);
  std::vector<std::string> out;
  for (auto& record : records) {
    EXPECT_EQ(record["context"], text);
    out.push_back(record["description"] + (record.contains("#priority") ? " (" + record["#priority"] + ")" : ""));
  }
  return out;
}

std::string const dash(text_of(code_t::date_dash));
std::string const yr20 = std::string(text_of(code_t::date_two_digit_year_20xx)) + " (low)"s;
std::string const yr19 = std::string(text_of(code_t::date_two_digit_year_19xx)) + " (low)"s;
std::string const named = std::string(text_of(code_t::date_zone_name)) + " (low)"s;
std::string const no_sign(text_of(code_t::date_unsigned_zone));
std::string const bounds(text_of(code_t::date_zone_bounds));
std::string const quoted(text_of(code_t::date_quoted_zone));
std::string const mil(text_of(code_t::date_military_zone));
std::string const unknown(text_of(code_t::date_unknown_zone));
std::string assumed(long long offset) {
  return text::format(pattern_of<code_t::date_other_zone>, offset);
}

// The full reading differs where noted: it reads whole month names and lets
// an explicit numeric zone replace one taken from a stray word.
TEST(date, parses_to_both_canonical_forms) {
  struct {
    std::string text, utc, local; // canonical_format, local_canonical_format
    std::vector<std::string> problems = {};
    std::string full_utc = ""; // the full reading's, when not utc
  } const cases[] = {
      // The strict pass.
      {"Tue, 1 Jul 2003 10:52:37 +0200", "2003-07-01 08:52:37", "2003-07-01 10:52:37 +0200"},
      {"1 Jul 49 10:52 EDT", "2049-07-01 14:52:00", "2049-07-01 10:52:00 -0400", {yr20, named}},
      {"Fri, 13 Mar 50 01:02:03 GMT", "1950-03-13 01:02:03", "1950-03-13 01:02:03 +0000", {yr19, named}},
      {"1 Jul 0007 00:00 +0000", "2007-07-01 00:00:00", "2007-07-01 00:00:00 +0000", {yr20}},
      {"1 Jul 999 00:00:00 -0530", " 999-07-01 05:30:00", " 999-07-01 00:00:00 -0530"},
      {"Jul 1 2003 10:52:37 -0700", "2003-07-01 17:52:37", "2003-07-01 10:52:37 -0700"},
      // Only "Jul" is the month; the "y" left over is the military zone Y
      // (RFC 822's reversed signs), so the desktop reading is 10 hours off.
      {"1 July 2003 10:52:37 +0200", "2003-06-30 22:52:37", "2003-07-01 10:52:37 +1200", {mil}, "2003-07-01 08:52:37"},
      {"1 Julyish 2003 10:52", "2003-07-01 10:52:00", "2003-07-01 10:52:00 +0000", {unknown}},
      // "on" (of a cut "Mon") is a zone; a name and a number: the number wins.
      {"on, 05 Dec 2011 10:00:00 -0800",
       "2011-12-05 10:00:00",
       "2011-12-05 10:00:00 +0000",
       {unknown},
       "2011-12-05 18:00:00"},
      {"Tue Jul 1 10:52:37 EST 2003 +0200",
       "2003-07-01 15:52:37",
       "2003-07-01 10:52:37 -0500",
       {named},
       "2003-07-01 08:52:37"},
      {"1-Jul-2003 10:52:37 +0200", "2003-07-01 08:52:37", "2003-07-01 10:52:37 +0200", {dash, dash}},
      // Names are matched on their first three letters, in any case.
      {"tUESDAY, 1 JUL 2003", "2003-07-01 00:00:00", "2003-07-01 00:00:00 +0000"},
      // Seconds past a leap second are dropped; a 31st of June rolls over in UTC only.
      {"1 Jul 2003 10:52:61", "2003-07-01 10:52:00", "2003-07-01 10:52:00 +0000"},
      {"30 Jun 2003 23:59:60 +0000", "2003-07-01 00:00:00", "2003-06-30 23:59:60 +0000"},
      {"31 Jun 2003 00:00:00 +0000", "2003-07-01 00:00:00", "2003-06-31 00:00:00 +0000"},
      // Comments anywhere, nested, with a quoted pair; an unreadable trailing one is ignored.
      {"Tue,(a) 1 (b(c)) Jul (d) 2003 (e) 10 (f):52 -0700 (P\\)DT)", "2003-07-01 17:52:00",
       "2003-07-01 10:52:00 -0700"},
      {"1 Jul 2003 10:52 +0100 (Mitteleurop\xE4ische Zeit)", "2003-07-01 09:52:00", "2003-07-01 10:52:00 +0100"},
      // Zones.
      {"1 Jul 2003 10:52:37 0200", "2003-07-01 08:52:37", "2003-07-01 10:52:37 +0200", {no_sign}},
      {"1 Jul 2003 10:52:37 -9960", "2003-07-05 14:52:37", "2003-07-01 10:52:37 -9960", {bounds}},
      {"1 Jul 2003 00:00:00 FT", "2003-06-30 12:30:00", "2003-07-01 00:00:00 +1130", {assumed(1130)}},
      {"1 Jul 2003 10:52:37 utc", "2003-07-01 10:52:37", "2003-07-01 10:52:37 +0000", {assumed(0)}},
      {"1 Jul 2003 10:52:37 \"EST\"", "2003-07-01 15:52:37", "2003-07-01 10:52:37 -0500", {quoted, named}},
      {"1 Jul 2003 10:52:37 \"", "2003-07-01 10:52:37", "2003-07-01 10:52:37 +0000", {unknown}},
      {"1 Jul 2003 10:52:37 a", "2003-07-01 11:52:37", "2003-07-01 10:52:37 -0100", {mil}},
      {"1 Jul 2003 10:52:37 J", "2003-07-01 10:52:37", "2003-07-01 10:52:37 +0000", {unknown}},
      // NUL bytes stand in for punctuation and blanks.
      {"Tue\0 1\0Jul 2003 10\00052\00037\0+0200"s, "2003-07-01 08:52:37", "2003-07-01 10:52:37 +0200"},
      // The soup pass.
      {"10:52:37 2003 Jul 1", "2003-07-01 10:52:37", "2003-07-01 10:52:37 +0000"},
      {"Thu Jan 01 00:00:10 2009 +0100", "2008-12-31 23:00:10", "2009-01-01 00:00:10 +0100"},
      {"Jul 1 10:52 12", "2012-07-01 10:52:00", "2012-07-01 10:52:00 +0000", {yr20, yr20}},
      // Not dates.
      {"1 Jul 2003 24:00:00", "", "", {no_sign}},
      {"2012-12-08 00:48", "", "", {}, "2012-12-08 00:48:00"}, // ISO 8601, full reading only
      {"1 Jul 2003 10:52:37 GMT+1", "2003-07-01 10:52:37", "2003-07-01 10:52:37 +0000", {named}, "2003-07-01 09:52:37"},
      {"32 Jul 2003 10:52", "", "", {yr20, no_sign}},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.text));
    std::vector<char> const bytes(c.text.begin(), c.text.end()); // exact size: overreads show
    quern::error::handler_t handler;
    date::rfc822_date_t const parsed(bytes.data(), bytes.data() + bytes.size(), &handler);
    EXPECT_EQ(parsed.canonical_format(), c.utc);
    EXPECT_EQ(parsed.local_canonical_format(), c.local);
    EXPECT_EQ(problems_of(handler, c.text), c.problems);
    EXPECT_EQ(date::rfc822_date_t(bytes.data(), bytes.data() + bytes.size(), nullptr).canonical_format(), c.utc);
    EXPECT_EQ(date::rfc822_date_t(bytes.data(), bytes.data() + bytes.size(), nullptr, date::rules_t::full())
                  .canonical_format(),
              c.full_utc.empty() ? c.utc : c.full_utc);
    // Cut anywhere, the result depends only on the bytes before the cut: the
    // same as when the rest of the text follows them in memory.
    for (std::size_t n = 0; n < bytes.size(); ++n) {
      std::vector<char> const cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(n));
      date::rfc822_date_t const alone(cut.data(), cut.data() + n, nullptr);
      date::rfc822_date_t const followed(bytes.data(), bytes.data() + n, nullptr);
      EXPECT_EQ(alone.local_canonical_format(), followed.local_canonical_format()) << n;
    }
  }
}

// The full reading's additions, as the instant in UTC and the sender's
// offset. Whole month names must be read to their end, or their last letters
// become a zone of their own ("Sept" leaves a "t", the military zone T) and
// the real zone after them is ignored; offsets after GMT or UTC, as hours or
// HH:MM, ISO 8601 dates and 12-hour clocks are read, not taken as UTC or
// dropped.
TEST(date, full_reading_months_offsets_and_iso_dates) {
  using namespace std::chrono;
  sys_seconds const base = sys_days(2016y / May / 16) + 9h + 30min + 32s;
  struct row_t {
    std::string text;
    std::optional<sys_seconds> instant; // none: no date
    minutes offset;
  };
  std::vector<row_t> const rows{
      {"Sun, 5 Sept 2021 10:00:00 GMT", sys_days(2021y / September / 5) + 10h, 0min},
      {"Tue, 2 February 2021 23:30:00 EST", sys_days(2021y / February / 3) + 4h + 30min, -5h},
      {"2 March 2021 10:00 EDT", sys_days(2021y / March / 2) + 14h, -4h},
      {"Fri, 2 April 2021 10:00:00 CST", sys_days(2021y / April / 2) + 16h, -6h},
      {"2 June 2021 10:00:00 MDT", sys_days(2021y / June / 2) + 16h, -6h},
      {"Sun, 5 September 2021 10:00:00 UT", sys_days(2021y / September / 5) + 10h, 0min},
      {"2 August 2021 10:00:00 PST", sys_days(2021y / August / 2) + 18h, -8h},
      // Military letters, with RFC 822's signs: A is -0100, N +0100.
      {"2 October 2021 10:00:00 A", sys_days(2021y / October / 2) + 11h, -1h},
      {"2 November 2021 10:00:00 N", sys_days(2021y / November / 2) + 9h, 1h},
      {"2 December 2021 10:00:00 Nowhere", sys_days(2021y / December / 2) + 10h, 0min}, // unknown: UTC
      {"5 May 2021 10:00:00 -0730", sys_days(2021y / May / 5) + 17h + 30min, -(7h + 30min)},
      {"1 January 2022 00:30:00 +0100", sys_days(2021y / December / 31) + 23h + 30min, 1h},
      {"Mon, 16 May 2016 04:30:32 UTC-5", base, -5h},
      {"16 May 2016 15:00:32 gmt+05:30", base, 5h + 30min},
      {"16 May 2016 04:30:32 -05", base, -5h},
      {"16 May 2016 11:30:32 +02:00", base, 2h},
      {"16 May 2016 09:30:32 GMT+", base, 0min},
      {"2016-05-16T09:30:32Z", base, 0min},
      {" 2016-05-16 11:30:32.125 +0200 (CEST)", base, 2h},
      {"2016-05-16t04:30:32,5-05", base, -5h},
      {"2016-05-16 09:30:32 UTC", base, 0min},
      {"2016-05-16", sys_days(2016y / May / 16), 0min}, // a day alone is midnight UTC
      {"2016-05-16T25:00:00", std::nullopt, 0min},
      {"2016-13-16 09:30:32", std::nullopt, 0min},
      {"2016-05-16T09:30:32 and more", std::nullopt, 0min},
      {"2016-05-16T", std::nullopt, 0min},
      // A 12-hour clock, its zone after the marker.
      {"Mon 16 May 2016 01:30:32 PM +0400", base, 4h},
      {"16 May 2016 12:30:32 AM -0900", base, -9h},
      {"16 May 2016 12:30:32 p.m. +0300", base, 3h},
      {"16 May 16 2:30:32pm EDT", base + 9h, -4h},
      {"16 May 2016 21:30:32 PM", base + 12h, 0min}, // already past noon
      {"16 May 2016 09:30:32 AMT", base, 0min},      // a word, not a marker
  };
  for (auto const& row : rows) {
    SCOPED_TRACE(row.text);
    std::vector<char> const bytes(row.text.begin(), row.text.end());
    auto const zoned =
        date::rfc822_date_t(bytes.data(), bytes.data() + bytes.size(), nullptr, date::rules_t::full()).zoned();
    ASSERT_EQ(zoned.has_value(), row.instant.has_value());
    if (zoned) {
      EXPECT_EQ(zoned->instant, *row.instant);
      EXPECT_EQ(zoned->offset, row.offset);
    }
  }
}

// The UTC form against timegm and gmtime, the C library's reading of the same
// fields: random dates, days past a month's end, leap seconds, years of
// three digits and zones out of bounds included.
TEST(date, canonical_utc_agrees_with_timegm) {
  static char const* const months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                       "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  std::mt19937 random(19700101);
  auto const pick = [&](int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); };
  for (int n = 0; n < 20000; ++n) {
    int const year = n % 10 == 0 ? pick(100, 999) : pick(1000, 9999), month = pick(0, 11), day = pick(1, 31),
              hour = pick(0, 23), minute = pick(0, 59), second = pick(0, 60), zone = pick(-9999, 9999);
    std::string const text = text::format("%d %s %d %02d:%02d:%02d %c%04d", day, months[month], year, hour, minute,
                                          second, zone < 0 ? '-' : '+', zone < 0 ? -zone : zone);
    std::tm fields{};
    fields.tm_year = year - 1900;
    fields.tm_mon = month;
    fields.tm_mday = day;
    fields.tm_hour = hour;
    fields.tm_min = minute;
    fields.tm_sec = second;
    std::time_t const instant = timegm(&fields) - (3600 * (zone / 100) + 60 * (zone % 100));
    std::tm utc{};
    gmtime_r(&instant, &utc);
    std::string const expected = text::format("%4d-%02d-%02d %02d:%02d:%02d", utc.tm_year + 1900, utc.tm_mon + 1,
                                              utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec);
    ASSERT_EQ(date::rfc822_date_t(text.data(), text.data() + text.size(), nullptr).canonical_format(), expected)
        << text;
  }
}

// True only when a blank was consumed; a CR or CR LF that is no fold ends the run.
TEST(parser, folding_white_space) {
  std::tuple<std::string, bool, std::ptrdiff_t> const cases[] = {
      {" \t\0x"s, true, 3}, {"\r\n y", true, 3},      {"\r\0\0y"s, true, 3}, {"\r\ny", false, 2}, {"\ry", false, 1},
      {" \r y", true, 2},   {"\r\n\r\n y", false, 2}, {"\n", false, 0},      {"", false, 0},
  };
  for (auto const& [text, blank, used] : cases) {
    date::rfc822_date_parser_t p(text.data(), text.data() + text.size(), nullptr);
    EXPECT_EQ((std::pair{p.skip_fws(), p.cursor() - text.data()}), std::pair(blank, used))
        << testing::PrintToString(text);
  }
}

// The comment grammar as plainly recursive code, which the parser must agree
// with everywhere. White space, pinned above, is the parser's own.
struct reference_t {
  std::string_view s;
  std::size_t i = 0;

  bool at(char c) const { return i < s.size() && (s[i] == c || s[i] == '\0'); }
  bool fws() {
    date::rfc822_date_parser_t p(s.data() + i, s.data() + s.size(), nullptr);
    bool const any = p.skip_fws();
    i = static_cast<std::size_t>(p.cursor() - s.data());
    return any;
  }
  bool ctext() {
    std::size_t const start = i;
    while (i < s.size() && s[i] > 0x20 && s[i] < 0x7F && s[i] != '(' && s[i] != ')' && s[i] != '\\')
      ++i;
    return i != start;
  }
  bool ccontent() {
    for (;;) {
      if (fws() || ctext())
        continue;
      if (at('\\') && s.size() - i >= 2) {
        i += 2;
        continue;
      }
      bool any = false;
      while (comment())
        any = true;
      if (!any)
        return true;
    }
  }
  bool comment() {
    std::size_t const start = i;
    fws();
    if (at('(')) {
      ++i;
      ccontent();
      if (at(')')) {
        ++i;
        return true;
      }
    }
    i = start;
    return false;
  }
  bool year() {
    std::size_t const start = i;
    while (comment()) {
    }
    std::size_t digits = 0;
    while (i < s.size() && s[i] >= '0' && s[i] <= '9')
      ++i, ++digits;
    if (digits == 0 || digits > 4) {
      i = start;
      return false;
    }
    while (comment()) {
    }
    return true;
  }
};

// One parser for the whole sequence, so later steps meet what earlier ones
// remembered; the exact-size copy shows reads past the end.
void compare_with_reference(std::string const& text) {
  std::vector<char> const bytes(text.begin(), text.end());
  date::rfc822_date_parser_t p(bytes.data(), bytes.data() + bytes.size(), nullptr);
  reference_t r{std::string_view(bytes.data(), bytes.size())};
  auto const at = [&] { return static_cast<std::size_t>(p.cursor() - bytes.data()); };
  std::vector<std::size_t> const got{p.parse_year(),    at(), p.skip_single_comment(), at(),
                                     p.skip_ccontent(), at(), p.parse_year(),          at()};
  std::vector<std::size_t> const want{r.year(), r.i, r.comment(), r.i, r.ccontent(), r.i, r.year(), r.i};
  ASSERT_EQ(got, want) << testing::PrintToString(text);
}

TEST(comments, agree_with_the_recursive_grammar) {
  static char const alphabet[] = {'(', ')', '\\', ' ', '\r', '\n', '\0', 'a', '1', '\x80'};
  constexpr std::size_t letters = sizeof alphabet;
  // Every text of up to five bytes...
  for (std::size_t length = 0, count = 1; length <= 5; ++length, count *= letters) {
    std::string text(length, ' ');
    for (std::size_t n = 0; n < count && !HasFatalFailure(); ++n) {
      for (std::size_t i = 0, k = n; i < length; ++i, k /= letters)
        text[i] = alphabet[k % letters];
      compare_with_reference(text);
    }
  }
  // ...and longer random ones, biased towards parentheses.
  std::mt19937 random(20030701);
  std::uniform_int_distribution<std::size_t> pick(0, letters + 3), size(6, 40);
  for (int n = 0; n < 20000 && !HasFatalFailure(); ++n) {
    std::string text(size(random), ' ');
    for (char& c : text) {
      std::size_t const k = pick(random);
      c = k < letters ? alphabet[k] : k % 2 ? '(' : ')';
    }
    compare_with_reference(text);
  }
}

// Hostile shapes as long as the parser reads: no stack exhaustion, and the
// work stays linear (a quadratic scan would not finish in the test's time).
// Past max_date_length nothing is read, whatever it holds.
TEST(comments, hostile_nesting_is_safe) {
  std::size_t const n = date::max_date_length;
  std::string const nested = repeat("(", n / 2) + repeat(")", n / 2);
  for (std::string const& text :
       {repeat("(", n), repeat("( ", n / 2), nested, repeat("( ", n / 4) + repeat(") ", n / 4), repeat("(a) ", n / 4),
        repeat("(()", n / 3), repeat("( () ", n / 5), "1 Jul 2003 " + nested, repeat("(", 50 * n)})
    (void)date::rfc822_date_t(text.data(), text.data() + text.size(), nullptr).canonical_format();
  date::rfc822_date_parser_t p(nested.data(), nested.data() + nested.size(), nullptr);
  EXPECT_TRUE(p.skip_single_comment());
  EXPECT_EQ(p.cursor(), nested.data() + nested.size());

  std::string const date = "1 Jul 2003 10:52:37 +0200";
  for (std::size_t const padding : {n - date.size(), n}) {
    std::string const text = repeat(" ", padding) + date;
    EXPECT_EQ(date::rfc822_date_t(text.data(), text.data() + text.size(), nullptr).canonical_format(),
              padding + date.size() <= n ? "2003-07-01 08:52:37" : "")
        << padding;
  }
}

} // namespace
