// SPDX-License-Identifier: MIT
// CR LF line ends to LF.
//
// The parsers read lines ended by a line feed and treat a carriage return as
// content, so a message saved with CR LF line ends has no empty line that
// closes its header block. Hosts that want such files indexed usefully copy
// them through this filter first: every CR that immediately precedes an LF is
// dropped, and nothing else changes, so a lone CR (old Mac line end, or a
// stray byte in a header) stays content. Runs of plain bytes between CRs are
// copied in one piece, which keeps the filter a single linear pass.
#pragma once

#include <algorithm>
#include <string_view>

namespace text {

// True when [first, last) holds at least one CR LF pair.
inline bool has_crlf(char const* first, char const* last) {
  return std::string_view(first, static_cast<std::size_t>(last - first)).find("\r\n") != std::string_view::npos;
}

// Copies [first, last) to out without the CR of each CR LF pair.
template <class OutputIt> OutputIt crlf_to_lf(char const* first, char const* last, OutputIt out) {
  while (first != last) {
    char const* const cr = std::find(first, last, '\r');
    out = std::copy(first, cr, out);
    if (cr == last)
      break;
    if (cr + 1 == last || cr[1] != '\n')
      *out++ = '\r';
    first = cr + 1;
  }
  return out;
}

} // namespace text
