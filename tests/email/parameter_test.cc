// SPDX-License-Identifier: MIT
#include "email/parameter.h"

#include <gtest/gtest.h>

namespace {

TEST(parse_parameter, reads_the_named_parameter) {
  std::tuple<std::string, char const*, std::string> const cases[] = {
      // input, name, value (starting as "pre-")
      {"; Charset = \"UTF-8\"", "charset", "UTF-8"},
      {"; b o u n d a r y=xyz", "boundary", "pre-xyz"},
      {"; bound\tary=xyz", "boundary", "pre-"},
      {"; format=flowed; charset=utf-8 (comment)", "charset", "pre-utf-8"},
      {"; x; charset=utf-8", "charset", "pre-"}, // the name read is "x;charset"
      {"; charset=\"a\\\"b\\\\\"", "charset", "a\"b\\"},
      {"; boundary=\"abc\\", "boundary", "pre-\"abc\\"},
      {"; charset=", "charset", "pre-"},
      {"; charset=a;charset=b", "charset", "pre-a"},
      {";charset*=utf-8''x", "charset", "pre-"},
  };
  for (auto const& [input, name, expected] : cases) {
    std::string value = "pre-";
    email::parse_parameter(input.data(), input.data() + input.size(), name, value);
    EXPECT_EQ(value, expected) << input;
  }
}

} // namespace
