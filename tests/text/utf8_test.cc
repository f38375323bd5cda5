// SPDX-License-Identifier: MIT
#include "text/utf8.h"

#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/messages.h"

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
           {"abc", 0, ""},
           {mixed, 1, "a"},
           {mixed, 2, "a"},
           {mixed, 3, "a\xC3\xA9"},
           {mixed, 5, "a\xC3\xA9"},
           {mixed, 6, "a\xC3\xA9\xE2\x82\xAC"},
           {mixed, 9, "a\xC3\xA9\xE2\x82\xAC"},
           {mixed, 10, mixed},
           {"\xF0\x9F\x93\xA7!", 3, ""},
           // Not well-formed: stray continuation bytes are characters of
           // their own, and a complete character before them is kept.
           {"\xC3\xA9\x80\x80", 3, "\xC3\xA9\x80"},
           {std::string(8, '\x80'), 5, std::string(5, '\x80')},
       }) {
    EXPECT_EQ(text::cut(row.text, row.max), row.expected) << testing::PrintToString(row.text) << " / " << row.max;
  }
}

// repair's policy, one byte at a time from the well-formed sequences of the
// Unicode standard's table of them: a character is copied when one starts
// here; otherwise one U+FFFD stands for the byte and every continuation byte
// after it.
std::string strict_repair(std::string_view text) {
  auto const byte = [&](std::size_t at) { return at < text.size() ? static_cast<unsigned char>(text[at]) : 0u; };
  auto const in = [](unsigned b, unsigned low, unsigned high) { return b >= low && b <= high; };
  std::string out;
  std::size_t i = 0;
  while (i < text.size()) {
    unsigned const b0 = byte(i), b1 = byte(i + 1), b2 = byte(i + 2), b3 = byte(i + 3);
    std::size_t length = 0;
    if (b0 <= 0x7F)
      length = 1;
    else if (in(b0, 0xC2, 0xDF) && in(b1, 0x80, 0xBF))
      length = 2;
    else if (((b0 == 0xE0 && in(b1, 0xA0, 0xBF)) || (in(b0, 0xE1, 0xEC) && in(b1, 0x80, 0xBF)) ||
              (b0 == 0xED && in(b1, 0x80, 0x9F)) || (in(b0, 0xEE, 0xEF) && in(b1, 0x80, 0xBF))) &&
             in(b2, 0x80, 0xBF))
      length = 3;
    else if (((b0 == 0xF0 && in(b1, 0x90, 0xBF)) || (in(b0, 0xF1, 0xF3) && in(b1, 0x80, 0xBF)) ||
              (b0 == 0xF4 && in(b1, 0x80, 0x8F))) &&
             in(b2, 0x80, 0xBF) && in(b3, 0x80, 0xBF))
      length = 4;
    // byte() reads past the end as 0, which no sequence continues with.
    if (length && i + length <= text.size()) {
      out.append(text.substr(i, length));
      i += length;
    } else {
      out += "\xEF\xBF\xBD";
      for (++i; i < text.size() && in(byte(i), 0x80, 0xBF); ++i) {
      }
    }
  }
  return out;
}

TEST(utf8, repair_agrees_with_a_strict_decoder_on_random_bytes) {
  // Bytes drawn by kind, so that sequences that almost work are common:
  // ASCII, continuations of each range, every kind of lead, never-valid bytes.
  std::pair<unsigned, unsigned> const kinds[] = {
      {0x00, 0x7F}, {0x80, 0x8F}, {0x90, 0x9F}, {0xA0, 0xBF}, {0x80, 0xBF}, {0x80, 0xBF},
      {0xC0, 0xC1}, {0xC2, 0xDF}, {0xE0, 0xE0}, {0xE1, 0xEC}, {0xED, 0xED}, {0xEE, 0xEF},
      {0xF0, 0xF0}, {0xF1, 0xF3}, {0xF4, 0xF4}, {0xF5, 0xFF}, {0x41, 0x41},
  };
  std::mt19937 random(20240229);
  std::uniform_int_distribution<std::size_t> length(0, 64), kind(0, std::size(kinds) - 1);
  int failures = 0;
  for (int n = 0; n < 5000 && failures < 10; ++n) {
    std::string text(length(random), ' ');
    for (char& c : text) {
      auto const [low, high] = kinds[kind(random)];
      c = static_cast<char>(std::uniform_int_distribution<unsigned>(low, high)(random));
    }
    std::string const expected = strict_repair(text);
    if (text::repair(text) != expected) {
      ++failures;
      ADD_FAILURE() << testing::PrintToString(text);
    }
    EXPECT_EQ(text::repair(expected), expected); // repaired text is well-formed
  }
}

TEST(utf8, repair_agrees_with_a_strict_decoder_on_the_corpus) {
  auto const paths = test_support::message_paths(false);
  if (paths.empty())
    GTEST_SKIP() << "no shared corpus beside the checkout";
  for (auto const& path : paths) {
    std::ifstream file(path, std::ios::binary);
    std::string const text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    ASSERT_EQ(text::repair(text), strict_repair(text)) << path;
  }
}

} // namespace
