// SPDX-License-Identifier: MIT
// Any bytes as a multipart body whose boundary is the input's first line.
// The preamble, parts and epilogue are in order, inside the body and never
// overlap; listening must not change them.
#include <algorithm>

#include "email/multipart.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  fuzz::input_t input(data, size);
  bool const first_only = input.take_byte() & 1;
  std::vector<char> const rest = input.rest();
  auto const line_end = std::find(rest.begin(), rest.end(), '\n');
  std::string const boundary(rest.begin(), line_end);
  std::vector<char> const body(line_end == rest.end() ? line_end : line_end + 1, rest.end());
  char const* const begin = body.data();
  char const* const end = begin + body.size();

  auto const ranges = email::parse_subparts(begin, end, boundary, first_only, nullptr);
  char const* previous = begin;
  for (auto const& [first, last] : ranges) {
    if (first < previous || last < first || last > end)
      fuzz::fail("subparts out of order or outside the body", boundary);
    previous = last;
  }
  quern::error::handler_t problems;
  if (email::parse_subparts(begin, end, boundary, first_only, &problems) != ranges)
    fuzz::fail("a listening collector changed the subparts", boundary);
  (void)email::parse_preamble(begin, end, boundary);
  return 0;
}
