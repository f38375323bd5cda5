// SPDX-License-Identifier: MIT
#include "charset/convert.h"

#include <gtest/gtest.h>
#include <iconv.h>

#include <iterator>
#include <string>
#include <vector>

#include "charset/japanese.h"
#include "charset/surrogates.h"
#include "importer/import.h"
#include "tests/support/converted.h"
#include "tests/support/strings.h"
#include "text/format.h"

namespace {

using quern::error::code_t, quern::error::pattern_of;

// 亜 (JIS X 0208 0x3021) and 丂 (JIS X 0212 0x3021).
#define A_0208 "\xE4\xBA\x9C"
#define A_0212 "\xE4\xB8\x82"
#define QUOTED(name) "\xE2\x80\x9C" name "\xE2\x80\x9D"

using test::printable, test::to_utf8;
using test_support::repeat;

using namespace charset;

std::string invalid(std::string const& charset) {
  return std::string(text_of(code_t::charset_invalid_sequence)) + (" (iconv / " + charset + ")");
}
std::string incomplete(std::string const& charset) {
  return std::string(text_of(code_t::charset_incomplete_sequence)) + (" (iconv / " + charset + ")");
}
std::string not_utf8(std::string const& charset) {
  return text::format(pattern_of<code_t::charset_fallback>, charset.c_str());
}
std::string upgrade(std::string const& variant) {
  return text::format(pattern_of<code_t::charset_wider_variant>, variant.c_str(), "ISO-2022-JP-3");
}

std::string const claimed = text::format(pattern_of<code_t::charset_eight_bit_in_ascii>, "us-ascii");
std::string const undeclared(text_of(code_t::charset_eight_bit_undeclared));
std::string const as_utf8(text_of(code_t::charset_valid_utf8));
std::string const cesu(text_of(code_t::charset_cesu8));
std::string const unknown(text_of(code_t::charset_unknown));
std::string const jp3 = "iso-2022-jp-3";
std::string const escape = "a\x1B$B0!\x1B(B";
std::string const escape_found =
    text::format(pattern_of<code_t::charset_escape_in_undeclared>, "iso-2022-jp", "ISO-2022-JP");
std::string const tail(50, '.'); // keeps a few undecodable bytes under a tenth

struct case_t {
  std::string input;
  std::string charset;
  std::string expected;
  std::vector<std::string> problems;
  std::string fallback = "iso-8859-1";
};

TEST(convert_to_utf8, reads_labels_and_bytes) {
  std::vector<case_t> const cases = {
      {"", "x-nonsense", "", {}},
      {"hello", "ascii", "hello", {std::string(text_of(code_t::charset_ascii_label))}},
      // 8-bit bytes under an ASCII label: UTF-8 if valid, else the fallback.
      {"caf\xC3\xA9", "us-ascii", "caf\xC3\xA9", {claimed + as_utf8}},
      {"\x93q\x94", "us-ascii", QUOTED("q"), {claimed + not_utf8("WINDOWS-1252")}, "windows-1252"},
      {"caf\xE9", "", "caf\xC3\xA9", {undeclared + not_utf8("ISO-8859-1")}},
      {"\xC3\xA9",
       "unknown-8bit",
       "\xC3\xA9",
       {text::format(pattern_of<code_t::charset_eight_bit_unknown>, "unknown-8bit") + as_utf8}},
      {"\xED\xA0\xBD\xED\xB8\x80", "", "\xF0\x9F\x98\x80", {undeclared + as_utf8, cesu}},
      // Ten high bytes keep a legacy label; eleven of valid UTF-8 override it.
      {repeat("\xC3\xA9", 5), "iso-8859-1", repeat("\xC3\x83\xC2\xA9", 5), {}},
      {repeat("\xC3\xA9", 4) + "\xE2\x82\xAC",
       "iso-8859-1",
       repeat("\xC3\xA9", 4) + "\xE2\x82\xAC",
       {text::format(pattern_of<code_t::charset_label_ignored>, "utf-8")}},
      // Renamed labels.
      {"\xE9", "western", "\xC3\xA9", {}},
      // After a strict failure the rest is read tolerantly, or as ISO-8859-1
      // when a tenth or more of it is undecodable.
      {"\xC3\xA9 \xFF" + tail,
       "x-made-up",
       "\xC3\xA9 <U+00FF>" + tail,
       {unknown, std::string(text_of(code_t::charset_unknown_utf8))}},
      {"\xC3\xA9\xFF" + std::string(19, '.'), "utf-8", "\xC3\xA9<U+00FF>" + std::string(19, '.'), {invalid("utf-8")}},
      {"\xC3\xA9\xFF" + std::string(18, '.'), "utf-8", "\xC3\xA9\xC3\xBF" + std::string(18, '.'), {invalid("utf-8")}},
      {"caf\xC3", "utf-8", "caf\xC3\x83", {incomplete("utf-8"), incomplete("utf-8")}},
      {"x\xF4\x90\x80\x80" + tail, "utf-8", "x<U+00F4><U+0090><U+0080><U+0080>" + tail, {invalid("utf-8")}},
      // Undeclared text with ESC "$" is ISO-2022-JP unless the fallback rules
      // it out; declared text never looks at escapes.
      {escape, "", "a" A_0208, {escape_found}, ""},
      {escape, "", escape, {}},
      {escape, "us-ascii", escape, {}, ""},
      // Japanese labels: EUC-JP without escapes, wider variants on demand,
      // line-by-line tolerant retries, NEC circled numbers.
      {"\xB0\xA1", "iso-2022-jp", A_0208, {}},
      {"a\x1B$B0!\x1B$(D0!\x1B(Bz", "iso-2022-jp", "a" A_0208 A_0212 "z", {invalid(jp3), upgrade("ISO-2022-JP-1")}},
      {"\x1B$(C0!\x1B(B", "iso-2022-jp", "\xEA\xB0\x80", {invalid(jp3), upgrade("ISO-2022-JP-2")}},
      {"\x1B$(Q0!\x1B(B", "iso-2022-jp", A_0208, {}},
      {"one\nab\x1B$(Xcd\nthree", "iso-2022-jp", "one\nab\x1B$(Xcd\nthree", {invalid(jp3)}},
      {"l1\nl2\n\x1B$B0!\x1B(B\x80\nl4\n", "iso-2022-jp", "l1\nl2\n" A_0208 "<U+0080>\nl4\n", {invalid(jp3)}},
      {"\x1B$(D0!\x1B(B\nok\n\xFF\nend",
       "iso-2022-jp",
       A_0212 "\nok\n<U+00FF>\nend",
       {invalid(jp3), upgrade("ISO-2022-JP-1"), invalid("iso-2022-jp-1")}},
      {"\x82\xA0\x1B$B", "shift_jis", "\xE3\x81\x82\x1B$B", {}},
      {"\x1B$B-!\x1B(B \x1B$B-*0!\x1B(B",
       "iso-2022-jp",
       "(1) (10)" A_0208,
       {text::format(pattern_of<code_t::charset_circled_number>, "iso-2022-jp-3")}},
      {"a\x1B$B-50!\x1B(B", "iso-2022-jp", "a0!", {}},
      {"ab\x1B$B-!", "iso-2022-jp", "ab-", {invalid(jp3), incomplete(jp3)}},
      // Bytes a multibyte charset does not use are undecodable, not C1
      // controls; after a lead byte they make it undecodable too.
      {"\xB0\xA1\x9F\xB0\x85" + tail, "euc-kr", "\xEA\xB0\x80<U+009F><U+00B0><U+0085>" + tail, {invalid("euc-kr")}},
      {"\x8E\xB1\x8D\x90" + tail, "euc-jp", "\xEF\xBD\xB1<U+008D><U+0090>" + tail, {invalid("euc-jp")}},
      {"l1\n\x9Fx\nl3", "iso-2022-jp", "l1\n<U+009F>x\nl3", {invalid("euc-jp")}},
      {"\xA4\xA4\x80" + tail, "big5", "\xE4\xB8\xAD<U+0080>" + tail, {invalid("big5")}},
      // A control character, space or DEL cannot stand inside a two-byte or
      // katakana run: the strict pass stops there and the next line starts
      // over from ASCII. A byte left alone at the end of a two-byte run is
      // half a character, and the tolerant pass drops it like any other.
      {"\x1B$B0!\n0!\x1B(B", "iso-2022-jp", A_0208 "0!", {invalid(jp3), incomplete(jp3)}},
      {"\x1B$B0!\t0!\x1B(B\n", "iso-2022-jp", A_0208 "\t" A_0208 "\n", {invalid(jp3)}},
      {"\x1B$B 0!\x7F\x1B(Bz", "iso-2022-jp", " " A_0208 "\x7Fz", {invalid(jp3)}},
      {"\x1B(I1\n1", "iso-2022-jp", "\xEF\xBD\xB1\n1", {invalid(jp3)}},
      {"\x1B$B$3\x10", "iso-2022-jp", "\xE3\x81\x93", {incomplete(jp3), incomplete(jp3)}},
      // glibc would find "iso-8859-1" under this name, and read a flag in the
      // other as a change of strictness; neither is a name.
      {"caf\xE9 " + tail,
       "iso-8859-1 ",
       "caf<U+00E9> " + tail,
       {unknown, std::string(text_of(code_t::charset_unknown_utf8))}},
      {"caf\xE9 " + tail,
       "utf-8//IGNORE",
       "caf<U+00E9> " + tail,
       {unknown, std::string(text_of(code_t::charset_unknown_utf8))}},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(printable(c.input) + " as " + c.charset);
    auto const converted = to_utf8(c.input, c.charset, c.fallback);
    EXPECT_EQ(converted.text, c.expected);
    std::vector<std::string> descriptions;
    for (auto const& problem : converted.problems)
      descriptions.push_back(problem.at("description"));
    EXPECT_EQ(descriptions, c.problems);
    EXPECT_TRUE(importer::is_well_formed_utf8(converted.text));
  }
}

// A lone surrogate has no better reading than itself, so it is kept.
TEST(convert_to_utf8, lone_surrogates_pass_through) {
  auto const converted = to_utf8("a\xED\xA0\xBDz", "utf-8");
  EXPECT_EQ(converted.text, "a\xED\xA0\xBDz");
  EXPECT_TRUE(converted.problems.empty());
}

TEST(convert_to_utf8, problem_records_quote_the_bytes_around) {
  struct {
    std::string input, charset;
    std::size_t index;
    char const* key;
    std::string expected;
    std::string fallback = "iso-8859-1";
  } const cases[] = {
      {"0123456789012345678901234\tcaf\xC3\xA9", "us-ascii", 0, "context", "9012345678901234\\tcaf\xC3\xA9"},
      {"caf\xE9\x01", "us-ascii", 0, "context", "caf{E9}{01}"},
      {"text", "x-made-up", 0, "from_charset", "x-made-up"},
      {"0123456789abcdef\xFFghijklmnopqrstuvwxyz", "utf-8", 0, "context", "6789abcdef{FF}ghijklmno"},
      {"x\xED\xA0\xBD\xED\xB8\x80y", "utf-8", 0, "context", "{ED}{A0}{BD}{ED}{B8}{80}"},
      {escape, "", 0, "context", "a{1B}$B0!{1B}(B", ""},
      {"0123456789012345678901234\x1B$(D0!\x1B(B", "iso-2022-jp", 1, "context", "56789012345678901234{1B}$(D0!{1B}(B"},
      {"a\x1B$B-!\x1B(B", "iso-2022-jp", 0, "context", "a{1B}$B-!"},
  };
  for (auto const& c : cases) {
    auto const converted = to_utf8(c.input, c.charset, c.fallback);
    ASSERT_GT(converted.problems.size(), c.index) << printable(c.input);
    EXPECT_EQ(converted.problems[c.index].at(c.key), c.expected) << printable(c.input);
  }
}

TEST(convert_to_utf8, long_and_hostile_inputs) {
  // Across the 1 KiB output buffer and the growing escape windows.
  EXPECT_EQ(to_utf8(repeat("\xE9\xE8 ", 5000), "iso-8859-1").text, repeat("\xC3\xA9\xC3\xA8 ", 5000));
  auto const jis = to_utf8(repeat("\x1B$B0!0!0!\x1B(B x\n", 700), "iso-2022-jp");
  EXPECT_EQ(jis.text, repeat(A_0208 A_0208 A_0208 " x\n", 700));
  EXPECT_TRUE(jis.problems.empty());
  // A CESU-8 pair is repaired unless the 1 KiB buffer boundary splits it.
  for (int n = 1014; n < 1026; ++n) {
    std::string const pair = "\xED\xA0\xBD\xED\xB8\x80";
    bool const split = n > 1018 && n < 1022;
    EXPECT_EQ(to_utf8(std::string(n, 'a') + pair, "utf-8").text,
              std::string(n, 'a') + (split ? pair : "\xF0\x9F\x98\x80"))
        << n;
  }
  // Megabyte-sized versions run in the conversion benchmark; here they only
  // have to finish and stay well-formed. A final lone ESC is incomplete.
  EXPECT_EQ(to_utf8(std::string(1 << 16, '\x1B'), "iso-2022-jp").text.size(), (1u << 16) - 1);
  auto const lines = to_utf8(repeat("\x1B$B0!\x80\n\x1B$(D0!\x1B(B\xFF\n", 4000), "iso-2022-jp");
  EXPECT_TRUE(importer::is_well_formed_utf8(lines.text));
  EXPECT_EQ(to_utf8(std::string(1 << 16, '\xFF'), "utf-8").text.size(), 2u << 16);
}

// Single-byte charsets: whatever the path inside, the result is iconv's for
// every byte it decodes, mixed with ASCII runs at every alignment.
TEST(convert_to_utf8, single_byte_charsets_read_as_iconv_reads_them) {
  for (char const* name : {"iso-8859-1", "iso-8859-15", "windows-1252", "windows-1251", "koi8-r"}) {
    iconv_t const cd = iconv_open("UTF-8", name);
    ASSERT_NE(cd, reinterpret_cast<iconv_t>(-1)) << name;
    auto const reference = [&](std::string const& input, std::string& out) {
      iconv(cd, nullptr, nullptr, nullptr, nullptr);
      std::string buffer(input.size() * 4, '\0');
      char* in = const_cast<char*>(input.data());
      std::size_t in_left = input.size();
      char* out_pointer = buffer.data();
      std::size_t out_left = buffer.size();
      bool const ok = iconv(cd, &in, &in_left, &out_pointer, &out_left) != static_cast<std::size_t>(-1);
      out.assign(buffer.data(), out_pointer);
      return ok;
    };
    std::string decodable, undecodable, out;
    for (int c = 1; c < 256; ++c) {
      std::string const byte(1, static_cast<char>(c));
      (reference(byte, out) ? decodable : undecodable) += byte;
    }
    for (std::size_t offset = 0; offset < 8; ++offset) {
      std::string const input = std::string(offset, 'a') + decodable + "plain ASCII text " + decodable;
      ASSERT_TRUE(reference(input, out)) << name;
      EXPECT_EQ(to_utf8(input, name).text, out) << name << " " << offset;
    }
    // A byte iconv cannot decode sends the rest of the text, from that
    // byte on, to the ISO-8859-1 reading.
    ASSERT_TRUE(reference(decodable, out));
    for (char const c : undecodable) {
      auto const u = static_cast<unsigned char>(c);
      std::string const latin1{static_cast<char>(0xC0 | u >> 6), static_cast<char>(0x80 | (u & 0x3F))};
      EXPECT_EQ(to_utf8(decodable + c, name).text, out + latin1) << name << " " << int(u);
    }
    iconv_close(cd);
  }
}

// iconv sees the input in slices; escapes, two-byte characters and invalid
// bytes that straddle a slice's end must convert exactly as whole. Units that
// each end in ASCII state convert independently, so their separate results
// joined are the reference for the long text made of them all.
TEST(convert, slices_do_not_change_long_shifted_text) {
  for (char const* charset : {"iso-2022-jp", "iso-2022-jp-2", "euc-jp", "shift_jis"}) {
    std::string const name = charset;
    std::vector<std::string> units;
    for (int k = 0; k < 7; ++k)
      for (int j = 0; j < 5; ++j) {
        std::string unit;
        if (name.starts_with("iso-2022"))
          unit = "\x1B$B" + std::string(static_cast<std::size_t>(2 * k), '\x24') + "\x1B(B";
        else if (name == "euc-jp")
          unit = std::string(static_cast<std::size_t>(2 * k), '\xA4');
        else
          for (int i = 0; i < k; ++i)
            unit += "\x82\xA0";
        unit += std::string(static_cast<std::size_t>(j), 'x');
        units.push_back(unit);
      }
    std::string text, expected;
    for (int round = 0; round < 40; ++round)
      for (auto const& unit : units) {
        text += unit;
        charset::convert(unit.begin(), unit.end(), std::back_inserter(expected), charset, "UTF-8", nullptr, nullptr);
      }
    std::string got;
    EXPECT_EQ(charset::convert(text.begin(), text.end(), std::back_inserter(got), charset, "UTF-8", nullptr, nullptr),
              text.end())
        << charset;
    EXPECT_EQ(got, expected) << charset;
    EXPECT_GT(got.size(), text.size() / 2) << charset;
  }
}

// A byte-order mark read by one conversion must not decide how the next text
// under the same name reads: each reads as a fresh descriptor would.
TEST(convert_to_utf8, byte_order_does_not_carry_over) {
  for (char const* charset : {"utf-16", "UTF16", "utf-32", "unicode"}) {
    std::string const wide = std::string(charset).find("32") != std::string::npos ? "32" : "16";
    std::string const text = wide == "32" ? std::string("a\0\0\0b\0\0\0", 8) : std::string("a\0b\0", 4);
    std::string const swapped_mark = wide == "32" ? std::string("\0\0\xFE\xFF", 4) : std::string("\xFE\xFF");
    std::string const before = to_utf8(text, charset).text;
    to_utf8(swapped_mark + text, charset);
    EXPECT_EQ(to_utf8(text, charset).text, before) << charset;
  }
}

} // namespace
