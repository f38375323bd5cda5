// SPDX-License-Identifier: MIT
// Repacking a stream of small bit groups into bytes.
//
// The base64 and uuencode decoders first translate their characters into
// 6-bit values (one value per byte, high bits clear) and then hand the whole
// run to this repacker. It shifts each value into an accumulator and emits
// the top To bits whenever at least To bits are held, most significant first,
// so the accumulator never holds more than To + From - 1 bits. Bits left over
// at the end are a partial group; the decoders drop them (an encoder pads the
// last byte with zero bits, which carry no data).
#pragma once

#include <cstdint>

namespace email {

// Reads From-bit values from [first, last) and writes To-bit values to out.
// With flush_partial, leftover bits are written left-aligned in one last value.
template <unsigned From, unsigned To, typename InputIt, typename OutputIt>
OutputIt reinterpret_base(InputIt first, InputIt last, OutputIt out, bool flush_partial) {
  static_assert(From > 0 && From <= 8 && To > 0 && To <= 8, "values are read from and written to bytes");
  constexpr std::uint32_t from_mask = (std::uint32_t{1} << From) - 1;
  constexpr std::uint32_t to_mask = (std::uint32_t{1} << To) - 1;
  std::uint32_t accumulator = 0;
  unsigned bits = 0;
  for (; first != last; ++first) {
    accumulator = (accumulator << From) | (static_cast<std::uint32_t>(static_cast<unsigned char>(*first)) & from_mask);
    bits += From;
    while (bits >= To) {
      bits -= To;
      *out++ = static_cast<char>((accumulator >> bits) & to_mask);
    }
    accumulator &= (std::uint32_t{1} << bits) - 1;
  }
  if (flush_partial && bits > 0)
    *out++ = static_cast<char>((accumulator << (To - bits)) & to_mask);
  return out;
}

} // namespace email
