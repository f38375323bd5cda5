// SPDX-License-Identifier: MIT
// The desktop import with a problem collector listening gives the same
// attributes as without: recording a repair must never change it. (The full
// reading's target checks the same of the typed message.)
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  fuzz::input_t input(data, size);
  importer::options_t options;
  std::uint8_t const choice = input.take_byte();
  options.line_ends = choice & 2 ? importer::line_ends_t::crlf_as_lf : importer::line_ends_t::as_stored;
  std::vector<char> const message = input.rest();

  importer::attribute_set_t quiet, listened;
  importer::import_bytes(message.data(), message.data() + message.size(), quiet, options);
  quern::error::handler_t problems;
  options.problems = &problems;
  importer::import_bytes(message.data(), message.data() + message.size(), listened, options);
  fuzz::expect_equal("a listening collector changed the import", fuzz::describe(quiet), fuzz::describe(listened));
  return 0;
}
