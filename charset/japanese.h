// SPDX-License-Identifier: MIT
// Japanese text labelled ISO-2022-JP or Shift_JIS.
//
// Mail labelled "iso-2022-jp" is often something wider: JIS X 0212 or
// JIS X 0213 characters that only the extended ISO-2022-JP variants define,
// EUC-JP with the wrong label, or plain ASCII. japanese_convert reads text
// without any ESC byte as EUC-JP, converts strictly, and where the strict pass
// stops at an escape sequence that names a wider variant it continues with
// that variant. Any other failure is retried line by line: the failing line
// (and what the strict pass made of the lines since the last committed point)
// is converted again tolerantly, then strict conversion resumes on the next
// line. Each byte is therefore converted at most a few times, whatever the
// input.
#pragma once

#include <string>

#include "charset/iconv_convert.h"

namespace charset {

namespace detail {
void japanese_convert(char const* first, char const* last, sink_t out, std::string charset,
                      quern::error::handler_t* problems);
} // namespace detail

template <typename InputIt, typename OutputIt>
void japanese_convert(InputIt first, InputIt last, OutputIt out, std::string charset,
                      quern::error::handler_t* problems) {
  char const* const begin = detail::address(first);
  detail::japanese_convert(begin, begin + (last - first), sink_t(out), std::move(charset), problems);
}

} // namespace charset
