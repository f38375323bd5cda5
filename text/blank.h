// Blanks: a space or a horizontal tab, the white space that may stand inside
// a header line, around parameters and as transport padding.
#pragma once

namespace text {

constexpr bool is_blank(char c) {
  return c == ' ' || c == '\t';
}

// The first byte of [p, end) that is not a blank.
constexpr char const* skip_blanks(char const* p, char const* end) {
  while (p != end && is_blank(*p))
    ++p;
  return p;
}

} // namespace text
