// SPDX-License-Identifier: MIT
// UTF-8 text on its way out of the library: repaired where it is not
// well-formed, and cut to a size without splitting a character.
//
// Whether text is well-formed is charset/utf8.h's question (utf8::
// is_well_formed); these build on it. Hosts hand text to indexers that
// either refuse ill-formed UTF-8 or store it as it comes, and that take at
// most so many bytes of it, so every host cuts and repairs the same way.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace text {

// The text with every ill-formed UTF-8 sequence replaced by one U+FFFD;
// well-formed text comes back unchanged.
std::string repair(std::string_view text);

// The longest prefix of text of at most max_bytes bytes that does not end
// inside a character: a character the limit would split is left out whole.
// Bytes that belong to no character (in text that is not well-formed) count
// as characters of their own.
std::string_view cut(std::string_view text, std::size_t max_bytes);

} // namespace text
