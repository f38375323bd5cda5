#include "email/parameter.h"

#include <gtest/gtest.h>

namespace {

struct parameter_case_t {
  std::string input;
  char const* name;
  std::string initial;
  std::string expected;
};

TEST(parse_parameter, reads_the_named_parameter) {
  parameter_case_t const cases[] = {
      {"; Charset = \"UTF-8\"", "charset", "", "UTF-8"},
      {"; b o u n d a r y=xyz", "boundary", "", "xyz"},
      {"; bound\tary=xyz", "boundary", "", ""},
      {"; format=flowed; charset=utf-8", "charset", "", "utf-8"},
      {"; x; charset=utf-8", "charset", "", ""},
      {"; charset=utf-8 (comment)", "charset", "", "utf-8"},
      {"; charset=\"a\\\"b\"", "charset", "", "a\"b"},
      {"; boundary=\"abc", "boundary", "", "\"abc"},
      {"; charset=x", "charset", "pre-", "pre-x"},
      {"; charset=\"x\"", "charset", "pre-", "x"},
      {"; charset=", "charset", "kept", "kept"},
      {"; charset=a; charset=b", "charset", "", "a"},
      {"charset=a", "charset", "", ""},
      {"", "charset", "", ""},
      {";charset*=utf-8''x", "charset", "", ""},
      {"; charset=a;b", "charset", "", "a"},
  };
  for (auto const& c : cases) {
    std::string value = c.initial;
    email::parse_parameter(c.input.data(), c.input.data() + c.input.size(), c.name, value);
    EXPECT_EQ(value, c.expected) << c.input;
  }
}

TEST(parse_parameter, a_million_parameters_take_no_stack) {
  std::string input;
  for (int i = 0; i < 1'000'000; ++i)
    input += "; a=b";
  input += "; charset=last";
  std::string value;
  email::parse_parameter(input.data(), input.data() + input.size(), "charset", value);
  EXPECT_EQ(value, "last");
}

TEST(parse_quoted_string, needs_both_quotes) {
  struct {
    std::string input;
    bool ok;
    std::string value;
  } const cases[] = {
      {"\"abc\" rest", true, "abc"}, {"\"a\\\\b\"", true, "a\\b"}, {"abc", false, "old"},
      {"\"abc", false, "old"},       {"\"abc\\", false, "old"},    {"\"\"", true, ""},
  };
  for (auto const& c : cases) {
    std::string value = "old";
    EXPECT_EQ(email::parse_quoted_string(c.input.data(), c.input.data() + c.input.size(), value), c.ok) << c.input;
    EXPECT_EQ(value, c.value) << c.input;
  }
}

} // namespace
