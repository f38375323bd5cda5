// SPDX-License-Identifier: MIT
#include "text/hex.h"

#include <gtest/gtest.h>

#include <iterator>
#include <string>

namespace {

// Only the low byte is shown; more than two digits pad with zeros.
TEST(int_to_hex, writes_upper_case_digits_of_the_low_byte) {
  struct {
    int value, digits;
    char const* expected;
  } const cases[] = {{0x1B, 2, "1B"}, {0xAB, 1, "B"}, {0x1234, 2, "34"}, {0xE9, 4, "00E9"}, {-1, 2, "FF"}};
  for (auto const& c : cases) {
    std::string out;
    text::int_to_hex(c.value, std::back_inserter(out), c.digits);
    EXPECT_EQ(out, c.expected) << c.value;
  }
}

} // namespace
