#include "header/token.h"

#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <string>

namespace {

struct token_case_t {
  std::string input;
  char opener;
  char const* terminators;
  bool required;
  bool escapes;
  std::optional<std::string> token; // nullopt: no token
  std::size_t position;             // offset of the position afterwards
};

TEST(parse_token_until, reads_bounded_tokens) {
  using namespace std::string_literals;
  token_case_t const cases[] = {
      // comments: nesting, pairs of openers stripped
      {"a (b) c) rest", '(', ")", true, false, "a (b) c", 8},
      {"(x)) rest", '(', ")", true, false, "x", 4},
      {"((x))) rest", '(', ")", true, false, "x", 6},
      {"a (b c", '(', ")", true, false, std::nullopt, 0},
      // quoted strings: escapes skipped, not removed
      {"a\\\"b\" rest", '\0', "\"", true, true, "a\\\"b", 5},
      {"Ann <a@b>", '\0', "\"", true, true, std::nullopt, 0},
      {"\"", '\0', "\"", true, true, std::nullopt, 0},
      {"  x  \"", '\0', "\"", true, true, "x", 6},
      {"   \"", '\0', "\"", true, true, std::nullopt, 3},
      {"ab\\", '\0', "\"", true, true, std::nullopt, 0},
      // a backslash that is itself a terminator terminates
      {"a\\b", '\0', "\\", true, true, "a", 2},
      // bare words: stop before the terminator, not consumed
      {"Bob <b@x>", '\0', "\"(< ", false, false, "Bob", 3},
      {" Bob", '\0', "\"(< ", false, false, std::nullopt, 0},
      {"'Bob' x", '\0', "\"(< ", false, false, "Bob", 5},
      {"Bob", '\0', "\"(< ", false, false, "Bob", 3},
      // '<' ends a word only where it plausibly opens an angle address
      {"a<b<c@d>", '\0', "<", false, false, "a<b", 3},
      {"a<<c@d>", '\0', "<", false, false, "a", 1},
      {"a<", '\0', "<", false, false, "a", 1},
      // NUL is ordinary, and trimmed from the ends
      {"\0\0a\0\0;"s, '\0', ";", true, false, "a"s, 6},
      {"\0\0"s, '\0', ";", false, false, std::nullopt, 0},
      {"x'';", '\0', ";", true, false, "x''", 4},
      {"'';", '\0', ";", true, false, std::nullopt, 0},
  };
  for (auto const& c : cases) {
    char const* const first = c.input.data();
    char const* position = first;
    header::match_t token;
    bool const found = header::parse_token_until(position, first + c.input.size(), c.opener, c.terminators, c.required,
                                                 c.escapes, token);
    ASSERT_EQ(found, c.token.has_value()) << c.input;
    if (found) {
      EXPECT_EQ(std::string(token.first, token.last), *c.token) << c.input;
      EXPECT_TRUE(token.first >= first && token.last <= first + c.input.size());
    }
    EXPECT_EQ(static_cast<std::size_t>(position - first), c.position) << c.input;
  }
}

TEST(parse_token_until, deep_nesting_is_a_counter) {
  std::string const input = std::string(1'000'000, '(') + "x" + std::string(1'000'001, ')');
  char const* position = input.data();
  header::match_t token;
  ASSERT_TRUE(header::parse_token_until(position, input.data() + input.size(), '(', ")", true, false, token));
  EXPECT_EQ(std::string(token.first, token.last), "x");
  EXPECT_EQ(position, input.data() + input.size());
}

TEST(special_check, needs_a_closing_angle_before_the_next_opening) {
  struct {
    char const* input;
    bool special;
  } const cases[] = {{"<a@b>", false}, {"<a<b>", true}, {"<<a>", false}, {"<abc", false}, {"<", false}};
  for (auto const& c : cases)
    EXPECT_EQ(header::special_check(c.input, c.input + std::strlen(c.input)), c.special) << c.input;
}

std::vector<std::string> split_all(std::string const& text, header::match_t (*split)(char const*&, char const*)) {
  std::vector<std::string> items;
  char const* position = text.data();
  char const* const end = position + text.size();
  for (int guard = 0; guard < 20; ++guard) {
    header::match_t const item = split(position, end);
    if (!item.found() || item.empty())
      break;
    items.emplace_back(item.first, item.last);
  }
  return items;
}

TEST(address_split_function, splits_only_between_addresses) {
  using list = std::vector<std::string>;
  struct {
    std::string input;
    list items;
  } const cases[] = {
      {"Doe, John <j@x>, Ann <a@y>", {"Doe, John <j@x>", "Ann <a@y>"}},
      {"a, b, c", {"a, b, c"}},
      {"\"Doe, J@x\" <j@x>, b@y  ", {"\"Doe, J@x\" <j@x>", "b@y"}},
      {"  a@x ,b@y,", {"a@x", "b@y"}},
      {"Team: a, b;, c@d", {"Team: a", "b;, c@d"}},
      {"\"unterminated, a@b", {"\"unterminated, a@b"}},
      {"", {}},
  };
  for (auto const& c : cases)
    EXPECT_EQ(split_all(c.input, header::address_split_function), c.items) << c.input;
}

TEST(parameter_split_function, reads_semicolon_parameters) {
  using list = std::vector<std::string>;
  struct {
    std::string input;
    list items;
  } const cases[] = {
      {"; charset=utf-8; format=flowed ", {"charset=utf-8", "format=flowed"}},
      {" ;name=\"a;b\\\"c\"  ; x = y", {"name=\"a;b\\\"c\"", "x = y"}},
      {"; name", {}},
      {"text/plain; a=b", {}},
      {"; a=\"open", {"a=\"open"}},
  };
  for (auto const& c : cases)
    EXPECT_EQ(split_all(c.input, header::parameter_split_function), c.items) << c.input;
}

TEST(dequote_string, removes_quotes_and_escapes) {
  struct {
    std::string input, output;
  } const cases[] = {
      {"\"John  Q\"   Public", "John  Q Public"},
      {"\"a\\\"b\\\\c\"", "a\"b\\c"},
      {"a\\b", "a\\b"},
      {"\"open\\", "open"},
      {"  lead", " lead"},
      {"", ""},
  };
  for (auto const& c : cases)
    EXPECT_EQ(header::dequote_string(c.input.data(), c.input.data() + c.input.size()), c.output) << c.input;
}

TEST(dequote_string_if_needed, allocates_only_when_it_must) {
  struct {
    std::string input;
    bool copied;
    std::string output;
  } const cases[] = {
      {"plain", false, "plain"},
      {"\"quoted\"", false, "quoted"},
      {"\"a\\\"b\"", true, "a\"b"},
      {"\"a\" \"b\"", true, "a b"},
      {"\"", true, ""},
  };
  for (auto const& c : cases) {
    char const* first = c.input.data();
    char const* end = first + c.input.size();
    std::string out;
    bool const copied = header::dequote_string_if_needed(first, end, out);
    EXPECT_EQ(copied, c.copied) << c.input;
    EXPECT_EQ(copied ? out : std::string(first, end), c.output) << c.input;
  }
}

TEST(quoting, quotes_exactly_what_it_must) {
  using namespace std::string_literals;
  EXPECT_EQ(header::quote_name_string("John Smith"), "John Smith");
  EXPECT_EQ(header::quote_name_string("J. Smith"), "\"J. Smith\"");
  EXPECT_EQ(header::quote_name_string("Smith, \"J\" \\x"), "\"Smith, \\\"J\\\" \\\\x\"");
  EXPECT_EQ(header::quote_name_string(""), "");
  EXPECT_EQ(header::quote_string("a\0b"s, ""), "a\0b"s);
  EXPECT_EQ(header::quote_string("caf\xc3\xa9", ""), "\"caf\xc3\xa9\"");
  EXPECT_EQ(header::percent_encoded_string("a b*%\xff~", false), "a%20b%2a%25%ff~");
  EXPECT_EQ(header::percent_encoded_string("a b*%\xff\n", true), "a b*%%ff%0a");
}

TEST(quoting, single_quotes_and_levels) {
  std::string const quoted = "'x'";
  char const* first = quoted.data();
  char const* end = first + quoted.size();
  EXPECT_EQ(header::sanitize_quotes(first, end), quoted.data() + 1);
  EXPECT_EQ(std::string(first, end), "x");
  for (auto [host, label] : {std::pair{"a.b.c", "c"}, {"abc", "abc"}, {"a.", ""}, {"", ""}}) {
    std::string const text = host;
    char const* begin = text.data();
    EXPECT_EQ(std::string(header::skip_level(begin, begin + text.size()), begin + text.size()), label) << host;
  }
}

TEST(character_classes, follow_the_mime_sets) {
  EXPECT_TRUE(header::is_tspecial('\0'));
  for (char c : std::string("()<>@,;:\\\"/[]?="))
    EXPECT_TRUE(header::is_tspecial(c)) << c;
  EXPECT_FALSE(header::is_tspecial('a'));
  EXPECT_FALSE(header::is_attribute_char('*'));
  EXPECT_FALSE(header::is_attribute_char('\''));
  EXPECT_FALSE(header::is_attribute_char(' '));
  EXPECT_FALSE(header::is_attribute_char('\x7f'));
  EXPECT_FALSE(header::is_attribute_char('\xe9'));
  EXPECT_TRUE(header::is_attribute_char('~'));
  EXPECT_TRUE(header::is_blank('\t'));
  EXPECT_FALSE(header::is_blank('\n'));
}

} // namespace
