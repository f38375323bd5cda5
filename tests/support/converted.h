// SPDX-License-Identifier: MIT
// Conversion to UTF-8 as the charset tests run it: twice, with and without a
// problem collector, which must not change a byte of the text, and every
// recorded problem's description read against its code.
#pragma once

#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "charset/convert.h"
#include "charset/surrogates.h"
#include "tests/support/problems.h"

namespace test {

struct converted_t {
  std::string text;
  std::vector<quern::error::record_t> problems;
};

inline converted_t to_utf8(std::string const& input, std::string const& charset,
                           std::string const& fallback = "iso-8859-1",
                           charset::policy_t policy = charset::policy_t::labelled) {
  converted_t result;
  auto const provider = [&] { return fallback; };
  quern::error::handler_t handler;
  charset::convert_to_utf8(input.data(), input.data() + input.size(), std::back_inserter(result.text), charset,
                           provider, &handler, policy);
  handler.get_errors({}, result.problems);
  expect_descriptions_fit_codes(handler);
  std::string quiet;
  charset::convert_to_utf8(input.begin(), input.end(), std::back_inserter(quiet), charset, provider, nullptr, policy);
  EXPECT_EQ(quiet, result.text) << "a collector changed the text";
  return result;
}

// Bytes as hex_print shows them, for failure messages.
inline std::string printable(std::string const& bytes) {
  std::string result;
  charset::hex_print(bytes.begin(), bytes.end(), std::back_inserter(result));
  return result;
}

} // namespace test
