#include "email/flowed.h"

#include <gtest/gtest.h>

#include <iterator>
#include <string>
#include <vector>

#include "exact_buffer.h"

namespace {

std::string deflow(std::string_view input, bool flowed, bool delsp, bool keep_edges) {
  test::exact_buffer_t const buffer(input);
  std::vector<char> out;
  email::format_deflow(buffer.begin(), buffer.end(), std::back_inserter(out), flowed, delsp, keep_edges);
  return std::string(out.begin(), out.end());
}

TEST(format_deflow, canonicalises_quotes_and_trailing_spaces) {
  struct {
    std::string input, expected;
  } const cases[] = {
      {">>text\n", ">> text\n"},
      {">  >x", ">> x"},
      {">   >x", ">   >x"},
      {" > quoted\n", "> quoted\n"},
      {"  indented  \n", "  indented\n"},
      {">\tx", "> \tx"},
      {">", ">"},
      {">> \n", ">>\n"},
      {"-- \n", "-- \n"},
      {"--  \n", "--\n"},
      {"> -- \n", "> -- \n"},
      {"> --  ", "> --"},
      {"text   ", "text"},
      {"text\t \n", "text\t\n"},
      {"abc \r\n", "abc \r\n"},
      {"   \n\n", "\n\n"},
      {"", ""},
  };
  for (auto const& c : cases)
    EXPECT_EQ(deflow(c.input, false, false, false), c.expected) << c.input;
}

TEST(format_deflow, joins_soft_breaks_in_flowed_mode) {
  struct {
    std::string input;
    bool delsp, keep_edges;
    std::string expected;
  } const cases[] = {
      {"abc \ndef\n", false, false, "abc def\n"},
      {"abc \ndef\n", true, false, "abcdef\n"},
      {"abc \n\ndef", false, false, "abc \ndef"},
      {"abc \n", false, false, "abc \n"},
      {" stuffed\n", false, false, "stuffed\n"},
      {" >kept\n", false, false, " >kept\n"},
      {"> abc \n> def\n", false, false, "> abc def\n"},
      {">>a \n>>b\n", false, false, ">> a b\n"},
      {"> abc \ndef\n", false, false, "> abc \ndef\n"},
      {"-- \nsig\n", false, false, "-- \nsig\n"},
      {"> -- \n> x\n", false, false, "> -- \n> x\n"},
      {"abc \ndef", false, true, "abc \ndef"},
      {" stuffed", false, true, " stuffed"},
      {"> a \n> b", false, true, "> a b"},
  };
  for (auto const& c : cases)
    EXPECT_EQ(deflow(c.input, true, c.delsp, c.keep_edges), c.expected) << c.input;
}

TEST(canonicalize_plain_text, turns_every_line_break_into_lf) {
  struct {
    std::string input, expected;
  } const cases[] = {
      {">>x  \r\n", ">> x  \n\n"},
      {std::string("a\0b", 3), "ab"},
      {"a\xE2\x80\xA8"
       "b",
       "a\nb"},
      {std::string("\xE2\0\x80\xA8", 4), "\n"},
      {"\xE2\xE2\x80\xA8", "\xE2\n"},
  };
  for (auto const& c : cases)
    EXPECT_EQ(email::canonicalize_plain_text(c.input), c.expected) << c.input;
}

} // namespace
