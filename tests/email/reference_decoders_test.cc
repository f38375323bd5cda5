// SPDX-License-Identifier: MIT
// The base64 and quoted-printable decoders against the slow references of
// tests/support, on random inputs over the bytes that steer them and on
// every file of examples/ and the corpus read as encoded text.
#include <algorithm>
#include <fstream>
#include <iterator>
#include <random>

#include <gtest/gtest.h>

#include "../support/messages.h"
#include "../support/reference_decoders.h"
#include "email/base64.h"
#include "email/quoted_printable.h"
#include "support.h"

namespace {

// "" when the two agree, else where they part and a few bytes of each from
// there (decodings of whole messages are too long to show).
std::string difference(std::string_view got, std::string_view want) {
  auto const [g, w] = std::mismatch(got.begin(), got.end(), want.begin(), want.end());
  if (g == got.end() && w == want.end())
    return "";
  auto const excerpt = [](std::string_view s, std::size_t at) {
    return testing::PrintToString(std::string(s.substr(at, 24)));
  };
  std::size_t const at = static_cast<std::size_t>(g - got.begin());
  return "at byte " + std::to_string(at) + ": " + excerpt(got, at) + " instead of " + excerpt(want, at);
}

void expect_same_decoding(std::string_view input) {
  SCOPED_TRACE(testing::PrintToString(std::string(input.substr(0, 80))));
  test::exact_buffer_t const buffer(input);
  std::size_t passed = 0;
  quern::error::handler_t handler;
  auto const lines = email::decode_base_64_data(buffer.begin(), buffer.end(), true, &handler);
  EXPECT_EQ(difference({lines.data(), lines.size()}, test_support::base64_lines(input, passed)), "") << "base64 lines";
  // The one problem, when bytes were passed through, counts them.
  std::string const problems = test::problems_of(handler);
  EXPECT_EQ(problems.find(" " + std::to_string(passed) + " ") != std::string::npos, passed != 0) << problems;
  EXPECT_EQ(
      difference(email::decode_base_64(buffer.begin(), buffer.end(), nullptr, ""), test_support::base64_free(input)),
      "")
      << "base64 free";
  for (bool binary : {false, true}) {
    std::string text;
    email::decode_quoted_printable(buffer.begin(), buffer.end(), std::back_inserter(text), nullptr, binary);
    EXPECT_EQ(difference(text, test_support::quoted_printable(input, binary)), "") << "quoted-printable " << binary;
  }
}

TEST(reference_decoders, agree_on_random_inputs) {
  std::mt19937 random(20261123);
  // Letters, digits, both cases of hex digits, padding, blanks, line ends
  // and bytes that no decoder accepts.
  constexpr std::string_view bytes = "QUJDRVGaz09+/AFaf==  \t\n\n\r*.\x80\xFF";
  for (int i = 0; i < 20000 && !testing::Test::HasFailure(); ++i) {
    std::string input(random() % 40, ' ');
    for (char& c : input)
      c = bytes[random() % bytes.size()];
    expect_same_decoding(input);
  }
}

TEST(reference_decoders, agree_on_every_message) {
  auto const paths = test_support::message_paths();
  for (std::size_t i = 0; i < paths.size() && !testing::Test::HasFailure(); ++i) {
    std::ifstream file(paths[i], std::ios::binary);
    expect_same_decoding(std::string(std::istreambuf_iterator<char>(file), {}));
  }
  EXPECT_GT(paths.size(), 5u);
}

} // namespace
