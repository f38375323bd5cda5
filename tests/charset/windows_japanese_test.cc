// SPDX-License-Identifier: MIT
// The guessing reading of Japanese labels: vendor and carrier codes in
// ISO-2022-JP and Shift_JIS, each read as one character in place of its own
// bytes, while the labelled reading stays what it was.
#include <gtest/gtest.h>

#include <iterator>
#include <string>
#include <vector>

#include "importer/import.h"
#include "tests/support/converted.h"
#include "tests/support/strings.h"

namespace {

using charset::policy_t;
using test_support::repeat;

// 漢字, and a few characters by code point.
#define KANJI "\xE6\xBC\xA2\xE5\xAD\x97"
#define FFFD "\xEF\xBF\xBD"
#define PUA_E000 "\xEE\x80\x80"
#define PUA_E08C "\xEE\x82\x8C"

using test::printable;

// The text must be well-formed whatever the bytes.
test::converted_t convert(std::string const& input, std::string const& label, policy_t policy) {
  auto converted = test::to_utf8(input, label, "", policy);
  EXPECT_TRUE(importer::is_well_formed_utf8(converted.text));
  return converted;
}

struct case_t {
  std::string input, label, expected;
};

TEST(windows_japanese, guess_reads_vendor_and_carrier_codes) {
  std::vector<case_t> const cases = {
      // NEC row 13 mid-text and right after the escape: ① Ⅰ ㍉ ≒ ∮.
      {"a\x1B$B0!-!-5-@-p-s\x1B(Bz", "iso-2022-jp",
       "a\xE4\xBA\x9C\xE2\x91\xA0\xE2\x85\xA0\xE3\x8D\x89\xE2\x89\x92\xE2\x88\xAEz"},
      {"\x1B$B-!\x1B(B (1)", "iso-2022-jp", "\xE2\x91\xA0 (1)"},
      {"\x1B$B-!\x1B(B", "", "\xE2\x91\xA0"}, // undeclared, found by its escape
      {"\x87\x40\x87\x54\x87\x5F\x87\x90\x87\x93", "shift_jis",
       "\xE2\x91\xA0\xE2\x85\xA0\xE3\x8D\x89\xE2\x89\x92\xE2\x88\xAE"},
      // IBM extensions: ⅰ ￢ (NEC's selection, rows 89 to 92) and ∵, then
      // the same from IBM's own lead bytes, and an extension kanji.
      {"\x1B$B|q|{-z\x1B(B", "iso-2022-jp", "\xE2\x85\xB0\xEF\xBF\xA2\xE2\x88\xB5"},
      {"\xFA\x40\xFA\x54\xFA\x5B\xED\x40", "sjis", "\xE2\x85\xB0\xEF\xBF\xA2\xE2\x88\xB5\xE7\xBA\x8A"},
      // User-defined and carrier codes: one private-use character each, and
      // the kanji after them intact. Rows 85 to 94 that code page 932 leaves
      // empty count from U+E000, as its own user-defined rows 95 on do.
      {"\x1B$B%F%9%HvO4A;z\x1B(B", "iso-2022-jp", "\xE3\x83\x86\xE3\x82\xB9\xE3\x83\x88" PUA_E08C KANJI},
      {"\x1B$B\x7F!4A;z\x1B(B", "iso-2022-jp", PUA_E000 KANJI},
      {"\xF0\x40\x8A\xBF\x8E\x9A", "shift_jis", PUA_E000 KANJI},
      {"\xF8\x9F\x8A\xBF\x8E\x9A", "windows-31j", "\xEE\x98\xBE" KANJI},
      {"\xEB\x40\x8A\xBF", "shift_jis", PUA_E000 "\xE6\xBC\xA2"},
      // Holes in standard rows and broken units: U+FFFD for exactly their
      // bytes.
      {"\x1B$B)!4A;z\x1B(B", "iso-2022-jp", FFFD KANJI},
      {"\x85\x40\x8A\xBF\x8E\x9A", "shift_jis", FFFD KANJI},
      {"\x82 a\x80\xA0\xFD", "shift_jis", FFFD " a" FFFD FFFD FFFD},
      // Half-width katakana by escape, by SO and SI, and as 8-bit bytes.
      {"\x1B(I1\x1B(B\x0E"
       "1\x0F"
       "b\xB1",
       "iso-2022-jp",
       "\xEF\xBD\xB1\xEF\xBD\xB1"
       "b\xEF\xBD\xB1"},
      // Truncated escapes and odd trailing bytes; an unknown escape is one
      // character; a line ends any two-byte run.
      {"ab\x1B", "iso-2022-jp", "ab" FFFD},
      {"ab\x1B$B0", "iso-2022-jp", "ab" FFFD},
      {"\x1B$B0!0", "iso-2022-jp", "\xE4\xBA\x9C" FFFD},
      {"ab\x82", "shift_jis", "ab" FFFD},
      {"a\x1B$(Xcd", "iso-2022-jp", "a" FFFD "cd"},
      {"\x1B$B0!\n0!", "iso-2022-jp", "\xE4\xBA\x9C\n0!"},
      // Plain JIS X 0208, and what Windows makes of the few codes it maps
      // its own way (WAVE DASH as FULLWIDTH TILDE) and of JIS-Roman (ASCII).
      {"\x1B$B4A;z\x1B(B kanji", "iso-2022-jp", KANJI " kanji"},
      {"\x1B$B!A\x1B(J\\~", "iso-2022-jp", "\xEF\xBD\x9E\\~"},
      {"\x81\x60\\~", "shift_jis", "\xEF\xBD\x9E\\~"},
      // Other ISO-2022-JP variants keep the labelled route, NEC codes after
      // them included.
      {"\x1B$(Q0!-!\x1B$B-!\x1B(B", "iso-2022-jp", "\xE4\xBA\x9C\xE2\x91\xA0\xE2\x91\xA0"},
      // Without an escape, ISO-2022-JP is read as EUC-JP, as labelled.
      {"\xB0\xA1", "iso-2022-jp", "\xE4\xBA\x9C"},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(printable(c.input) + " as " + c.label);
    EXPECT_EQ(convert(c.input, c.label, policy_t::guess).text, c.expected);
  }
}

// The labelled reading does not know these codes, and must go on not knowing
// them byte for byte.
TEST(windows_japanese, labelled_reading_is_unchanged) {
  std::vector<case_t> const cases = {
      {"\x1B$B%F%9%HvO4A;z\x1B(B", "iso-2022-jp", "\xE3\x83\x86\xE3\x82\xB9\xE3\x83\x88v\xE7\x89\xA2\xE5\xB2\xA8z"},
      {"\x1B$B!A\x1B(J\\~", "iso-2022-jp", "\xE3\x80\x9C\xC2\xA5\xE2\x80\xBE"},
      {"\xF8\x9F\x81\x60", "shift_jis", "<U+00F8>\xE6\xB0\x88`"},
      {"\x87\x40\x8A\xBF", "shift_jis", "<U+0087>@\xE6\xBC\xA2"},
  };
  for (auto const& c : cases)
    EXPECT_EQ(convert(c.input, c.label, policy_t::labelled).text, c.expected) << printable(c.input);
}

// Every two-byte code, whether it has a character or not, is exactly one
// character, and the text after it reads correctly: decoding never resumes
// inside a code.
TEST(windows_japanese, every_code_is_one_character) {
  auto const one_per_line = [](std::string const& text) {
    std::size_t lines = 0;
    for (std::size_t start = 0, end; (end = text.find('\n', start)) != std::string::npos; start = end + 1, ++lines) {
      std::size_t characters = 0;
      for (std::size_t i = start; i != end; ++i)
        characters += (static_cast<unsigned char>(text[i]) & 0xC0) != 0x80;
      EXPECT_EQ(characters, 1u) << "line " << lines << ": " << text.substr(start, end - start);
    }
    return lines;
  };
  std::string jis, shift_jis;
  for (char first = 0x21; first != '\x93'; ++first)
    for (char second = 0x21; second != 0x7F; ++second)
      jis += std::string("\x1B$B") + first + second + "\x1B(B\n";
  for (int lead : {0x81, 0x85, 0x87, 0x9F, 0xE0, 0xEB, 0xED, 0xEF, 0xF0, 0xF9, 0xFA, 0xFC})
    for (int trail = 0x40; trail != 0xFD; ++trail)
      if (trail != 0x7F)
        shift_jis += std::string{static_cast<char>(lead), static_cast<char>(trail), '\n'};
  EXPECT_EQ(one_per_line(convert(jis, "iso-2022-jp", policy_t::guess).text), 114u * 94);
  EXPECT_EQ(one_per_line(convert(shift_jis, "shift_jis", policy_t::guess).text), 12u * 188);
}

// One record per text, quoting the input around the first replaced code even
// where the escapes before it were dropped.
TEST(windows_japanese, records_quote_the_input) {
  auto const converted = convert("0123456789\x1B$B0!0!\x1B(Bab\x1B$BvO\x1B(B\x1B$B)!", "iso-2022-jp", policy_t::guess);
  ASSERT_EQ(converted.problems.size(), 1u);
  EXPECT_EQ(converted.problems[0].at("context"), "0!{1B}(Bab{1B}$BvO{1B}(B{1B}$B)!");
  EXPECT_TRUE(convert("\x1B$B0!\x1B(B", "iso-2022-jp", policy_t::guess).problems.empty());
}

// Texts made of nothing but undecodable units, escapes or switches stay
// linear: a quarter megabyte each costs a fraction of a second.
TEST(windows_japanese, hostile_texts_stay_linear) {
  double const start = test_support::thread_seconds();
  EXPECT_EQ(convert(std::string(1 << 18, '\xFF'), "shift_jis", policy_t::guess).text.size(), 3u << 18);
  EXPECT_EQ(convert("\x1B$B" + repeat(")!", 1 << 17), "iso-2022-jp", policy_t::guess).text.size(), 3u << 17);
  EXPECT_EQ(convert(repeat("\x1B", 1 << 18), "iso-2022-jp", policy_t::guess).text.size(), 3u << 18);
  EXPECT_EQ(convert(repeat("\x1B$(Q0!\x1B$B0!", 1 << 13), "iso-2022-jp", policy_t::guess).text.size(), 6u << 13);
  EXPECT_LT(test_support::thread_seconds() - start, 8.0);
}

} // namespace
