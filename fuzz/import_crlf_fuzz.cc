// SPDX-License-Identifier: MIT
// Any bytes as a whole message with CR LF read as LF. A message whose every
// LF already has its CR must import exactly like the same message with bare
// LFs, so the CR LF copy and the in-place reading must agree.
#include <algorithm>

#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::vector<char> const message(data, data + size);
  importer::options_t options;
  options.line_ends = importer::line_ends_t::crlf_as_lf;
  importer::attribute_set_t attributes;
  importer::import_bytes(message.data(), message.data() + message.size(), attributes, options);
  fuzz::expect_well_formed(attributes);

  // Bare-LF form of the message (a CR never precedes an LF in it) against
  // every LF written as CR LF.
  std::vector<char> bare;
  for (char c : message)
    if (c != '\r')
      bare.push_back(c);
  std::vector<char> crlf;
  for (char c : bare) {
    if (c == '\n')
      crlf.push_back('\r');
    crlf.push_back(c);
  }
  importer::attribute_set_t from_bare, from_crlf;
  importer::import_bytes(bare.data(), bare.data() + bare.size(), from_bare, options);
  importer::import_bytes(crlf.data(), crlf.data() + crlf.size(), from_crlf, options);
  fuzz::expect_equal("CR LF reads as LF", fuzz::describe(from_bare), fuzz::describe(from_crlf));
  return 0;
}
