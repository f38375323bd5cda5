// SPDX-License-Identifier: MIT
#include "email/multipart.h"

#include <gtest/gtest.h>

#include "support.h"

namespace {

using quern::error::code_t;

std::string const no_closing = std::string(text_of(code_t::multipart_no_closing_boundary)) + " [--b]";
std::string const missing_newline = std::string(text_of(code_t::multipart_missing_newline)) + " [delimiter]";

using parts_t = std::vector<std::string>;

// The ranges as text, after checking that they lie inside the buffer in order.
parts_t split(std::string_view body, bool first_part_only, quern::error::handler_t* problems = nullptr,
              std::string const& boundary = "b") {
  test::exact_buffer_t const buffer(body);
  parts_t texts;
  char const* previous = buffer.begin();
  for (auto [first, last] : email::parse_subparts(buffer.begin(), buffer.end(), boundary, first_part_only, problems)) {
    EXPECT_TRUE(previous <= first && first <= last && last <= buffer.end());
    previous = last;
    texts.emplace_back(first, last);
  }
  return texts;
}

// The full reading ends an empty part at a delimiter line right after
// another, so a close delimiter there is seen.
TEST(parse_subparts, full_reading_reads_empty_parts) {
  std::tuple<std::string, parts_t, parts_t> const cases[] = {
      // input, desktop, full
      {"--b\n--b--\nEpilogue\n", {"", "--b--\nEpilogue\n", ""}, {"", "", "Epilogue\n"}},
      {"--b\nA\n--b\n--b--\n", {"", "A", "--b--\n", ""}, {"", "A", "", ""}},
      {"--b\n--b\nA\n--b--\n", {"", "--b\nA", ""}, {"", "", "A", ""}},
  };
  for (auto const& [input, desktop, full] : cases) {
    for (auto const reading : {email::reading_t::desktop, email::reading_t::full}) {
      test::exact_buffer_t const buffer(input);
      parts_t texts;
      for (auto [first, last] :
           email::parse_subparts(buffer.begin(), buffer.end(), "b", false, nullptr, nullptr, reading))
        texts.emplace_back(first, last);
      EXPECT_EQ(texts, reading == email::reading_t::full ? full : desktop) << input;
    }
  }
}

TEST(parse_subparts, splits_into_preamble_parts_and_remainder) {
  std::tuple<std::string, bool, parts_t, std::string> const cases[] = {
      // input, first_part_only, preamble + parts + remainder, problems
      {"pre\n--b\nA\n--b \t\nB\n--b--\nepi\n", false, {"pre", "A", "B", "epi\n"}, ""},
      {"--b\nA\r\n--b--\n", false, {"", "A\r", ""}, ""},
      {"--b\r\nA\r\n--b--\r\n", false, {"--b\r\nA\r\n--b--\r\n", ""}, no_closing}, // only LF ends a line
      {"--b\nA\n--b--", false, {"", "A", ""}, missing_newline},
      {"--b\nA\n--b", false, {"", "A\n--b", ""}, no_closing}, // a delimiter ending the input exactly is no line
      {"--b\nA\n--bx\n--B\n--b -- \n--b--\n", false, {"", "A\n--bx\n--B\n--b -- ", ""}, ""},
      {"--b\n--b\nA\n--b--\n", false, {"", "--b\nA", ""}, ""}, // a delimiter right after another is content
      {"--b\nA\n--b\nB\n--b\nC\n--b--\n", true, {"", "A", "B\n--b\nC\n--b--\n"}, ""},
      {"", false, {}, ""},
  };
  for (auto const& [input, first_part_only, expected, problems] : cases) {
    quern::error::handler_t handler;
    EXPECT_EQ(split(input, first_part_only, &handler), expected) << input;
    EXPECT_EQ(test::problems_of(handler), problems) << input;
  }
  EXPECT_TRUE(split("--b\nA\n--b--\n", false, nullptr, "").empty());
}

// A prefix of a body gives a prefix of its parts: the ranges before the one
// the cut falls in come out as in the whole body, that one starts where it
// starts there, and the last range ends at the cut.
TEST(parse_subparts, every_prefix_gives_a_prefix_of_the_parts) {
  std::string const body = "pre\n--b\nA\n--b \n--b\nB\r\n--b--\t\nepi";
  auto const offsets = [&body](std::size_t n) {
    test::exact_buffer_t const buffer(std::string_view(body).substr(0, n));
    std::vector<std::pair<std::ptrdiff_t, std::ptrdiff_t>> result;
    for (auto [first, last] : email::parse_subparts(buffer.begin(), buffer.end(), "b", false, nullptr))
      result.emplace_back(first - buffer.begin(), last - buffer.begin());
    return result;
  };
  auto const whole = offsets(body.size());
  ASSERT_EQ(whole.size(), 4u); // preamble, A, "--b\nB\r" and the epilogue
  for (std::size_t n = 1; n <= body.size(); ++n) {
    auto const cut = offsets(n);
    ASSERT_TRUE(!cut.empty() && cut.size() <= whole.size()) << n;
    for (std::size_t i = 0; i + 1 < cut.size(); ++i)
      EXPECT_EQ(cut[i].first, whole[i].first) << n << " " << i;
    for (std::size_t i = 0; i + 2 < cut.size(); ++i)
      EXPECT_EQ(cut[i].second, whole[i].second) << n << " " << i;
    EXPECT_EQ(cut.back().second, static_cast<std::ptrdiff_t>(n));
    split(body.substr(0, n), true); // and the first-part-only split stays in range
  }
}

TEST(parse_subparts, a_megabyte_of_near_delimiters) {
  std::string body;
  for (int i = 0; i < 200'000; ++i)
    body += "--\n--bx\n";
  EXPECT_EQ(split(body + "--b--\n", false), (parts_t{body.substr(0, body.size() - 1), ""}));
}

// The index must not change any answer: searched from every position to
// every line end it covers, with and without it, a search gives the same
// range, the same delimiter line and the same problems.
TEST(find_boundary, the_index_gives_the_scans_answers) {
  std::string const bodies[] = {
      "pre\n--b\nA\n--b \t\nB\n--b--\nepi\n",   "--b\n--b\nA\n--b--",
      "--b\nA\n--b--  \n--b  --\n--b -- \n--b", "--b \n--b--\n--b-- \n--bx\n--b\r\n--\n-\n--b--\t\n",
      "x\n--b  \n--b --\nA\n--b----\n--b--\n",
  };
  for (std::string const& body : bodies) {
    test::exact_buffer_t const buffer(body);
    email::delimiter_index_t const index(buffer.begin(), buffer.end());
    for (std::string const boundary : {"b", "b ", "b--", "", "x"}) {
      std::string const delimiter = "--" + boundary;
      for (char const* begin = buffer.begin(); begin <= buffer.end(); ++begin)
        for (char const* end = begin; end <= buffer.end(); ++end) {
          if (!index.covers(begin, end))
            continue;
          for (bool const at_line_start : {false, true}) {
            char const *after[2] = {}, *found[2] = {};
            bool close[2] = {};
            std::string problems[2];
            for (int indexed = 0; indexed < 2; ++indexed) {
              quern::error::handler_t handler;
              found[indexed] = email::find_boundary(begin, end, delimiter, at_line_start, after[indexed],
                                                    &close[indexed], &handler, indexed ? &index : nullptr);
              problems[indexed] = test::problems_of(handler);
            }
            SCOPED_TRACE(testing::Message()
                         << testing::PrintToString(body) << " " << boundary << " " << begin - buffer.begin() << ".."
                         << end - buffer.begin() << " " << at_line_start);
            EXPECT_EQ(found[1], found[0]);
            EXPECT_EQ(after[1], after[0]);
            EXPECT_EQ(close[1], close[0]);
            EXPECT_EQ(problems[1], problems[0]);
          }
        }
    }
  }
}

} // namespace
