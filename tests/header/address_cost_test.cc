// SPDX-License-Identifier: MIT
// The address extractor's cost on hostile values against a plain value of the
// same size. A value whose closing quote or bracket is missing makes every
// later opening fail the same scan; the extractor must answer those from what
// the first failure proved, or its cost grows with the square of the length.
// At these sizes a quadratic path costs a thousand times the plain value, a
// linear one a few times: the bound between them is wide, so a loaded machine
// does not make the test flaky, and no absolute time is asserted.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <string>

#include "header/address.h"
#include "tests/support/strings.h"

namespace {

using test_support::repeat, test_support::thread_seconds;

// The best of a few runs, which drops the runs a busy machine slowed down;
// stops early once a run is within limit.
double cost(std::string const& value, int runs, double limit = 0) {
  double best = std::numeric_limits<double>::infinity();
  for (int run = 0; run < runs && !(best <= limit); ++run) {
    char const* position = value.data();
    double const start = thread_seconds();
    auto const [name, email] = header::address_name_and_email_function(position, value.data() + value.size());
    best = std::min(best, thread_seconds() - start);
    // The results are used, so the call cannot be dropped.
    EXPECT_LE(name.size() + email.size(), value.size());
  }
  return best;
}

TEST(address_name_and_email_function, hostile_values_cost_what_plain_ones_do) {
  // Every bracket and quote of these stays open; the backslashes escape the
  // quotes that would close them. About 100 KB each.
  constexpr std::size_t n = 50'000;
  struct row_t {
    char const* what;
    std::string value;
  } const rows[] = {
      {"'(a' repeated", repeat("(a", n)},
      {"a quote, then '\\\"' repeated", "\"" + repeat("\\\"", n)},
      {"'<' repeated", repeat("<", 2 * n)},
      {"'(' repeated", repeat("(", 2 * n)},
      {"a quote, then '(' repeated", "\"" + repeat("(", 2 * n)},
      {"'\\' repeated", repeat("\\", 2 * n)},
      {"a quote, then '\\' repeated", "\"" + repeat("\\", 2 * n)},
      {"a single quote, then '\\'' repeated", "'" + repeat("\\'", n)},
      {"'<a' repeated", repeat("<a", n)},
      {"'(', '<', '\"' and '\\' mixed", repeat("(<\"\\a", 2 * n / 5)},
      {"'(' repeated, then as many ')'", repeat("(", n) + repeat(")", n)},
      {"comments in comments, each naming an address", "a@b " + repeat("a@b (", n / 3) + repeat(")", n / 3)},
  };
  // The same size of ordinary words and addresses.
  auto const plain = [](std::size_t size) {
    std::string out = repeat("Ann Smith <ann@example.org>, ", size / 29 + 1);
    out.resize(size);
    return out;
  };
  constexpr double max_ratio = 20;
  for (auto const& row : rows) {
    SCOPED_TRACE(row.what);
    double const reference = cost(plain(row.value.size()), 5);
    double const hostile = cost(row.value, 3, max_ratio * reference);
    EXPECT_LE(hostile, max_ratio * reference) << hostile / reference << " times the plain value's cost";
  }
}

} // namespace
