#include "charset/surrogates.h"

#include <gtest/gtest.h>

#include <iterator>
#include <string>
#include <vector>

#include "charset/utf8.h"

namespace {

struct repair_case_t {
  std::string input;
  std::string expected;
  std::size_t records;
};

TEST(surrogates_copy, repairs_pairs_and_keeps_the_rest) {
  repair_case_t const cases[] = {
      {"\xED\xA0\xBD\xED\xB8\x80", "\xF0\x9F\x98\x80", 1}, // U+1F600
      {"\xED\xA0\x80\xED\xB0\x80", "\xF0\x90\x80\x80", 1}, // U+10000
      {"\xED\xAF\xBF\xED\xBF\xBF", "\xF4\x8F\xBF\xBF", 1}, // U+10FFFF
      {"a\xED\xA0\xBD\xED\xB8\x80\xED\xA0\xBD\xED\xB8\x81z", "a\xF0\x9F\x98\x80\xF0\x9F\x98\x81z", 2},
      {"\xED\xB0\x80\xED\xA0\x80", "\xED\xB0\x80\xED\xA0\x80", 0}, // low before high
      {"x\xED\xA0\xBD", "x\xED\xA0\xBD", 0},                       // high at the end
      {"\xED\xA0\xBD\xED\xB8", "\xED\xA0\xBD\xED\xB8", 0},         // pair cut short
      {"\xED\x9F\xBF", "\xED\x9F\xBF", 0},                         // U+D7FF
      {"\xED\xED\xA0\xBD\xED\xB8\x80", "\xED\xF0\x9F\x98\x80", 1}, // stray ED first
      {"plain", "plain", 0},
  };
  for (auto const& c : cases) {
    std::string input = c.input, out;
    quern::error::handler_t handler;
    charset::surrogates_copy(input.begin(), input.end(), std::back_inserter(out), &handler);
    EXPECT_EQ(out, c.expected);
    EXPECT_EQ(handler.size(), c.records);
    std::vector<char> silent;
    charset::surrogates_copy(input.begin(), input.end(), std::back_inserter(silent), nullptr);
    EXPECT_EQ(std::string(silent.begin(), silent.end()), c.expected);
  }
}

TEST(surrogates_copy, records_the_pair) {
  std::string input = "\xED\xA0\xBD\xED\xB8\x80", out;
  quern::error::handler_t handler;
  charset::surrogates_copy(input.begin(), input.end(), std::back_inserter(out), &handler);
  std::vector<quern::error::record_t> problems;
  handler.get_errors({}, problems);
  ASSERT_EQ(problems.size(), 1u);
  EXPECT_EQ(problems[0].at("description"), "Detected CESU-8 (converting to UTF-8).");
  EXPECT_EQ(problems[0].at("context"), "{ED}{A0}{BD}{ED}{B8}{80}");
}

TEST(renderings, hex_print_and_escape_whitespace) {
  std::string const bytes("a\tb\x01\r\n\x1B\0~\x7F", 10);
  std::string printed, escaped;
  charset::hex_print(bytes.begin(), bytes.end(), std::back_inserter(printed));
  charset::escape_whitespace(bytes.begin(), bytes.end(), std::back_inserter(escaped));
  EXPECT_EQ(printed, "a\\tb{01}\\r\\n{1B}{00}~{7F}");
  EXPECT_EQ(escaped, std::string("a\\tb\x01\\r\\n\x1B\0~\x7F", 13));
}

TEST(utf8, structural_validity) {
  struct {
    std::string bytes;
    bool valid;
  } const cases[] = {
      {"", true},
      {"ascii", true},
      {"caf\xC3\xA9", true},
      {"\xF0\x9F\x98\x80", true},
      {"\xED\xA0\xBD\xED\xB8\x80", true}, // CESU-8 passes: it is repaired later
      {"\xC0\x80", true},                 // overlong, structurally fine
      {"\xFC\x80\x80\x80\x80\x80", true}, // six-byte form
      {"\xFE\x80", false},                // seven leading ones
      {"\xFF", false},
      {"\x80", false},
      {"\xC3", false}, // unfinished
      {"\xC3"
       "a",
       false},
      {"\xE2\x82", false},
  };
  for (auto const& c : cases)
    EXPECT_EQ(utf8::is_valid(c.bytes.begin(), c.bytes.end()), c.valid) << c.bytes;

  // A validator can be fed in pieces.
  utf8::validate_t validator;
  std::string const first = "a\xE2\x82", second = "\xAC";
  EXPECT_TRUE(validator.scan(first.begin(), first.end()));
  EXPECT_EQ(validator.length, 3u);
  EXPECT_TRUE(validator.scan(second.begin(), second.end()));
  EXPECT_EQ(validator.length, 0u);
}

} // namespace
