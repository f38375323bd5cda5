// SPDX-License-Identifier: MIT
// Japanese text read the way Windows and Japanese phones write it.
//
// Mail programs on Windows and on phones label their text ISO-2022-JP or
// Shift_JIS but write it with their vendors' extensions: NEC's row 13
// (circled numbers, Roman numerals, unit symbols such as the ones for
// millimetre and kilogram), IBM's extension kanji and small Roman numerals,
// and the user-defined area where the carriers put their emoji. The standard
// converters refuse those codes. windows_japanese_convert reads Shift_JIS as
// Windows code page 932 and ISO-2022-JP as code page 50221 (the same
// characters behind ISO-2022 escapes, plus half-width katakana), so that each
// such code becomes its character, and anything undecodable becomes exactly
// one character in place of exactly its own bytes. It is the guessing
// reading's converter; the labelled reading keeps the standard ones
// (japanese.h).
#pragma once

#include <string_view>

#include "charset/iconv_convert.h"

namespace charset {

// The two ways the text can be written: ISO-2022 escapes around 7-bit JIS
// codes, or Shift_JIS bytes.
enum class windows_japanese_t { none, jis, shift_jis };

// The form a charset label (lower case) names, or none when this converter
// does not read it.
windows_japanese_t windows_japanese_form(std::string_view charset);

namespace detail {
void windows_japanese_convert(char const* first, char const* last, sink_t out, windows_japanese_t form,
                              quern::error::handler_t* problems);
} // namespace detail

template <typename InputIt, typename OutputIt>
void windows_japanese_convert(InputIt first, InputIt last, OutputIt out, windows_japanese_t form,
                              quern::error::handler_t* problems) {
  char const* const begin = detail::address(first);
  detail::windows_japanese_convert(begin, begin + (last - first), sink_t(out), form, problems);
}

} // namespace charset
