// SPDX-License-Identifier: MIT
// Any bytes as a Date value. A parsed date with a four-digit year must come
// out as canonical text that the import can read back (shorter years are
// space-padded and left unread on purpose), and listening must not change
// the result.
#include "date/rfc822_date.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::vector<char> const value(data, data + size);
  char const* const first = value.data();
  char const* const last = first + value.size();
  date::rfc822_date_t const quiet(first, last, nullptr);
  quern::error::handler_t problems;
  date::rfc822_date_t const listened(first, last, &problems);
  std::string const canonical = quiet.canonical_format();
  fuzz::expect_equal("a listening collector changed the date", canonical, listened.canonical_format());
  fuzz::expect_equal("a listening collector changed the local date", quiet.local_canonical_format(),
                     listened.local_canonical_format());
  if (!canonical.empty() && canonical[0] != ' ' && !importer::parse_canonical_date(canonical))
    fuzz::fail("canonical date text does not read back", canonical);
  return 0;
}
