// SPDX-License-Identifier: MIT
#include "email/flowed.h"

#include <gtest/gtest.h>

#include "support.h"

namespace {

std::string deflow(std::string_view input, bool flowed, bool delsp, bool keep_edges) {
  test::exact_buffer_t const buffer(input);
  std::string out;
  email::format_deflow(buffer.begin(), buffer.end(), std::back_inserter(out), flowed, delsp, keep_edges);
  return out;
}

TEST(format_deflow, canonicalises_quotes_and_trailing_spaces) {
  std::pair<std::string, std::string> const cases[] = {
      {">>text\n", ">> text\n"}, {">  >x", ">> x"},      {">   >x", ">   >x"}, {" > quoted\n", "> quoted\n"},
      {"  a  \n", "  a\n"},      {">\tx", "> \tx"},      {">> \n", ">>\n"},    {"-- \n", "-- \n"},
      {"--  \n", "--\n"},        {"> -- \n", "> -- \n"}, {"a\t \n", "a\t\n"},  {"abc \r\n", "abc \r\n"},
  };
  for (auto const& [input, expected] : cases)
    EXPECT_EQ(deflow(input, false, false, false), expected) << input;
}

TEST(format_deflow, joins_soft_breaks_in_flowed_mode) {
  std::tuple<std::string, bool, bool, std::string> const cases[] = {
      // input, delsp, keep_edges, expected
      {"abc \ndef\n", false, false, "abc def\n"},
      {"abc \ndef\n", true, false, "abcdef\n"},
      {"abc \n\ndef", false, false, "abc \ndef"},
      {" stuffed\n", false, false, "stuffed\n"},
      {" >kept\n", false, false, " >kept\n"},
      {">>a \n>>b\n", false, false, ">> a b\n"},
      {"> abc \ndef\n", false, false, "> abc \ndef\n"}, // a change of depth ends the paragraph
      {"-- \nsig\n", false, false, "-- \nsig\n"},
      {"> -- \n> x\n", false, false, "> -- \n> x\n"},
      {"abc \n stuffed", false, true, "abc \n stuffed"},
      {"> a \n> b", false, true, "> a b"},
  };
  for (auto const& [input, delsp, keep_edges, expected] : cases)
    EXPECT_EQ(deflow(input, true, delsp, keep_edges), expected) << input;
}

TEST(canonicalize_plain_text, turns_every_line_break_into_lf) {
  // A separator split by NUL is found; one that only ends a partial match is too.
  std::string const text(">>x  \r\na\0b\xE2\0\x80\xA8\xE2\xE2\x80\xA8", 18);
  EXPECT_EQ(email::canonicalize_plain_text(text), ">> x  \n\nab\n\xE2\n");
}

} // namespace
