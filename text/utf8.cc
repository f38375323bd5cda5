// SPDX-License-Identifier: MIT
#include "text/utf8.h"

#include <boost/locale/utf.hpp>

#include "charset/utf8.h"

namespace text {

std::string repair(std::string_view text) {
  if (utf8::is_well_formed(text.data(), text.data() + text.size()))
    return std::string(text);
  using traits = boost::locale::utf::utf_traits<char>;
  std::string out;
  out.reserve(text.size() + 16);
  char const* p = text.data();
  char const* const end = p + text.size();
  while (p != end) {
    char const* const start = p;
    auto const code_point = traits::decode(p, end);
    if (code_point == boost::locale::utf::illegal || code_point == boost::locale::utf::incomplete) {
      out += "\xEF\xBF\xBD";
      // Resynchronise at the next byte that can start a character.
      p = start + 1;
      while (p != end && (static_cast<unsigned char>(*p) & 0xC0) == 0x80)
        ++p;
    } else {
      out.append(start, p);
    }
  }
  return out;
}

std::string_view cut(std::string_view text, std::size_t max_bytes) {
  if (text.size() <= max_bytes)
    return text;
  auto const byte = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
  // Back from the byte the limit falls on to where its character starts: at
  // most three bytes, the most continuation bytes a character has.
  std::size_t start = max_bytes;
  while (start > 0 && max_bytes - start < 3 && (byte(start) & 0xC0) == 0x80)
    --start;
  unsigned const lead = byte(start);
  std::size_t const length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 1;
  // When that character ends before the limit, the limit falls on a stray
  // continuation byte, and the cut can stay where it is.
  return text.substr(0, start + length > max_bytes ? start : max_bytes);
}

} // namespace text
