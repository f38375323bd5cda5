// SPDX-License-Identifier: MIT
// Any bytes under a charset label drawn from the input, out of the names mail
// really carries and some junk, with or without a fallback charset, under
// both conversion policies. The conversion never fails, and listening must
// not change its output.
#include <iterator>

#include "charset/convert.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  fuzz::input_t input(data, size);
  std::string const charset = fuzz::pick_charset(input.take_byte());
  std::string const fallback_name = fuzz::pick_charset(input.take_byte());
  charset::fallback_charset_t const fallback = [&] { return fallback_name; };
  std::vector<char> const text = input.rest();

  for (auto const policy : {charset::policy_t::labelled, charset::policy_t::guess}) {
    std::string quiet, listened;
    charset::convert_to_utf8(text.begin(), text.end(), std::back_inserter(quiet), charset, fallback, nullptr, policy);
    quern::error::handler_t problems;
    charset::convert_to_utf8(text.begin(), text.end(), std::back_inserter(listened), charset, fallback, &problems,
                             policy);
    fuzz::expect_equal("a listening collector changed the conversion", quiet, listened);
  }
  return 0;
}
