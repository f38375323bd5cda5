// SPDX-License-Identifier: MIT
// CR LF line ends to LF.
//
// The parsers read lines ended by a line feed and treat a carriage return as
// content, so a message saved with CR LF line ends has no empty line that
// closes its header block. Hosts that want such files indexed usefully copy
// them through this filter first: every CR that immediately precedes an LF is
// dropped, and nothing else changes, so a lone CR (old Mac line end, or a
// stray byte in a header) stays content. Runs of plain bytes between CRs are
// copied in one piece, which keeps the filter a single linear pass. A file
// with no LF at all ends its lines in CR alone; a host that wants it read
// turns each CR into an LF, which keeps every byte where it was.
#pragma once

#include <algorithm>
#include <string_view>

namespace text {

// True when [first, last) holds at least one CR LF pair.
inline bool has_crlf(char const* first, char const* last) {
  return std::string_view(first, static_cast<std::size_t>(last - first)).find("\r\n") != std::string_view::npos;
}

// True when [first, last) holds a CR and no LF at all: a file whose lines
// end in CR alone, as old Mac mail programs wrote them.
inline bool has_cr_line_ends(char const* first, char const* last) {
  std::string_view const bytes(first, static_cast<std::size_t>(last - first));
  return bytes.find('\n') == std::string_view::npos && bytes.find('\r') != std::string_view::npos;
}

// Copies [first, last) to out with every CR an LF: the same length, so a
// place in the copy is the same place in the original.
template <class OutputIt> OutputIt cr_to_lf(char const* first, char const* last, OutputIt out) {
  return std::replace_copy(first, last, out, '\r', '\n');
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
