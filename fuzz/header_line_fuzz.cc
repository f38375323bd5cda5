// SPDX-License-Identifier: MIT
// Any bytes as one unstructured header value with encoded words, in any
// declared charset. Listening for problems must not change the text.
#include <iterator>

#include "email/encoded_word.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  fuzz::input_t input(data, size);
  std::string const charset = fuzz::pick_charset(input.take_byte());
  std::vector<char> const value = input.rest();
  std::string quiet, listened;
  email::decode_header_line(value.data(), value.data() + value.size(), std::back_inserter(quiet), nullptr, charset);
  quern::error::handler_t problems;
  email::decode_header_line(value.data(), value.data() + value.size(), std::back_inserter(listened), &problems,
                            charset);
  fuzz::expect_equal("a listening collector changed the decoded header", quiet, listened);
  return 0;
}
