// SPDX-License-Identifier: MIT
// Every address value of up to six bytes over the bytes that steer the
// extractor, against the same extractor without the shortcuts by which a
// failed scan for a closing quote or bracket answers later scans.
#include <gtest/gtest.h>

#include <string>

#include "header/address.h"

namespace {

// A match as offsets into the value and its flags; "-" for none.
std::string describe(header::match_t const& m, char const* base) {
  if (!m.found())
    return "-";
  return std::to_string(m.first - base) + ".." + std::to_string(m.last - base) + (m.angle ? "a" : "") +
         (m.comment ? "c" : "");
}

// Compares every value of up to max_length bytes over alphabet; reports the
// first few that differ.
void compare_all(std::string_view alphabet, std::size_t max_length) {
  std::size_t failures = 0;
  for (std::size_t length = 0, count = 1; length <= max_length; ++length, count *= alphabet.size()) {
    std::string value(length, ' ');
    for (std::size_t n = 0; n < count; ++n) {
      for (std::size_t i = 0, k = n; i < length; ++i, k /= alphabet.size())
        value[i] = alphabet[k % alphabet.size()];
      char const* const end = value.data() + value.size();
      char const* fast_position = value.data();
      char const* slow_position = value.data();
      auto const fast = header::address_name_and_email_function(fast_position, end);
      auto const slow = header::detail::address_name_and_email_unpredicted(slow_position, end);
      std::string const got = describe(fast.first, value.data()) + " " + describe(fast.second, value.data());
      std::string const want = describe(slow.first, value.data()) + " " + describe(slow.second, value.data());
      if (got != want) {
        ADD_FAILURE() << testing::PrintToString(value) << ": " << got << " instead of " << want;
        if (++failures > 20) // a broken shortcut fails thousands of values; show a few
          return;
      }
    }
  }
}

TEST(address_name_and_email_function, agrees_with_the_unpredicted_reference_on_all_short_values) {
  compare_all("()<>\"\\@a ", 6);
}

} // namespace
