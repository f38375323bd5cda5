// SPDX-License-Identifier: MIT
// Test helpers: a heap copy of an input with no slack after its last byte, so
// that a parser reading past its range trips AddressSanitizer, and the
// problems a handler collected.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "error/handler.h"
#include "tests/support/problems.h"

namespace test {

struct exact_buffer_t {
  explicit exact_buffer_t(std::string_view text) : bytes(text.begin(), text.end()) {}
  char const* begin() const { return bytes.data(); }
  char const* end() const { return bytes.data() + bytes.size(); }
  std::vector<char> bytes;
};

// The problems a handler collected, one a line: each description, followed
// by its context in brackets when it has one.
inline std::string problems_of(quern::error::handler_t const& handler) {
  expect_descriptions_fit_codes(handler);
  std::vector<quern::error::record_t> records;
  handler.get_errors({}, records);
  std::string out;
  for (auto const& record : records) {
    out += (out.empty() ? "" : "\n") + record.at("description");
    if (auto const context = record.find("context"); context != record.end())
      out += " [" + context->second + "]";
  }
  return out;
}

} // namespace test
