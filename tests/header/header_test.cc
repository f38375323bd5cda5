// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "header/address.h"
#include "header/format.h"
#include "header/public_suffix.h"
#include "header/token.h"
#include "tests/support/strings.h"

namespace {

using namespace std::string_literals;
using test_support::repeat;
using header::name_format_t;
using splitter_t = header::match_t (*)(char const*&, char const*);
constexpr auto rfc822 = name_format_t::rfc822, angle_split = name_format_t::angle_split;

// The text of a match, "-" for none.
std::string text_of(header::match_t const& m) {
  return m.found() ? std::string(m.first, m.last) : "-";
}

// What split finds in the whole of text; it must consume the text.
std::string apply(splitter_t split, std::string const& text) {
  char const* position = text.data();
  header::match_t const m = split(position, text.data() + text.size());
  EXPECT_EQ(position, text.data() + text.size());
  return text_of(m);
}

// ---- token scanning, splitting and quoting

TEST(parse_token_until, reads_bounded_tokens) {
  struct {
    std::string input;
    char opener;
    char const* terminators;
    bool required, escapes;
    std::string token;    // "-": no token
    std::size_t position; // offset afterwards
  } const cases[] = {
      // comments: nesting (a counter, not recursion), pairs of openers stripped
      {"a (b) c) rest", '(', ")", true, false, "a (b) c", 8},
      {"a (b c", '(', ")", true, false, "-", 0},
      {std::string(1'000'000, '(') + "x" + std::string(1'000'001, ')'), '(', ")", true, false, "x", 2'000'002},
      // quoted strings: escapes skipped, not removed
      {"a\\\"b\" rest", '\0', "\"", true, true, "a\\\"b", 5},
      {"  x  \"", '\0', "\"", true, true, "x", 6},
      {"ab\\", '\0', "\"", true, true, "-", 0},
      {"a\\b", '\0', "\\", true, true, "a", 2}, // a backslash terminator terminates
      // bare words: stop before the terminator, not consumed
      {"Bob <b@x>", '\0', "\"(< ", false, false, "Bob", 3},
      {" Bob", '\0', "\"(< ", false, false, "-", 0},
      {"'Bob' x", '\0', "\"(< ", false, false, "Bob", 5},
      // '<' ends a word only where it plausibly opens an angle address
      {"a<b<c@d>", '\0', "<", false, false, "a<b", 3},
      {"a<<c@d>", '\0', "<", false, false, "a", 1},
      // NUL is ordinary, and trimmed from the ends; only enclosing quotes go
      {"\0\0a\0;"s, '\0', ";", true, false, "a", 5},
      {"x'';", '\0', ";", true, false, "x''", 4},
  };
  for (auto const& c : cases) {
    char const *const first = c.input.data(), *position = first;
    header::match_t token;
    bool const found = header::parse_token_until(position, first + c.input.size(), c.opener, c.terminators, c.required,
                                                 c.escapes, token);
    EXPECT_EQ(found ? text_of(token) : "-", c.token) << c.input.substr(0, 20);
    EXPECT_EQ(static_cast<std::size_t>(position - first), c.position) << c.input.substr(0, 20);
  }
}

// Quotes and escapes removed; a run of blanks outside quotes becomes one.
TEST(dequote_string, removes_quotes_and_escapes) {
  std::pair<std::string, std::string> const cases[] = {
      {"\"quoted\"", "quoted"}, {"\"John  Q\"   Public", "John  Q Public"},
      {"\"a\\\\b\"", "a\\b"},   {"a\\b", "a\\b"},
      {"\"open\\", "open"},     {"\"", ""},
      {"  lead", " lead"},
  };
  for (auto const& [input, output] : cases)
    EXPECT_EQ(header::dequote_string(input.data(), input.data() + input.size()), output) << input;
}

// ---- display names and e-mail addresses

// (dequoted name, e-mail as written), "-" for none; both must lie inside the text.
std::pair<std::string, std::string> parse(std::string const& text) {
  char const* position = text.data();
  char const* const end = position + text.size();
  auto const [name, email] = header::address_name_and_email_function(position, end);
  EXPECT_EQ(position, end);
  for (header::match_t const& m : {name, email})
    EXPECT_TRUE(!m.found() || (m.first >= text.data() && m.first <= m.last && m.last <= end)) << text;
  return {name.found() ? header::dequote_string(name.first, name.last) : "-", text_of(email)};
}

TEST(address_name_and_email_function, reads_the_forms_real_mail_carries) {
  struct {
    std::string input, name, email;
  } const cases[] = {
      {"  Ann   Smith\t<ann@x>  ", "Ann Smith", "ann@x"},
      {"Ann Smith", "Ann Smith", "-"},
      {"\"Smith \\\"Nan\\\" Ann\" <ann@x>", "Smith \"Nan\" Ann", "ann@x"},
      {"Undisclosed recipients: ;", "Undisclosed recipients", "-"},
      // the address repeated in the name
      {"\"ann@x\" <ann@x>", "-", "ann@x"},
      {"Ann (ann@x) <ann@x>", "Ann", "ann@x"},
      {"ann@x (Ann <ann@x>)", "Ann", "ann@x"},
      {"ann@x (Ann <bob@y>)", "Ann <bob@y>", "ann@x"},
      {"\xE2\x80\xAA <ann@x>", "-", "ann@x"},
      // unterminated quotes and brackets
      {"\"Ann <ann@x>", "Ann ", "ann@x"},
      {"Ann <ann@x", "Ann", "ann@x"},
      {"Ann (Work <ann@x>", "Ann (Work", "ann@x"},
      {"(note) Ann <ann@x>", "Ann", "ann@x"},
      {"<>", "-", "-"},
      {"\"\" <ann@x>", "-", "ann@x"},
  };
  for (auto const& c : cases)
    EXPECT_EQ(parse(c.input), std::pair(c.name, c.email)) << c.input;
}

// Library entry points no host path calls: the halves of an address, the URL
// splitters and the quoting helpers.
TEST(address_name_and_email_function, halves_url_splitters_and_quoting) {
  struct {
    splitter_t split;
    std::string input, part;
  } const cases[] = {
      {header::address_name_function, "Ann <ann@x>", "Ann"},
      {header::address_email_function, "Ann <ann@x>", "ann@x"},
      {header::mailto_function, "mailto:ann@x", "ann@x"},
      {header::protocol_function, "https://h/p", "https"},
      {header::server_function, "https://host.example/a/b", "host.example"},
      {header::path_function, "https://host/a/b", "a/b"},
      {header::path_function, "https://host", "-"},
  };
  for (auto const& c : cases)
    EXPECT_EQ(apply(c.split, c.input), c.part) << c.input;
  EXPECT_EQ(header::quote_name_string("Jean-Luc_B Smith"), "Jean-Luc_B Smith");
  EXPECT_EQ(header::quote_name_string("Smith, \"J\" \\x"), "\"Smith, \\\"J\\\" \\\\x\"");
  EXPECT_EQ(header::quote_string("a\0b"s, ""), "a\0b"s); // NUL is in every extra set
  EXPECT_EQ(header::quote_string("caf\xc3\xa9", ""), "\"caf\xc3\xa9\"");
  EXPECT_EQ(header::percent_encoded_string("a b*%'\x7f\xff~", false), "a%20b%2a%25%27%7f%ff~");
  EXPECT_EQ(header::percent_encoded_string("a b*%\xff\n", true), "a b*%%ff%0a");
}

// Openers without their closers, on values of a megabyte, stay within the
// text (address_cost_test has the runs of one opener and their cost).
TEST(address_name_and_email_function, hostile_values_stay_linear) {
  for (std::string const& value : {
           repeat("\"", 1'000'000),
           "\"" + repeat("\\", 200'000) + repeat("\"", 200'000),
           repeat("a", 400'000) + "@ <" + repeat("a", 300'000) + "@>",
       })
    parse(value);
  EXPECT_EQ(parse("a@b (a@b (Ann <a@b>))").first, "Ann");
}

// ---- name and address formats

TEST(format_name_and_address, writes_each_form) {
  struct {
    std::string name, address;
    name_format_t format;
    std::string text;
  } const cases[] = {
      {"Smith, John", "js@x", rfc822, "\"Smith, John\" <js@x>"},
      {"Smith, John", "js@x", name_format_t::display, "Smith, John <js@x>"},
      {"js@x \"home\"", "js@x", angle_split, "\"js@x \"\"home\"\"\" <js@x>"},
      {" \t\r\n", " js@x\n", rfc822, "js@x"},
      {" Ann ", "", angle_split, "Ann <>"},
  };
  for (auto const& c : cases)
    EXPECT_EQ(header::format_name_and_address(c.name, c.address, c.format), c.text) << c.name;
}

TEST(split_name_and_address, reads_rfc822_and_angle_split) {
  struct {
    std::string text;
    name_format_t format;
    std::string name, address;
  } const cases[] = {
      {"\"Smith, John\" <js@x>", rfc822, "Smith, John", "js@x"},
      {"js@x (John)", rfc822, "John", "js@x"},
      {"John Smith", rfc822, "", "John Smith"},
      {"Ann <a@x", angle_split, "Ann", "a@x"},
      {"Ann > <a@x", angle_split, "Ann >", "a@x"},
      {"\"a\"\"b\" c <x>", angle_split, "a\"b c", "x"},
      {"x", static_cast<name_format_t>(7), "", ""},
  };
  for (auto const& c : cases)
    EXPECT_EQ(header::split_name_and_address(c.text, c.format), std::pair(c.name, c.address)) << c.text;
}

TEST(split_name_and_address, names_survive_a_round_trip) {
  auto const round_trip = [](std::string const& name, name_format_t format) {
    std::string const text = header::format_name_and_address(name, "ann@x", format);
    EXPECT_EQ(header::split_name_and_address(text, format), std::pair(name, "ann@x"s)) << text;
  };
  for (std::string const name :
       {"Ann", "Smith, Ann", "ann@x", "\"Ann\" <ann@x>", "a\"\"b@", "<>@\"", "Ann \"The\" Smith"})
    round_trip(name, angle_split);
  for (std::string const name : {"Smith, Ann", "Ann \"The\" Smith", "A. (B) \\C"})
    round_trip(name, rfc822);
  EXPECT_EQ(header::reformat_name_and_address("\"A, B\" <a@x>", rfc822, name_format_t::display), "A, B <a@x>");
  // The display form cannot be read back; a library caller gets nothing (the
  // desktop host's own path stops the process instead).
  EXPECT_EQ(header::split_name_and_address("A <a@x>", name_format_t::display), (std::pair<std::string, std::string>()));
}

// ---- public suffixes

TEST(public_suffix, cuts_hosts_into_levels) {
  struct {
    std::string host, top, second, third;
  } const cases[] = {
      {"news.bbc.co.uk", "co.uk", "bbc", "news"},
      {"x.y.blogspot.com", "blogspot.com", "y", "x"}, // private section
      {"www.ck", "ck", "www", "-"},                   // exception to *.ck
      {"co.uk", "co.uk", "-", "-"},
      {"localhost", "localhost", "-", "-"},
      {"", "-", "-", "-"},
      {"a..co.uk", "co.uk", "-", "-"},
  };
  for (auto const& c : cases) {
    EXPECT_EQ(apply(header::psl_top_level_function, c.host), c.top) << c.host;
    EXPECT_EQ(apply(header::psl_second_level_function, c.host), c.second) << c.host;
    EXPECT_EQ(apply(header::psl_third_level_function, c.host), c.third) << c.host;
  }
}

} // namespace
