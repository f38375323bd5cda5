// SPDX-License-Identifier: MIT
// Any bytes as an address list: the list splitter cuts it into items, each
// item goes through the name/address extractor, and the whole value through
// the import's address reading. Every match lies inside the text it came
// from, and the splitter always moves on.
#include "fuzz/fuzz_support.h"
#include "header/address.h"
#include "header/token.h"
#include "importer/addresses.h"

namespace {

void expect_inside(header::match_t const& match, char const* first, char const* last) {
  if (match.found() && (match.first < first || match.last > last || match.first > match.last))
    fuzz::fail("a match lies outside its text");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::vector<char> const value(data, data + size);
  char const* const first = value.data();
  char const* const last = first + value.size();

  char const* position = first;
  for (;;) {
    char const* const before = position;
    header::match_t const item = header::address_split_function(position, last);
    expect_inside(item, first, last);
    if (position < before || position > last)
      fuzz::fail("the list splitter moved outside the list");
    if (!item.found() || item.empty()) {
      if (position == before)
        break;
      continue;
    }
    char const* cursor = item.first;
    auto const [name, email] = header::address_name_and_email_function(cursor, item.last);
    expect_inside(name, item.first, item.last);
    expect_inside(email, item.first, item.last);
    if (position == before)
      fuzz::fail("the list splitter did not move on");
  }

  std::vector<std::string> names, emails;
  importer::parse_addresses(std::string(first, last), names, emails);
  if (names.size() > 1 || emails.size() > 1)
    fuzz::fail("one value gave more than one mailbox");
  return 0;
}
