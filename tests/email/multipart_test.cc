#include "email/multipart.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "email/body.h"
#include "exact_buffer.h"

namespace {

using record_t = quern::error::record_t;

record_t const no_closing = {{"description", "No closing MIME boundary found"}, {"context", "--b"}};
record_t const missing_newline = {{"description", "Missing newline after boundary string at end of body part"},
                                  {"context", "delimiter"}};

TEST(find_boundary, accepts_only_lf_ended_delimiter_lines) {
  struct {
    std::string input;
    bool at_line_start;
    long range_end, after; // -1: the end of the input
    bool is_close;
    std::vector<record_t> problems;
  } const cases[] = {
      {"--b\nA", true, 0, 4, false, {}},
      {"--b\nA\n--b\n", false, 5, -1, false, {}},
      {"x\n--b \t\nA", false, 1, 8, false, {}},
      {"x\n--b--\nA", false, 1, 8, true, {}},
      {"x\n--b--", false, 1, -1, true, {missing_newline}},
      {"x\n--b\r\nA\n", false, -1, -1, false, {no_closing}},
      {"x\n--b", false, -1, -1, false, {no_closing}},
      {"x\n--b--  ", false, -1, -1, false, {no_closing}},
      {"x\n--bx\n", false, -1, -1, false, {no_closing}},
      {"x\n--b -- \n", false, -1, -1, false, {no_closing}},
      {"x\n--b-\n", false, -1, -1, false, {no_closing}},
      {"x\n--B\n", false, -1, -1, false, {no_closing}},
      {"", true, -1, -1, false, {no_closing}},
  };
  for (auto const& c : cases) {
    test::exact_buffer_t const buffer(c.input);
    long const size = static_cast<long>(c.input.size());
    quern::error::handler_t handler;
    char const* after = nullptr;
    bool is_close = !c.is_close;
    char const* const range_end =
        email::find_boundary(buffer.begin(), buffer.end(), "--b", c.at_line_start, after, &is_close, &handler);
    EXPECT_EQ(range_end - buffer.begin(), c.range_end < 0 ? size : c.range_end) << c.input;
    EXPECT_EQ(after - buffer.begin(), c.after < 0 ? size : c.after) << c.input;
    EXPECT_EQ(is_close, c.is_close) << c.input;
    std::vector<record_t> problems;
    handler.get_errors({}, problems);
    EXPECT_EQ(problems, c.problems) << c.input;
  }
}

// The ranges as text, after checking that they lie inside the buffer in order.
std::vector<std::string> split(test::exact_buffer_t const& buffer, std::string const& boundary, bool first_part_only,
                               quern::error::handler_t* problems = nullptr) {
  std::vector<std::string> texts;
  char const* previous = buffer.begin();
  for (auto [first, last] : email::parse_subparts(buffer.begin(), buffer.end(), boundary, first_part_only, problems)) {
    EXPECT_TRUE(previous <= first && first <= last && last <= buffer.end());
    previous = last;
    texts.emplace_back(first, last);
  }
  return texts;
}

TEST(parse_subparts, splits_into_preamble_parts_and_remainder) {
  using parts_t = std::vector<std::string>;
  struct {
    std::string input;
    std::string boundary;
    bool first_part_only;
    parts_t expected;
    std::vector<record_t> problems;
  } const cases[] = {
      {"pre\n--b\nA\n--b\nB\n--b--\nepi\n", "b", false, {"pre", "A", "B", "epi\n"}, {}},
      {"--b\nA\n--b--\n", "b", false, {"", "A", ""}, {}},
      {"--b\nA\r\n--b--\n", "b", false, {"", "A\r", ""}, {}},
      {"--b\r\nA\r\n--b--\r\n", "b", false, {"--b\r\nA\r\n--b--\r\n", ""}, {no_closing}},
      {"abc\n", "b", false, {"abc\n", ""}, {no_closing}},
      {"--b\nA\n--b\nB\n", "b", false, {"", "A", "B\n", ""}, {no_closing}},
      {"--b\nA\n--b--", "b", false, {"", "A", ""}, {missing_newline}},
      {"--b\n--b\nA\n--b--\n", "b", false, {"", "--b\nA", ""}, {}},
      {"--b\nA\n--b\nB\n--b\nC\n--b--\n", "b", true, {"", "A", "B\n--b\nC\n--b--\n"}, {}},
      {"--b\nA\n--b--\n", "", false, {}, {}},
      {"", "b", false, {}, {}},
  };
  for (auto const& c : cases) {
    test::exact_buffer_t const buffer(c.input);
    quern::error::handler_t handler;
    EXPECT_EQ(split(buffer, c.boundary, c.first_part_only, &handler), c.expected) << c.input;
    std::vector<record_t> problems;
    handler.get_errors({}, problems);
    EXPECT_EQ(problems, c.problems) << c.input;
  }
}

TEST(parse_subparts, every_truncation_stays_in_range) {
  std::string const body = "pre\n--b\nA\n--b \n--b\nB\r\n--b--\t\nepi";
  auto const full = split(test::exact_buffer_t(body), "b", false);
  ASSERT_EQ(full, (std::vector<std::string>{"pre", "A", "--b\nB\r", "epi"}));
  std::size_t const closed = body.find("epi");
  for (std::size_t n = 0; n <= body.size(); ++n) {
    for (bool first_part_only : {false, true}) {
      auto const parts = split(test::exact_buffer_t(std::string_view(body).substr(0, n)), "b", first_part_only);
      if (n >= closed && !first_part_only) {
        EXPECT_EQ(std::vector<std::string>(parts.begin(), parts.end() - 1),
                  std::vector<std::string>(full.begin(), full.end() - 1))
            << n;
      }
    }
  }
}

TEST(parse_subparts, a_megabyte_of_near_delimiters) {
  std::string body;
  for (int i = 0; i < 200'000; ++i)
    body += "--\n--bx\n";
  body += "--b--\n";
  auto const parts = split(test::exact_buffer_t(body), "b", false);
  ASSERT_EQ(parts.size(), 2u);
  EXPECT_EQ(parts[0].size(), body.size() - 7);
}

TEST(parse_preamble, returns_text_or_the_marker) {
  struct {
    std::string input;
    std::string boundary;
    std::string expected;
  } const cases[] = {
      {"Hello\n--b\nA\n", "b", "Hello"},
      {" \t\n\n--b\nA\n", "b", email::no_text_marker},
      {"--b\nA\n", "b", email::no_text_marker},
      {"only text", "b", "only text"},
      {"Hello\n--b\nA\n", "", email::no_text_marker},
  };
  for (auto const& c : cases) {
    test::exact_buffer_t const buffer(c.input);
    EXPECT_EQ(email::parse_preamble(buffer.begin(), buffer.end(), c.boundary), c.expected) << c.input;
  }
}

} // namespace
