// SPDX-License-Identifier: MIT
#include "text/utf8.h"

#include <string>

#include <gtest/gtest.h>

namespace {

TEST(utf8, cut_never_splits_a_character) {
  struct row_t {
    std::string text;
    std::size_t max;
    std::string expected;
  };
  // "a", then é (2 bytes), € (3) and 📧 (4): every limit inside each of them.
  std::string const mixed = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x93\xA7";
  for (auto const& row : std::vector<row_t>{
           {"", 0, ""},
           {"abc", 3, "abc"},
           {"abc", 10, "abc"},
           {"abc", 0, ""},
           {mixed, 1, "a"},
           {mixed, 2, "a"},
           {mixed, 3, "a\xC3\xA9"},
           {mixed, 4, "a\xC3\xA9"},
           {mixed, 5, "a\xC3\xA9"},
           {mixed, 6, "a\xC3\xA9\xE2\x82\xAC"},
           {mixed, 7, "a\xC3\xA9\xE2\x82\xAC"},
           {mixed, 9, "a\xC3\xA9\xE2\x82\xAC"},
           {mixed, 10, mixed},
           {"\xF0\x9F\x93\xA7!", 3, ""},
           // Not well-formed: stray continuation bytes are characters of
           // their own, and a complete character before them is kept.
           {"\xC3\xA9\x80\x80", 3, "\xC3\xA9\x80"},
           {std::string(8, '\x80'), 5, std::string(5, '\x80')},
           {"\x80\x80", 1, "\x80"},
       }) {
    EXPECT_EQ(text::cut(row.text, row.max), row.expected) << testing::PrintToString(row.text) << " / " << row.max;
  }
}

TEST(utf8, repair_replaces_each_ill_formed_sequence_once) {
  std::string const replacement = "\xEF\xBF\xBD";
  struct row_t {
    std::string text, expected;
  };
  for (auto const& row : std::vector<row_t>{
           {"caf\xC3\xA9", "caf\xC3\xA9"},
           {"caf\xE9!", "caf" + replacement + "!"},                // Latin-1
           {"\xC0\xAF", replacement},                              // overlong '/'
           {"\xED\xA0\x80x", replacement + "x"},                   // an encoded surrogate
           {"\xF4\x90\x80\x80", replacement},                      // past U+10FFFF
           {"ab\xE2\x82", "ab" + replacement},                     // cut off at the end
           {"\x80\x80\x80z", replacement + "z"},                   // a run of strays
           {"\xE2\x82\xE2\x82\xAC", replacement + "\xE2\x82\xAC"}, // resynchronised at the next lead
       }) {
    EXPECT_EQ(text::repair(row.text), row.expected) << testing::PrintToString(row.text);
  }
}

} // namespace
