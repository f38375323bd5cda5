// SPDX-License-Identifier: MIT
#include "email/quoted_printable.h"

#include <gtest/gtest.h>

#include "support.h"
#include "text/format.h"

namespace {

using decoded_t = std::pair<std::string, std::string>; // text, problems

decoded_t decode(std::string_view input, bool binary) {
  test::exact_buffer_t const buffer(input);
  quern::error::handler_t handler;
  std::string out;
  email::decode_quoted_printable(buffer.begin(), buffer.end(), std::back_inserter(out), &handler, binary);
  return {out, test::problems_of(handler)};
}

TEST(decode_quoted_printable, decodes_and_repairs) {
  std::tuple<std::string, bool, std::string, bool> const cases[] = {
      // input, binary, expected, whether problems are recorded
      {"=41=4a=4A=e9\t=09\xE9", false, "AJJ\xE9\t\t\xE9", false},
      {"abc= \t\ndef", false, "abcdef", false},
      {"a=\r\nb", false, "a=\r\nb", true}, // only LF ends a line: no soft break
      {"=G1==41", false, "=G1=A", true},   // an illegal '=' is passed through and the scan resumes after it
      {"x\ny", true, "x\r\ny", true},
      {"x\r\ny", true, "x\r\r\ny", true},
      {"a=\nb\n", true, "ab\r\n", true},
  };
  for (auto const& [input, binary, expected, problems] : cases) {
    auto const result = decode(input, binary);
    EXPECT_EQ(result.first, expected) << input;
    EXPECT_EQ(!result.second.empty(), problems) << input;
  }
}

TEST(decode_quoted_printable, records_one_problem_per_kind_with_contexts) {
  using email::problem_illegal_equals, email::problem_unencoded_linefeeds, text::format;
  EXPECT_EQ(decode("0123456789=G0123456789X\nabc=", true).second,
            format(problem_unencoded_linefeeds, std::size_t{1}) + " [123456789X\nabc=]\n" +
                format(problem_illegal_equals, std::size_t{1}) + " [0123456789=G01234567]");
  EXPECT_EQ(decode("=x=y", false).second, format(problem_illegal_equals, std::size_t{2}) + " [=x=y\n=x=y]");
}

TEST(decode_quoted_printable, a_megabyte_of_equals_signs) {
  std::string const input(1 << 20, '=');
  auto const result = decode(input, false);
  EXPECT_EQ(result.first, std::string(input.size() - 1, '='));
  EXPECT_TRUE(result.second.starts_with(text::format(email::problem_illegal_equals, std::size_t{1048575})));
}

} // namespace
