// SPDX-License-Identifier: MIT
// Quoted-printable decoding.
//
// One forward pass with a cursor. Plain runs (no '=' and, in binary data, no
// LF) are copied in bulk; at an '=' the decoder tries, in order, an escape of
// two hex digits, a soft line break ('=' then blanks then LF, or '=' then
// blanks up to the end of the input, which is dropped), and otherwise passes
// the '=' through as a literal and carries on with the byte after it. Only an
// LF ends a line: "=" CR LF is not a soft break, because the rest of the mail
// parser treats CR as ordinary content too, and a decoder that guessed
// otherwise would disagree with the line structure seen by its callers.
//
// Binary parts (anything that is not text, message or multipart) get every LF
// turned into CR LF, since binary payloads encoded by sloppy mailers lose the
// CR that the encoding requires. This happens even after an existing CR;
// the extra CR is harmless for the only consumers of binary data.
//
// Irregularities are collected only when a problem handler is given, and
// reported once per kind per call with up to ten bytes of input on each side
// of every occurrence. The blank scan after an '=' stops at the first
// non-blank byte, which is consumed next, so the whole pass is linear.
#pragma once

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

#include "error/handler.h"
#include "text/ascii.h"

namespace email {

// What hex_to_int answers for a byte that is not a hexadecimal digit.
inline constexpr unsigned char invalid_hex_digit = 0xFF;

// "0"-"9" give 0-9, "A"-"F" and "a"-"f" give 10-15, anything else
// invalid_hex_digit.
unsigned char hex_to_int(char c);

namespace detail {

// Up to ten bytes of input either side of p, clipped to [first, last).
template <typename It> std::string qp_context(It first, It last, It p) {
  auto const [from, to] = text::bytes_around(first, last, p, 10);
  return std::string(from, to);
}

// Records the collected occurrences; non-template so the header stays small.
void report_quoted_printable_problems(quern::error::handler_t& problems, std::vector<std::string> const& linefeeds,
                                      std::vector<std::string> const& illegal_equals);

} // namespace detail

// Decodes [first, last) into out and returns out past the last byte written.
// binary: the part is none of text, message or multipart, so bare LFs are
// written as CR LF. problems may be null.
template <std::random_access_iterator InputIt, typename OutputIt>
OutputIt decode_quoted_printable(InputIt first, InputIt last, OutputIt out, quern::error::handler_t* problems,
                                 bool binary) {
  std::vector<std::string> linefeeds;
  std::vector<std::string> illegal_equals;
  auto const is_special = [binary](char c) { return c == '=' || (binary && c == '\n'); };

  InputIt p = first;
  while (p != last) {
    InputIt const run_end = std::find_if(p, last, is_special);
    out = std::copy(p, run_end, out);
    p = run_end;
    if (p == last)
      break;

    if (*p == '\n') {
      if (problems)
        linefeeds.push_back(detail::qp_context(first, last, p));
      *out++ = '\r';
      *out++ = '\n';
      ++p;
      continue;
    }

    // *p == '='
    if (last - p >= 3) {
      unsigned char const high = hex_to_int(p[1]);
      unsigned char const low = hex_to_int(p[2]);
      if (high != invalid_hex_digit && low != invalid_hex_digit) {
        *out++ = static_cast<char>(high * 16 + low);
        p += 3;
        continue;
      }
    }
    InputIt const after_blanks = std::find_if_not(p + 1, last, text::is_blank);
    if (after_blanks == last)
      break;
    if (*after_blanks == '\n') {
      p = after_blanks + 1;
      continue;
    }
    if (problems)
      illegal_equals.push_back(detail::qp_context(first, last, p));
    *out++ = '=';
    ++p;
  }

  if (problems)
    detail::report_quoted_printable_problems(*problems, linefeeds, illegal_equals);
  return out;
}

} // namespace email
