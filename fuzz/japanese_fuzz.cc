// SPDX-License-Identifier: MIT
// Any bytes through the Japanese converter, under each label that reaches
// it. Listening must not change its output, and the output of a strict
// converter with line retries can never be more than a bounded multiple of
// the input (each byte is converted at most a few times).
#include <iterator>

#include "charset/japanese.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  static constexpr char const* labels[] = {"iso-2022-jp", "iso-2022-jp-1", "iso-2022-jp-2", "iso-2022-jp-3",
                                           "shift_jis",   "euc-jp",        "cp932",         "sjis"};
  fuzz::input_t input(data, size);
  std::string const charset = labels[input.take_byte() % std::size(labels)];
  std::vector<char> const text = input.rest();

  std::string quiet, listened;
  charset::japanese_convert(text.begin(), text.end(), std::back_inserter(quiet), charset, nullptr);
  quern::error::handler_t problems;
  charset::japanese_convert(text.begin(), text.end(), std::back_inserter(listened), charset, &problems);
  fuzz::expect_equal("a listening collector changed the Japanese conversion", quiet, listened);
  // "<U+XX>" for one byte is the widest any byte can become.
  if (quiet.size() > 8 * text.size())
    fuzz::fail("the Japanese conversion grew beyond its bound", charset);
  return 0;
}
