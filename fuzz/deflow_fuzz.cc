// SPDX-License-Identifier: MIT
// Any bytes through format_deflow in each mode. The canonical (non-flowed)
// form is a fixed point: canonicalising it again changes nothing. Flowed
// joining only removes bytes (quote markers may gain one space per line).
#include <algorithm>
#include <iterator>

#include "email/flowed.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  fuzz::input_t input(data, size);
  std::uint8_t const choice = input.take_byte();
  bool const flowed = choice & 1, delsp = choice & 2, keep_edges = choice & 4;
  std::vector<char> const text = input.rest();

  std::string once;
  email::format_deflow(text.data(), text.data() + text.size(), std::back_inserter(once), flowed, delsp, keep_edges);
  std::size_t const lines = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
  if (once.size() > text.size() + 2 * lines)
    fuzz::fail("deflowing grew the text", once);
  if (!flowed) {
    std::string twice;
    email::format_deflow(once.data(), once.data() + once.size(), std::back_inserter(twice), false, false, keep_edges);
    fuzz::expect_equal("the canonical form is not a fixed point", once, twice);
  }
  return 0;
}
