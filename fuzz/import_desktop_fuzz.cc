// SPDX-License-Identifier: MIT
// Any bytes as a whole message, read the way the desktop host reads it:
// header scan, body walk, decoding and conversion. Whatever the bytes, every
// stored string is well-formed UTF-8.
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::vector<char> const message(data, data + size);
  importer::attribute_set_t attributes;
  importer::import_bytes(message.data(), message.data() + message.size(), attributes, importer::options_t{});
  fuzz::expect_well_formed(attributes);
  return 0;
}
