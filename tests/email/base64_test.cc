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
