#include "email/quoted_printable.h"

#include <gtest/gtest.h>

#include <iterator>
#include <string>
#include <vector>

#include "exact_buffer.h"

namespace {

struct qp_result_t {
  std::string text;
  std::vector<quern::error::record_t> problems;
};

qp_result_t decode(std::string_view input, bool binary) {
  test::exact_buffer_t const buffer(input);
  quern::error::handler_t handler;
  std::vector<char> out;
  email::decode_quoted_printable(buffer.begin(), buffer.end(), std::back_inserter(out), &handler, binary);
  qp_result_t result{std::string(out.begin(), out.end()), {}};
  handler.get_errors({}, result.problems);
  return result;
}

TEST(decode_quoted_printable, decodes_and_repairs) {
  struct {
    std::string input;
    bool binary;
    std::string expected;
    std::size_t linefeeds, illegal;
  } const cases[] = {
      {"=41=42", false, "AB", 0, 0},
      {"=4a=4A", false, "JJ", 0, 0},
      {"\xE9=E9\t=09", false, "\xE9\xE9\t\t", 0, 0},
      {"abc=", false, "abc", 0, 0},
      {"abc= \t", false, "abc", 0, 0},
      {"abc= \t\ndef", false, "abcdef", 0, 0},
      {"trailing  \nspace", false, "trailing  \nspace", 0, 0},
      // Only LF ends a line: "=" CR LF is an illegal "=", not a soft break.
      {"a=\r\nb", false, "a=\r\nb", 0, 1},
      {"=4", false, "=4", 0, 1},
      {"=G1", false, "=G1", 0, 1},
      {"==41", false, "=A", 0, 1},
      {"x\ny", false, "x\ny", 0, 0},
      {"x\ny", true, "x\r\ny", 1, 0},
      {"x\r\ny", true, "x\r\r\ny", 1, 0},
      {"a=\nb\n", true, "ab\r\n", 1, 0},
      {"", false, "", 0, 0},
  };
  for (auto const& c : cases) {
    auto const result = decode(c.input, c.binary);
    EXPECT_EQ(result.text, c.expected) << c.input;
    std::size_t const expected_records = (c.linefeeds ? 1 : 0) + (c.illegal ? 1 : 0);
    ASSERT_EQ(result.problems.size(), expected_records) << c.input;

    std::string const input(c.input);
    std::string via_string;
    email::decode_quoted_printable(input.begin(), input.end(), std::back_inserter(via_string), nullptr, c.binary);
    EXPECT_EQ(via_string, c.expected) << "string instance: " << c.input;
  }
}

TEST(decode_quoted_printable, every_prefix_of_an_escape_and_a_soft_break) {
  std::string const input = "x=41=\ny";
  char const* const expected[] = {"", "x", "x", "x=4", "xA", "xA", "xA", "xAy"};
  for (std::size_t n = 0; n <= input.size(); ++n)
    EXPECT_EQ(decode(std::string_view(input).substr(0, n), false).text, expected[n]) << n;
}

TEST(decode_quoted_printable, records_contexts_of_ten_bytes_each_side) {
  auto const result = decode("0123456789=G0123456789X\nabc=", true);
  ASSERT_EQ(result.problems.size(), 2u);
  EXPECT_EQ(
      result.problems[0],
      (quern::error::record_t{{"description", "Quoted-printable binary body part contains 1 unencoded linefeed(s) "
                                              "(LF). CR characters have been inserted."},
                              {"context", "123456789X\nabc="}}));
  EXPECT_EQ(
      result.problems[1],
      (quern::error::record_t{
          {"description", "Quoted-printable text contains 1 illegal use(s) of '='. They have been passed through."},
          {"context", "0123456789=G01234567"}}));
}

TEST(decode_quoted_printable, one_record_per_kind_with_a_line_per_occurrence) {
  auto const result = decode("=x=y=z=w=v", false);
  ASSERT_EQ(result.problems.size(), 1u);
  EXPECT_EQ(result.problems[0].at("description"),
            "Quoted-printable text contains 5 illegal use(s) of '='. They have been passed through.");
  EXPECT_EQ(result.problems[0].at("context"), "=x=y=z=w=v\n=x=y=z=w=v\n=x=y=z=w=v\n=x=y=z=w=v\n=x=y=z=w=v");
}

TEST(decode_quoted_printable, a_megabyte_of_equals_signs) {
  std::string const input(1 << 20, '=');
  auto const result = decode(input, false);
  EXPECT_EQ(result.text, std::string(input.size() - 1, '='));
  ASSERT_EQ(result.problems.size(), 1u);
  EXPECT_EQ(result.problems[0].at("description"),
            "Quoted-printable text contains 1048575 illegal use(s) of '='. They have been passed through.");
}

} // namespace
