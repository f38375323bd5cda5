// SPDX-License-Identifier: MIT
// Any bytes as a whole message in the full reading of the Linux hosts.
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::vector<char> const message(data, data + size);
  importer::options_t options;
  options.reading = importer::reading_t::full;
  importer::attribute_set_t attributes;
  importer::import_bytes(message.data(), message.data() + message.size(), attributes, options);
  fuzz::expect_well_formed(attributes);
  return 0;
}
