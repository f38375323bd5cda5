// SPDX-License-Identifier: MIT
// Whole-string plain-text canonicalisation: the non-flowed line rewrite, then
// every kind of line break a text may carry (CR, U+2028 LINE SEPARATOR) is
// turned into LF and NUL bytes are dropped, so that consumers which split on
// LF see every line. NULs are removed before separators are looked for, so a
// separator split by NULs is still found; replaced text is never rescanned.
#include "email/flowed.h"

#include <iterator>
#include <vector>

namespace email {

std::string canonicalize_plain_text(std::string const& text) {
  std::vector<char> canonical;
  canonical.reserve(text.size());
  format_deflow(text.data(), text.data() + text.size(), std::back_inserter(canonical), false, false, false);

  std::string cleaned;
  cleaned.reserve(canonical.size());
  for (char c : canonical) {
    if (c == '\r')
      cleaned.push_back('\n');
    else if (c != '\0')
      cleaned.push_back(c);
  }

  std::string result;
  result.reserve(cleaned.size());
  for (std::size_t i = 0; i < cleaned.size(); ++i) {
    if (cleaned.compare(i, 3, "\xE2\x80\xA8") == 0) {
      result.push_back('\n');
      i += 2;
    } else {
      result.push_back(cleaned[i]);
    }
  }
  return result;
}

} // namespace email
