#include "email/base64.h"
#include "email/reinterpret_base.h"
#include "email/uuencode.h"

#include <gtest/gtest.h>

#include <iterator>
#include <string>
#include <vector>

#include "exact_buffer.h"

namespace {

struct base64_result_t {
  std::string text;
  std::vector<quern::error::record_t> problems;
};

base64_result_t decode(std::string_view input, bool line_mode) {
  test::exact_buffer_t const buffer(input);
  quern::error::handler_t handler;
  auto const bytes = email::decode_base_64_data(buffer.begin(), buffer.end(), line_mode, &handler);
  base64_result_t result{std::string(bytes.begin(), bytes.end()), {}};
  handler.get_errors({}, result.problems);
  return result;
}

std::string passed_through(std::size_t count) {
  return "Passed through " + std::to_string(count) + " unexpected characters during base64 decoding.";
}

TEST(decode_base_64_data, decodes_or_passes_lines_through) {
  struct {
    std::string input;
    bool line_mode;
    std::string expected;
    std::size_t passed; // 0: no record
  } const cases[] = {
      {"QUJD", true, "ABC", 0},
      {"QUI=", true, "AB", 0},
      {"QQ==", true, "A", 0},
      {"QQ", true, "A", 0},
      {"\n\n", true, "", 0},
      {"\n\nQUJD", true, "ABC", 0},
      {"  QUJD \t\nREVG\n", true, "ABCDEF", 0},
      {"QUJD\nREVG\n", true, "ABCDEF", 0},
      {"QUI=\nREVG", true, "ABDEF", 0},
      {"QUJ\nDREVG\n", true, "ABCDEF", 0},
      // A CR is not a line end, so CR LF lines are text.
      {"QUJD\r\nREVG\r\n", true, "QUJD\r\nREVG\r\n", 10},
      {"QU*JD\n", true, "QU*JD\n", 5},
      {"QUJD \tx\nREVG", true, "QUJD \tx\nDEF", 7},
      {"QU\vJD\n", true, "QU\vJD\n", 5},
      {"=QUJD", true, "=QUJD", 5},
      {"QUJD==REVG", true, "QUJD==REVG", 10},
      {"QUJD\n\nREVG\n", true, "ABC\nDEF", 0},
      {"QUJD\n-- \nsig\n", true, "ABC-- \n\xB2(", 3},
      // Free mode: every blank or '=' run ends a group at once.
      {"QU JD", false, "A\x24", 0},
      {"QQ==QUI=", false, "AAB", 0},
      {"QUJD\r\n", false, "ABC\r\n", 1},
      {"*", false, "*", 1},
  };
  for (auto const& c : cases) {
    auto const result = decode(c.input, c.line_mode);
    EXPECT_EQ(result.text, c.expected) << c.input;
    if (c.passed == 0) {
      EXPECT_TRUE(result.problems.empty()) << c.input;
    } else {
      ASSERT_EQ(result.problems.size(), 1u) << c.input;
      EXPECT_EQ(result.problems[0], (quern::error::record_t{{"description", passed_through(c.passed)}})) << c.input;
    }
  }
}

TEST(decode_base_64_data, a_line_break_at_any_offset_keeps_the_group_pending) {
  std::string const encoded = "QUJDREVGR0hJSktM";
  for (std::size_t at = 0; at <= encoded.size(); ++at) {
    for (std::string const line_end : {"\n", " \t\n "}) {
      if (at == 0 && line_end != "\n")
        continue; // a first line of blanks is not base64: it is passed through
      std::string input = encoded;
      input.insert(at, line_end);
      auto const result = decode(input, true);
      EXPECT_EQ(result.text, "ABCDEFGHIJKL") << input;
      EXPECT_TRUE(result.problems.empty()) << input;
    }
  }
}

TEST(decode_base_64_data, every_prefix_stays_in_range) {
  std::string const input = "QUJD\nQU*\r\n\nQUI=\n  QQ==  \nR";
  for (bool line_mode : {true, false})
    for (std::size_t n = 0; n <= input.size(); ++n)
      decode(std::string_view(input).substr(0, n), line_mode);
}

TEST(decode_base_64_data, a_megabyte_of_padding) {
  std::string const input(1 << 20, '=');
  EXPECT_EQ(decode(input, true).text, input);
}

TEST(decode_base_64, is_free_mode_whatever_the_context) {
  std::string const input = "QU JD";
  EXPECT_EQ(email::decode_base_64(input.data(), input.data() + input.size(), nullptr, "ignored"), "A\x24");
}

TEST(reinterpret_base, repacks_most_significant_bits_first) {
  std::string const sextets = {16, 16}; // "QQ"
  std::string out;
  email::reinterpret_base<6, 8>(sextets.begin(), sextets.end(), std::back_inserter(out), false);
  EXPECT_EQ(out, "A");
  email::reinterpret_base<6, 8>(sextets.begin(), sextets.end(), std::back_inserter(out), true);
  EXPECT_EQ(out, std::string("AA\0", 3));
}

struct uu_result_t {
  std::string text;
  std::string stderr_text;
};

uu_result_t uudecode(std::string_view input) {
  test::exact_buffer_t const buffer(input);
  std::string out;
  testing::internal::CaptureStderr();
  email::decode_uuencoded_text(buffer.begin(), buffer.end(), std::back_inserter(out));
  return {out, testing::internal::GetCapturedStderr()};
}

TEST(decode_uuencoded_text, decodes_or_gives_up) {
  std::string const warning = "Warning: Giving up on decoding uunencoded text. Too many errors.\n";
  struct {
    std::string input;
    std::string expected;
    bool gives_up;
  } const cases[] = {
      {"begin 644 f\n#0V%T\n`\nend\n", "Cat", false},
      {"#0V%T", "Cat", false},
      {"beginning\n\nx\n#0V%T\n", "Cat", false},
      {"#0V%T``\n", std::string("Cat\0", 4), false}, // the length character is not trusted
      {"#0V%Tx\n", "Cat", false},                    // one bad byte per four good ones is still tolerated
      {"#0V%x\n", "", true},
      {"begin 644 f\nMabc\nend\ntrailer\n", "end\ntrailer\n", true},
      {"begin 644 f\nMabc\n", "", true},
      {"M0V%T0V%T\nend \n", "CatCat", false}, // "end " is data, not the end line
  };
  for (auto const& c : cases) {
    auto const result = uudecode(c.input);
    EXPECT_EQ(result.text, c.expected) << c.input;
    EXPECT_EQ(result.stderr_text, c.gives_up ? warning : "") << c.input;
  }
}

} // namespace
