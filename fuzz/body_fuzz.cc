// Any bytes as a whole message: header scan, body walk, text conversion.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "email/body.h"
#include "importer/import.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  // An exact-size copy so that any read past the end is caught.
  std::vector<char> const message(data, data + size);
  char const* cursor = message.data();
  char const* const end = cursor + message.size();
  auto headers = email::quick_parse_headers(cursor, end, importer::wanted_headers());
  auto const text = email::parse_body(cursor, end, headers, true);
  (void)text;
  return 0;
}
