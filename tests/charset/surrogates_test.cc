// SPDX-License-Identifier: MIT
#include "charset/surrogates.h"

#include <gtest/gtest.h>

#include <iterator>
#include <string>

#include "charset/utf8.h"

namespace {

TEST(surrogates_copy, repairs_pairs_and_keeps_the_rest) {
  struct {
    std::string input, expected;
    std::size_t records;
  } const cases[] = {
      {"\xED\xA0\x80\xED\xB0\x80", "\xF0\x90\x80\x80", 1}, // U+10000
      {"\xED\xAF\xBF\xED\xBF\xBF", "\xF4\x8F\xBF\xBF", 1}, // U+10FFFF
      {"a\xED\xA0\xBD\xED\xB8\x80\xED\xA0\xBD\xED\xB8\x81z", "a\xF0\x9F\x98\x80\xF0\x9F\x98\x81z", 2},
      {"\xED\xB0\x80\xED\xA0\x80", "\xED\xB0\x80\xED\xA0\x80", 0}, // low before high
      {"x\xED\xA0\xBD", "x\xED\xA0\xBD", 0},                       // high at the end
      {"\xED\xA0\xBD\xED\xB8", "\xED\xA0\xBD\xED\xB8", 0},         // pair cut short
      {"\xED\x9F\xBF", "\xED\x9F\xBF", 0},                         // U+D7FF
      {"\xED\xED\xA0\xBD\xED\xB8\x80", "\xED\xF0\x9F\x98\x80", 1}, // stray ED first
  };
  for (auto const& c : cases) {
    std::string out;
    quern::error::handler_t handler;
    charset::surrogates_copy(c.input.begin(), c.input.end(), std::back_inserter(out), &handler);
    EXPECT_EQ(out, c.expected);
    EXPECT_EQ(handler.size(), c.records);
  }
}

// Only the shape is checked: overlong, surrogate and six-byte forms pass.
TEST(utf8, structural_validity) {
  struct {
    std::string bytes;
    bool valid;
  } const cases[] = {
      {"caf\xC3\xA9", true}, {"\xED\xA0\xBD\xED\xB8\x80", true},
      {"\xC0\x80", true},    {"\xFC\x80\x80\x80\x80\x80", true},
      {"\xFE\x80", false},   {"\x80", false},
      {"\xC3", false},       {"\xC3z", false},
  };
  for (auto const& c : cases)
    EXPECT_EQ(utf8::is_valid(c.bytes.begin(), c.bytes.end()), c.valid) << c.bytes;
}

} // namespace
