#include "date/rfc822_date.h"

#include <random>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "text/format.h"

namespace {

using namespace std::string_literals;

// Every record the parse left, as "description" plus " (low)" when it has
// the low priority; each record's context must be the whole date text.
std::vector<std::string> problems_of(quern::error::handler_t const& handler, std::string const& text) {
  std::vector<quern::error::record_t> records;
  handler.get_errors({}, records);
  std::vector<std::string> out;
  for (auto& record : records) {
    EXPECT_EQ(record["context"], text);
    std::string line = record["description"];
    if (auto it = record.find("#priority"); it != record.end()) {
      EXPECT_EQ(it->second, "low");
      line += " (low)";
    }
    out.push_back(line);
  }
  return out;
}

std::string const dash = "Non-standard use of '-' ignored";
std::string const year_20xx = "Two-digit years obsoleted in RFC2822 (parsed according to RFC822, but assumed to be "
                              "20xx instead of 19xx) (low)";
std::string const year_19xx = "Two-digit years obsoleted in RFC2822 (parsed according to RFC822 as 19xx) (low)";
std::string const obsolete_zone = "Zone names obsoleted in RFC2822 (parsed according to RFC822) (low)";
std::string const no_sign = "Non-standard missing +/- in time zone";
std::string const out_of_bounds = "Zone number is out of bounds (accepted anyway)";
std::string const quoted = "Non-standard double-quoted zone name";
std::string const military = "Military zone names obsoleted in RFC2822 (parsed according to RFC822)";
std::string const unknown_zone = "Non-parsable zone name ignored (assumed UTC)";
std::string assumed(char const* offset) {
  return "Zone name does not exist in RFC822 (assumed to be "s + offset + ")";
}

struct date_case_t {
  char const* name;
  std::string text;
  std::string utc;   // canonical_format
  std::string local; // local_canonical_format
  std::vector<std::string> problems = {};
};

class date_test : public testing::TestWithParam<date_case_t> {};

TEST_P(date_test, parses_to_both_canonical_forms) {
  auto const& c = GetParam();
  // An exact-size copy, so that a read past the end is caught.
  std::vector<char> const bytes(c.text.begin(), c.text.end());
  quern::error::handler_t handler;
  date::rfc822_date_t const parsed(bytes.data(), bytes.data() + bytes.size(), &handler);
  EXPECT_EQ(parsed.canonical_format(), c.utc);
  EXPECT_EQ(parsed.local_canonical_format(), c.local);
  EXPECT_EQ(problems_of(handler, c.text), c.problems);
  // No handler: same result, nothing to record into.
  EXPECT_EQ(date::rfc822_date_t(bytes.data(), bytes.data() + bytes.size(), nullptr).canonical_format(), c.utc);
}

INSTANTIATE_TEST_SUITE_P(
    forms, date_test,
    testing::Values(
        // Standard and obsolete forms the strict pass reads.
        date_case_t{
            "rfc2822", "Tue, 1 Jul 2003 10:52:37 +0200", "2003-07-01 08:52:37", "2003-07-01 10:52:37 +0200", {}},

        date_case_t{"two_digit_year_20xx_and_zone_name",
                    "1 Jul 03 10:52 EDT",
                    "2003-07-01 14:52:00",
                    "2003-07-01 10:52:00 -0400",
                    {year_20xx, obsolete_zone}},
        date_case_t{"two_digit_year_19xx",
                    "Fri, 13 Mar 98 01:02:03 GMT",
                    "1998-03-13 01:02:03",
                    "1998-03-13 01:02:03 +0000",
                    {year_19xx, obsolete_zone}},
        date_case_t{"year_value_not_digit_count",
                    "1 Jul 0007 00:00 +0000",
                    "2007-07-01 00:00:00",
                    "2007-07-01 00:00:00 +0000",
                    {year_20xx}},
        date_case_t{"three_digit_year_kept", "1 Jul 999 00:00:00 -0530", " 999-07-01 05:30:00",
                    " 999-07-01 00:00:00 -0530"},
        date_case_t{"month_first", "Jul 1 2003 10:52:37 -0700", "2003-07-01 17:52:37", "2003-07-01 10:52:37 -0700"},
        date_case_t{"full_day_name", "Tuesday, 1 Jul 2003 10:52:37 +0200", "2003-07-01 08:52:37",
                    "2003-07-01 10:52:37 +0200"},
        // Only three letters of a month are taken; the rest of "July" is
        // then read as the military zone "Y".
        date_case_t{"full_month_name",
                    "1 July 2003 10:52:37 +0200",
                    "2003-06-30 22:52:37",
                    "2003-07-01 10:52:37 +1200",
                    {military}},
        date_case_t{
            "dashes", "1-Jul-2003 10:52:37 +0200", "2003-07-01 08:52:37", "2003-07-01 10:52:37 +0200", {dash, dash}},
        date_case_t{"date_only", "1 Jul 2003", "2003-07-01 00:00:00", "2003-07-01 00:00:00 +0000"},
        date_case_t{"no_zone", "1 Jul 2003 10:52", "2003-07-01 10:52:00", "2003-07-01 10:52:00 +0000"},
        date_case_t{"bad_seconds_ignored", "1 Jul 2003 10:52:75", "2003-07-01 10:52:00", "2003-07-01 10:52:00 +0000"},
        date_case_t{"leap_second", "30 Jun 2003 23:59:60 +0000", "2003-07-01 00:00:00", "2003-06-30 23:59:60 +0000"},
        date_case_t{"day_rolls_over_in_utc", "31 Jun 2003 00:00:00 +0000", "2003-07-01 00:00:00",
                    "2003-06-31 00:00:00 +0000"},
        date_case_t{"comments_everywhere", "Tue,(a) 1 (b(c)) Jul (d) 2003 (e) 10 (f):52:37 -0700 (PDT)",
                    "2003-07-01 17:52:37", "2003-07-01 10:52:37 -0700"},
        date_case_t{"escaped_parenthesis_in_comment", "1 Jul 2003 10:52 +0100 (a \\) b)", "2003-07-01 09:52:00",
                    "2003-07-01 10:52:00 +0100"},
        date_case_t{"eight_bit_trailing_comment_ignored", "1 Jul 2003 10:52 +0100 (Mitteleurop\xE4ische Zeit)",
                    "2003-07-01 09:52:00", "2003-07-01 10:52:00 +0100"},
        date_case_t{"folded", "Tue, 1 Jul 2003\r\n 10:52:37 +0200", "2003-07-01 08:52:37", "2003-07-01 10:52:37 +0200"},
        // Zones.
        date_case_t{"missing_sign",
                    "Tue, 1 Jul 2003 10:52:37 0200",
                    "2003-07-01 08:52:37",
                    "2003-07-01 10:52:37 +0200",
                    {no_sign}},
        date_case_t{"zone_bound_9959", "1 Jul 2003 10:52:37 +9959", "2003-06-27 06:53:37", "2003-07-01 10:52:37 +9959"},
        date_case_t{"zone_bound_9960",
                    "1 Jul 2003 10:52:37 -9960",
                    "2003-07-05 14:52:37",
                    "2003-07-01 10:52:37 -9960",
                    {out_of_bounds}},
        date_case_t{"half_hour_ahead",
                    "1 Jul 2003 00:00:00 FT",
                    "2003-06-30 12:30:00",
                    "2003-07-01 00:00:00 +1130",
                    {assumed("+1130")}},
        date_case_t{"non_rfc822_name",
                    "1 Jul 2003 10:52:37 cest",
                    "2003-07-01 08:52:37",
                    "2003-07-01 10:52:37 +0200",
                    {assumed("+0200")}},

        date_case_t{"utc_is_not_rfc822",
                    "1 Jul 2003 10:52:37 UTC",
                    "2003-07-01 10:52:37",
                    "2003-07-01 10:52:37 +0000",
                    {assumed("+0000")}},
        date_case_t{"double_quoted",
                    "1 Jul 2003 10:52:37 \"EST\"",
                    "2003-07-01 15:52:37",
                    "2003-07-01 10:52:37 -0500",
                    {quoted, obsolete_zone}},
        date_case_t{
            "military_a", "1 Jul 2003 10:52:37 a", "2003-07-01 11:52:37", "2003-07-01 10:52:37 -0100", {military}},
        date_case_t{
            "military_m", "1 Jul 2003 10:52:37 M", "2003-07-01 22:52:37", "2003-07-01 10:52:37 -1200", {military}},

        date_case_t{
            "military_y", "1 Jul 2003 10:52:37 Y", "2003-06-30 22:52:37", "2003-07-01 10:52:37 +1200", {military}},
        date_case_t{
            "military_z", "1 Jul 2003 10:52:37 Z", "2003-07-01 10:52:37", "2003-07-01 10:52:37 +0000", {military}},
        date_case_t{"j_is_no_zone",
                    "1 Jul 2003 10:52:37 J",
                    "2003-07-01 10:52:37",
                    "2003-07-01 10:52:37 +0000",
                    {unknown_zone}},
        date_case_t{"unknown_word",
                    "1 Jul 2003 10:52:37 XYZ",
                    "2003-07-01 10:52:37",
                    "2003-07-01 10:52:37 +0000",
                    {unknown_zone}},
        date_case_t{"sign_before_name",
                    "1 Jul 2003 10:52:37 +PST",
                    "2003-07-01 18:52:37",
                    "2003-07-01 10:52:37 -0800",
                    {obsolete_zone}},
        // NUL bytes stand in for punctuation and blanks.
        date_case_t{"nul_for_comma_colon_blank", "Tue\0 1\0Jul 2003 10\00052\00037\0+0200"s, "2003-07-01 08:52:37",
                    "2003-07-01 10:52:37 +0200"},
        date_case_t{"nul_for_dash_after_comment",
                    "1 (x)\0Jul 2003"s,
                    "2003-07-01 00:00:00",
                    "2003-07-01 00:00:00 +0000",
                    {dash}},
        // The soup pass.
        date_case_t{"no_comma", "Tue 1 Jul 2003 10:52:37 +0200", "2003-07-01 08:52:37", "2003-07-01 10:52:37 +0200"},
        date_case_t{"any_order", "10:52:37 2003 Jul 1", "2003-07-01 10:52:37", "2003-07-01 10:52:37 +0000"},
        date_case_t{"ctime_style", "Thu Jan 01 00:00:10 2009 +0100", "2008-12-31 23:00:10",
                    "2009-01-01 00:00:10 +0100"},
        date_case_t{"lone_number_after_day_is_year",
                    "Jul 1 10:52 12",
                    "2012-07-01 10:52:00",
                    "2012-07-01 10:52:00 +0000",
                    {year_20xx, year_20xx}},
        date_case_t{"unbalanced_comment", "Tue, 1 Jul 2003 10:52:37 +0200 (", "2003-07-01 08:52:37",
                    "2003-07-01 10:52:37 +0200"},
        // Garbage.
        date_case_t{"hour_24", "1 Jul 2003 24:00:00", "", "", {no_sign}}, date_case_t{"empty", "", "", ""},
        date_case_t{"words", "Whenever you like", "", "", {unknown_zone}},
        date_case_t{"iso", "2012-12-08 00:48", "", ""},
        date_case_t{"five_digit_day", "10000 Jul 2003 10:52", "", "", {no_sign}}),
    [](auto const& info) { return std::string(info.param.name); });

TEST(date, copies_share_one_parse) {
  std::string const text = "1 Jul 2003 10:52:37 +0200";
  date::rfc822_date_t const a(text.data(), text.data() + text.size(), nullptr);
  date::rfc822_date_t const b = a;
  EXPECT_EQ(a.get_time(), b.get_time());
  std::tm const* t = a.get_time();
  EXPECT_EQ(t->tm_year, 2003); // the full year, not years since 1900
  EXPECT_EQ(t->tm_wday, 0);
}

TEST(date, unparsed_time_is_now) {
  std::string const text = "no date";
  date::rfc822_date_t const d(text.data(), text.data() + text.size(), nullptr);
  std::time_t const now = std::time(nullptr);
  std::tm* t = d.get_time();
  EXPECT_LE(std::abs(std::difftime(std::mktime(t), now)), 5.0);
}

// Only the first three letters of a name are compared, in any case.
TEST(parser, names_match_on_three_letters) {
  for (std::string const& text : {"MONDAY"s, "monday"s, "Mon"s, "Monxyz"s}) {
    date::rfc822_date_parser_t p(text.data(), text.data() + text.size(), nullptr);
    EXPECT_TRUE(p.parse_day_name()) << text;
    EXPECT_EQ(p.cursor(), text.data() + text.size()) << text;
  }
  char const* const months[] = {"jan", "FEB", "Mar", "apr", "may", "jun", "jul", "aug", "sep", "oct", "nov", "dec"};
  for (int i = 0; i < 12; ++i) {
    std::string const text = "1 "s + months[i] + " 2003";
    auto const local = date::rfc822_date_t(text.data(), text.data() + text.size(), nullptr).local_canonical_format();
    EXPECT_EQ(local, text::format("2003-%02d-01 00:00:00 +0000", i + 1)) << text;
  }
}

TEST(parser, folding_white_space) {
  struct {
    std::string text;
    bool blank;
    std::size_t used;
  } const cases[] = {
      {" \t\0x"s, true, 3}, {"\r\n y", true, 3}, {"\r\0\0y"s, true, 3}, {"\r\ny", false, 2},
      {"\ry", false, 1},    {" \r y", true, 2},  {"\n", false, 0},      {"", false, 0},
  };
  for (auto const& c : cases) {
    date::rfc822_date_parser_t p(c.text.data(), c.text.data() + c.text.size(), nullptr);
    EXPECT_EQ(p.skip_fws(), c.blank) << testing::PrintToString(c.text);
    EXPECT_EQ(static_cast<std::size_t>(p.cursor() - c.text.data()), c.used) << testing::PrintToString(c.text);
  }
}

// The comment grammar as plainly recursive code: the parser must agree with
// it everywhere, without its recursion.
struct reference_t {
  std::string_view s;
  std::size_t i = 0;

  static bool blank(char c) { return c == ' ' || c == '\t' || c == '\0'; }
  bool at(char c) const { return i < s.size() && (s[i] == c || s[i] == '\0'); }
  bool fws() {
    bool any = false;
    while (i < s.size()) {
      if (blank(s[i])) {
        ++i, any = true;
      } else if (s[i] == '\r') {
        ++i;
        if (!at('\n'))
          break;
        ++i;
        if (i == s.size() || !blank(s[i]))
          break;
      } else {
        break;
      }
    }
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
  void comments() {
    while (comment()) {
    }
  }
  bool year() {
    std::size_t const start = i;
    comments();
    std::size_t digits = 0;
    while (i < s.size() && s[i] >= '0' && s[i] <= '9')
      ++i, ++digits;
    if (digits == 0 || digits > 4) {
      i = start;
      return false;
    }
    comments();
    return true;
  }
};

void compare_with_reference(std::string const& text) {
  std::vector<char> const bytes(text.begin(), text.end()); // exact size
  char const* const first = bytes.data();
  date::rfc822_date_parser_t p(first, first + bytes.size(), nullptr);
  reference_t r{std::string_view(first, bytes.size())};
  auto const where = [&] { return static_cast<std::size_t>(p.cursor() - first); };
  // One parser for the whole sequence, so later steps meet what earlier
  // ones remembered.
  ASSERT_EQ(p.parse_year(), r.year()) << testing::PrintToString(text);
  ASSERT_EQ(where(), r.i) << testing::PrintToString(text);
  ASSERT_EQ(p.skip_single_comment(), r.comment()) << testing::PrintToString(text);
  ASSERT_EQ(where(), r.i) << testing::PrintToString(text);
  ASSERT_TRUE(p.skip_ccontent());
  r.ccontent();
  ASSERT_EQ(where(), r.i) << testing::PrintToString(text);
  ASSERT_EQ(p.parse_year(), r.year()) << testing::PrintToString(text);
  ASSERT_EQ(where(), r.i) << testing::PrintToString(text);
}

TEST(comments, agree_with_the_recursive_grammar) {
  static char const alphabet[] = {'(', ')', '\\', ' ', '\r', '\n', '\0', 'a', '1', '\x80'};
  constexpr std::size_t letters = sizeof alphabet;
  // Every text of up to five bytes...
  for (std::size_t length = 0; length <= 5; ++length) {
    std::size_t count = 1;
    for (std::size_t i = 0; i < length; ++i)
      count *= letters;
    std::string text(length, ' ');
    for (std::size_t n = 0; n < count; ++n) {
      for (std::size_t i = 0, k = n; i < length; ++i, k /= letters)
        text[i] = alphabet[k % letters];
      compare_with_reference(text);
      if (testing::Test::HasFatalFailure())
        return;
    }
  }
  // ...and longer random ones, biased towards parentheses.
  std::mt19937 random(20030701);
  std::uniform_int_distribution<std::size_t> pick(0, letters + 3);
  std::uniform_int_distribution<std::size_t> size(6, 40);
  for (int n = 0; n < 20000; ++n) {
    std::string text(size(random), ' ');
    for (char& c : text) {
      std::size_t const k = pick(random);
      c = k < letters ? alphabet[k] : k % 2 ? '(' : ')';
    }
    compare_with_reference(text);
    if (testing::Test::HasFatalFailure())
      return;
  }
}

// Hostile shapes: no stack exhaustion, and the work stays linear (a
// quadratic scan of a megabyte would not finish in the test's time).
TEST(comments, hostile_nesting_is_safe) {
  auto const repeat = [](std::string const& piece, std::size_t times) {
    std::string out;
    out.reserve(piece.size() * times);
    for (std::size_t i = 0; i < times; ++i)
      out += piece;
    return out;
  };
  std::size_t const n = 1'000'000;
  std::string const texts[] = {
      repeat("(", n),
      repeat("( ", n / 2),
      repeat("(", n / 2) + repeat(")", n / 2),
      repeat("( ", n / 4) + repeat(") ", n / 4),
      repeat("(a) ", n / 4),
      repeat("(()", n / 3),
      repeat("( () ", n / 5),
      "1 Jul 2003 10:52 +0100 " + repeat("(", n / 2) + repeat(")", n / 2),
  };
  for (auto const& text : texts) {
    date::rfc822_date_t const d(text.data(), text.data() + text.size(), nullptr);
    (void)d.canonical_format();
  }
  std::string const nested = repeat("(", n / 2) + repeat(")", n / 2);
  date::rfc822_date_parser_t p(nested.data(), nested.data() + nested.size(), nullptr);
  EXPECT_TRUE(p.skip_single_comment());
  EXPECT_EQ(p.cursor(), nested.data() + nested.size());
  std::string const dated = "1 Jul 2003 10:52 +0100 " + nested;
  EXPECT_EQ(date::rfc822_date_t(dated.data(), dated.data() + dated.size(), nullptr).canonical_format(),
            "2003-07-01 09:52:00");
}

// Cutting a date anywhere must not make the parser read past the cut.
TEST(date, never_reads_past_the_range) {
  for (std::string const text : {"Tue, 1 Jul 2003 10:52:37 +0200 (CEST)", "1-Jul-03 10:52 \"EST\"",
                                 "Thu Jan 01 00:00:10 2009 PST", "Tue,(a\\) 1 (b(c)) Jul 2003 10:52:37 -0700"}) {
    for (std::size_t n = 0; n <= text.size(); ++n) {
      std::vector<char> const bytes(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(n));
      quern::error::handler_t handler;
      date::rfc822_date_t const d(bytes.data(), bytes.data() + bytes.size(), &handler);
      (void)d.local_canonical_format();
    }
  }
}

} // namespace
