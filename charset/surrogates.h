// SPDX-License-Identifier: MIT
// CESU-8 repair and the renderings used in charset problem descriptions.
//
// Some senders encode a character outside the Basic Multilingual Plane as two
// UTF-8-encoded UTF-16 surrogates (six bytes, "CESU-8") instead of one
// four-byte sequence. surrogates_copy spots a high surrogate (ED A0..AF xx)
// directly followed by a low one (ED B0..BF xx) and writes the four-byte form
// of the code point the pair stands for. Everything else, lone or reversed
// surrogates included, is copied as it is: the bytes are the sender's, and a
// lone surrogate has no better reading. The scan jumps from one ED byte to the
// next, so text without any is copied in one piece.
//
// hex_print shows arbitrary bytes readably (printable bytes as themselves,
// tab/CR/LF as \t \r \n, anything else as {XX}); escape_whitespace only makes
// tab/CR/LF visible and is meant for text already known to be UTF-8.
#pragma once

#include <algorithm>
#include <iterator>
#include <string>

#include "error/handler.h"
#include "text/ascii.h"
#include "text/hex.h"

namespace charset {

template <typename InputIt, typename OutputIt> OutputIt hex_print(InputIt first, InputIt last, OutputIt out) {
  for (; first != last; ++first) {
    auto const c = static_cast<unsigned char>(*first);
    if (text::is_print(static_cast<char>(c))) {
      *out++ = static_cast<char>(c);
    } else if (c == '\t' || c == '\r' || c == '\n') {
      *out++ = '\\';
      *out++ = c == '\t' ? 't' : c == '\r' ? 'r' : 'n';
    } else {
      *out++ = '{';
      out = text::int_to_hex(c, out, 2);
      *out++ = '}';
    }
  }
  return out;
}

template <typename InputIt, typename OutputIt> OutputIt escape_whitespace(InputIt first, InputIt last, OutputIt out) {
  for (; first != last; ++first) {
    char const c = *first;
    if (c == '\t' || c == '\r' || c == '\n') {
      *out++ = '\\';
      *out++ = c == '\t' ? 't' : c == '\r' ? 'r' : 'n';
    } else {
      *out++ = c;
    }
  }
  return out;
}

template <typename InputIt, typename OutputIt>
void surrogates_copy(InputIt first, InputIt last, OutputIt out, quern::error::handler_t* problems) {
  auto const byte = [](auto it) { return static_cast<unsigned char>(*it); };
  while (first != last) {
    InputIt q = std::find(first, last, static_cast<char>(0xED));
    out = std::copy(first, q, out);
    if (q == last)
      return;
    bool pair = last - q > 5 && byte(q + 1) >= 0xA0 && byte(q + 1) <= 0xAF && byte(q + 2) >= 0x80 &&
                byte(q + 2) <= 0xBF && byte(q + 3) == 0xED && byte(q + 4) >= 0xB0 && byte(q + 4) <= 0xBF &&
                byte(q + 5) >= 0x80 && byte(q + 5) <= 0xBF;
    if (!pair) {
      *out++ = *q;
      first = q + 1;
      continue;
    }
    // The high surrogate carries the plane minus one; adding one gives the
    // plane of the supplementary code point.
    unsigned const u = (byte(q + 1) + 1u) & 0xFFu;
    unsigned const hi = byte(q + 2), lo = byte(q + 4), last_byte = byte(q + 5);
    *out++ = static_cast<char>(0xF0 | ((u >> 2) & 0x07));
    *out++ = static_cast<char>(0x80 | ((u << 4) & 0x30) | ((hi >> 2) & 0x0F));
    *out++ = static_cast<char>(0x80 | ((hi << 4) & 0x30) | (lo & 0x0F));
    *out++ = static_cast<char>(last_byte);
    if (problems) {
      std::string context;
      hex_print(q, q + 6, std::back_inserter(context));
      problems->push_back(quern::error::code_t::charset_cesu8, {{"context", context}});
    }
    first = q + 6;
  }
}

} // namespace charset
