// SPDX-License-Identifier: MIT
// Decoding of uuencoded text (the old "x-uuencode" transfer encoding).
//
// The decoder walks the text line by line: "begin ..." lines are skipped, a
// line that is exactly "end" stops the walk, empty and one-byte lines carry
// nothing, and every other line contributes all bytes after its length
// character. The length character is deliberately not trusted: mailers that
// re-wrapped or trimmed lines made it wrong more often than right, so every
// valid character is decoded and the repacker drops the incomplete tail.
// Bytes outside the uuencode range are counted instead; when they are more
// than a quarter of the good ones the text is probably not uuencoded at all,
// and the decoder gives up with a fixed warning on standard error, leaving
// only what follows the "end" line (if any) in the output.
#pragma once

#include <algorithm>
#include <cstdio>
#include <string>
#include <string_view>

#include "email/reinterpret_base.h"
#include "error/diagnostics.h"

namespace email {

// The 6-bit value of a uuencode character (0x20-0x5F, and '`' for zero), or
// 64 for any other byte.
unsigned char decode_uuencode_function(unsigned char c);

// Decodes the uuencoded text [first, last) into out.
template <typename OutputIt> void decode_uuencoded_text(char const* first, char const* last, OutputIt out) {
  std::string sextets;
  std::size_t errors = 0;
  char const* p = first;
  while (p != last) {
    char const* const line_end = std::find(p, last, '\n');
    std::string_view const line(p, static_cast<std::size_t>(line_end - p));
    if (line == "end")
      break;
    if (line.size() > 1 && !line.starts_with("begin")) {
      for (char c : line.substr(1)) {
        unsigned char const value = decode_uuencode_function(static_cast<unsigned char>(c));
        if (value < 64)
          sextets.push_back(static_cast<char>(value));
        else
          ++errors;
      }
    }
    p = line_end == last ? last : line_end + 1;
  }

  if (4 * errors > sextets.size()) {
    quern::error::warn("Warning: Giving up on decoding uunencoded text. Too many errors.\n");
    std::copy(p, last, out);
    return;
  }
  reinterpret_base<6, 8>(sextets.begin(), sextets.end(), out, false);
}

} // namespace email
