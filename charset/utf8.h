// SPDX-License-Identifier: MIT
// Structural UTF-8 validation.
//
// The validator only checks the shape of the bytes: a lead byte announces a
// sequence of 2 to 6 bytes by its leading one bits, and exactly that many
// continuation bytes (10xxxxxx) must follow. Overlong forms, encoded
// surrogates, values above U+10FFFF and the old 5- and 6-byte forms all pass.
// That is on purpose: the question asked here is "was this text meant to be
// UTF-8?", and CESU-8 text is repaired later rather than rejected here.
// Validation stops at the first bad byte, and a validator can be fed in
// pieces. is_well_formed asks the strict question instead: is this UTF-8 that
// may be passed on as it is?
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace utf8 {

struct validate_t {
  std::uint64_t length = 0; // of the sequence in progress; 0 between characters
  std::uint64_t seen = 0;   // bytes of that sequence consumed so far
  bool valid = true;

  template <typename InputIt> bool scan(InputIt first, InputIt last) {
    for (; valid && first != last; ++first) {
      auto const c = static_cast<unsigned char>(*first);
      if (length != 0) {
        if ((c & 0xC0) != 0x80) {
          valid = false;
        } else if (++seen == length) {
          length = seen = 0;
        }
      } else if ((c & 0xC0) == 0x80) {
        valid = false;
      } else if (c >= 0x80) {
        std::uint64_t ones = 0;
        for (unsigned bit = 0x80; bit != 0 && (c & bit) != 0; bit >>= 1)
          ++ones;
        if (ones > 6) {
          valid = false;
        } else {
          length = ones;
          seen = 1;
        }
      }
    }
    return valid;
  }
};

// True when the whole range is structurally valid and ends between characters.
template <typename InputIt> bool is_valid(InputIt first, InputIt last) {
  validate_t validator;
  return validator.scan(first, last) && validator.length == 0;
}

// True when [first, last) is well-formed UTF-8 by the Unicode table: no
// overlong forms, no surrogates, nothing past U+10FFFF, nothing cut off.
inline bool is_well_formed(char const* first, char const* last) {
  auto const* p = reinterpret_cast<unsigned char const*>(first);
  auto const* const end = reinterpret_cast<unsigned char const*>(last);
  auto const in = [](unsigned c, unsigned low, unsigned high) { return c >= low && c <= high; };
  while (p != end) {
    // Runs of ASCII need no decoding: sixteen bytes at a time where the
    // processor has vectors, straight to the first byte that is not ASCII;
    // else eight.
#ifdef __SSE2__
    if (end - p >= 16) {
      int const high = _mm_movemask_epi8(_mm_loadu_si128(reinterpret_cast<__m128i const*>(p)));
      if (high == 0) {
        p += 16;
        continue;
      }
      p += __builtin_ctz(static_cast<unsigned>(high));
    }
#endif
    std::uint64_t word;
    if (end - p >= 8 && (std::memcpy(&word, p, 8), (word & 0x8080808080808080) == 0)) {
      p += 8;
      continue;
    }
    unsigned const c = *p;
    if (c < 0x80) {
      ++p;
      continue;
    }
    // The common shapes first: two bytes from C2, and three bytes whose lead
    // allows every continuation (not E0 or ED), as most European and CJK
    // text is written.
    if (c >= 0xC2 && c <= 0xDF && end - p >= 2 && (p[1] & 0xC0) == 0x80) {
      p += 2;
      continue;
    }
    if (c >= 0xE1 && c <= 0xEF && c != 0xED && end - p >= 3 && (p[1] & 0xC0) == 0x80 && (p[2] & 0xC0) == 0x80) {
      p += 3;
      continue;
    }
    // The second byte's range is what excludes overlong forms, surrogates
    // and values past U+10FFFF.
    std::ptrdiff_t length;
    unsigned low = 0x80, high = 0xBF;
    if (in(c, 0xC2, 0xDF)) {
      length = 2;
    } else if (in(c, 0xE0, 0xEF)) {
      length = 3;
      if (c == 0xE0)
        low = 0xA0;
      else if (c == 0xED)
        high = 0x9F;
    } else if (in(c, 0xF0, 0xF4)) {
      length = 4;
      if (c == 0xF0)
        low = 0x90;
      else if (c == 0xF4)
        high = 0x8F;
    } else {
      return false;
    }
    if (end - p < length || !in(p[1], low, high))
      return false;
    for (std::ptrdiff_t i = 2; i < length; ++i)
      if (!in(p[i], 0x80, 0xBF))
        return false;
    p += length;
  }
  return true;
}

} // namespace utf8
