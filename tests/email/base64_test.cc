// SPDX-License-Identifier: MIT
#include "email/base64.h"
#include "email/uuencode.h"
#include "text/format.h"

#include <gtest/gtest.h>

#include "support.h"

namespace {

using decoded_t = std::pair<std::string, std::string>; // text, problems

// Line mode as the part decoder runs it; free mode through the encoded-word entry point.
decoded_t decode(std::string_view input, bool line_mode) {
  test::exact_buffer_t const buffer(input);
  quern::error::handler_t handler;
  if (!line_mode)
    return {email::decode_base_64(buffer.begin(), buffer.end(), &handler, "ignored"), test::problems_of(handler)};
  auto const bytes = email::decode_base_64_data(buffer.begin(), buffer.end(), true, &handler);
  return {std::string(bytes.begin(), bytes.end()), test::problems_of(handler)};
}

TEST(decode_base_64_data, decodes_or_passes_lines_through) {
  std::tuple<std::string, bool, std::string, int> const cases[] = {
      // input, line_mode, expected, bytes passed through
      {"QQ", true, "A", 0}, // the partial group's bits are dropped
      {"\n\nQUJD", true, "ABC", 0},
      {"QUI=\nREVG", true, "ABDEF", 0},
      {"QUJD\n\nREVG\n", true, "ABC\nDEF", 0},
      {"QUJD\r\nREVG\r\n", true, "QUJD\r\nREVG\r\n", 10}, // CR is no line end: CR LF lines are text
      {"QU*JD\n", true, "QU*JD\n", 5},
      {"QUJD \tx\nREVG", true, "QUJD \tx\nDEF", 7},
      {"=QUJD", true, "=QUJD", 5},
      {"QUJD\n-- \nsig\n", true, "ABC-- \n\xB2(", 3},
      // Free mode: every blank or '=' run ends a group at once.
      {"QU JD", false, "A\x24", 0},
      {"QQ==QUI=", false, "AAB", 0},
      {"QUJD\r\n", false, "ABC\r\n", 1},
  };
  for (auto const& [input, line_mode, expected, passed] : cases) {
    std::string const problems = passed ? text::format(email::problem_passed_through, std::size_t(passed)) : "";
    EXPECT_EQ(decode(input, line_mode), decoded_t(expected, problems)) << input;
  }
}

TEST(decode_base_64_data, a_line_break_at_any_offset_keeps_the_group_pending) {
  std::string const encoded = "QUJDREVGR0hJSktM";
  for (std::size_t at = 1; at <= encoded.size(); ++at)
    for (char const* line_end : {"\n", " \t\n "})
      EXPECT_EQ(decode(std::string(encoded).insert(at, line_end), true), decoded_t("ABCDEFGHIJKL", "")) << at;
}

// Any data, wrapped at any width (groups split across lines at every offset),
// followed by lines that are not base64: the data comes back, then the lines.
TEST(decode_base_64_data, wrapped_data_at_every_width) {
  constexpr char letters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string data;
  for (unsigned i = 0; i < 300; ++i)
    data += static_cast<char>((i * 167 + 13) & 0xFF);
  std::string encoded;
  for (std::size_t i = 0; i < data.size(); i += 3) {
    std::uint32_t group = 0;
    std::size_t const n = std::min<std::size_t>(3, data.size() - i);
    for (std::size_t k = 0; k < 3; ++k)
      group = group << 8 | (k < n ? static_cast<unsigned char>(data[i + k]) : 0u);
    for (std::size_t k = 0; k < 4; ++k)
      encoded += k <= n ? letters[(group >> (18 - 6 * k)) & 63] : '=';
  }
  for (std::size_t width = 1; width <= 80; ++width) {
    std::string wrapped;
    for (std::size_t i = 0; i < encoded.size(); i += width)
      wrapped += encoded.substr(i, width) + "\n";
    EXPECT_EQ(decode(wrapped + "-- \n*sig*\n", true),
              decoded_t(data + "-- \n*sig*\n", text::format(email::problem_passed_through, std::size_t(8))))
        << width;
  }
}

TEST(decode_base_64_data, a_megabyte_of_padding) {
  std::string const input(1 << 20, '=');
  EXPECT_EQ(decode(input, true).first, input);
}

TEST(decode_uuencoded_text, decodes_or_gives_up) {
  std::tuple<std::string, std::string, bool> const cases[] = {
      // input, expected, whether the decoder gives up
      {"begin 644 f\n\nx\n#0V%T\n`\nend\n", "Cat", false}, // empty and one-byte lines carry nothing
      {"#0V%T``\n", std::string("Cat\0", 4), false},       // the length character is not trusted
      {"#0V%Tx\n", "Cat", false},                          // one bad byte per four good ones is tolerated
      {"#0V%x\nend\ntrailer\n", "end\ntrailer\n", true},   // giving up keeps only what follows "end"
      {"M0V%T0V%T\nend \n", "CatCat", false},              // "end " is data, not the end line
  };
  for (auto const& [input, expected, gives_up] : cases) {
    test::exact_buffer_t const buffer(input);
    std::string out;
    testing::internal::CaptureStderr();
    email::decode_uuencoded_text(buffer.begin(), buffer.end(), std::back_inserter(out));
    std::string const warning = gives_up ? "Warning: Giving up on decoding uunencoded text. Too many errors.\n" : "";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), warning) << input;
    EXPECT_EQ(out, expected) << input;
  }
}

} // namespace
