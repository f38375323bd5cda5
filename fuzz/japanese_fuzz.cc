// SPDX-License-Identifier: MIT
// Any bytes through the Japanese converter, under each label that reaches
// it, and through the Windows reading in both its forms. Listening must not
// change either output, and the output of a strict converter with line
// retries can never be more than a bounded multiple of the input (each byte
// is converted at most a few times). The Windows reading makes one character
// of each unit or hands a stretch to the first converter, so the same bound
// holds; its Shift_JIS form never hands over, and its output is well-formed
// UTF-8 (the first converter keeps lone surrogates for the importer to drop).
#include <iterator>

#include "charset/japanese.h"
#include "charset/windows_japanese.h"
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

  for (auto const form : {charset::windows_japanese_t::jis, charset::windows_japanese_t::shift_jis}) {
    std::string windows_quiet, windows_listened;
    charset::windows_japanese_convert(text.begin(), text.end(), std::back_inserter(windows_quiet), form, nullptr);
    quern::error::handler_t windows_problems;
    charset::windows_japanese_convert(text.begin(), text.end(), std::back_inserter(windows_listened), form,
                                      &windows_problems);
    fuzz::expect_equal("a listening collector changed the Windows Japanese reading", windows_quiet, windows_listened);
    if (windows_quiet.size() > 8 * text.size())
      fuzz::fail("the Windows Japanese reading grew beyond its bound");
    if (form == charset::windows_japanese_t::shift_jis && !importer::is_well_formed_utf8(windows_quiet))
      fuzz::fail("the Windows Japanese reading made ill-formed UTF-8", windows_quiet);
  }
  return 0;
}
