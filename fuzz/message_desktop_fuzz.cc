// SPDX-License-Identifier: MIT
// Any bytes as a whole message, read twice in the desktop reading: as the
// typed message and as the desktop host's attribute rows. Where both say
// something (subject, text, dates, names and addresses) they say the same.
#include "fuzz/fuzz_support.h"
#include "importer/message.h"
#include "tests/support/desktop_rows.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  fuzz::input_t input(data, size);
  bool const crlf = input.take_byte() & 1;
  std::vector<char> const bytes = input.rest();
  tidewell::options_t typed = tidewell::options_t::desktop();
  importer::options_t rows_options;
  if (crlf) {
    typed.line_ends = tidewell::line_ends_t::crlf_as_lf;
    rows_options.line_ends = importer::line_ends_t::crlf_as_lf;
  }
  importer::attribute_set_t rows;
  importer::import_bytes(bytes.data(), bytes.data() + bytes.size(), rows, rows_options);
  tidewell::message_t const message = tidewell::parse(std::string_view(bytes.data(), bytes.size()), typed);
  if (std::string const differs = test_support::desktop_difference(message, rows); !differs.empty())
    fuzz::fail("the typed message and the rows differ", differs, fuzz::describe(rows));
  return 0;
}
