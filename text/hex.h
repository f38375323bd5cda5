// SPDX-License-Identifier: MIT
// Upper-case hexadecimal digits of a byte.
//
// Only the low eight bits of the value are shown; asking for more than two
// digits pads with leading zeros. Used wherever raw bytes must be made visible
// in a problem description.
#pragma once

namespace text {

template <typename Value, typename OutputIt> OutputIt int_to_hex(Value value, OutputIt out, int digits) {
  auto const byte = static_cast<unsigned>(value) & 0xFFu;
  for (int i = digits - 1; i >= 0; --i) {
    // Shifting an unsigned by 32 or more is undefined; such nibbles are zero.
    unsigned const nibble = 4 * i < 8 ? (byte >> (4 * i)) & 0xFu : 0u;
    *out++ = static_cast<char>(nibble < 10 ? '0' + nibble : 'A' + (nibble - 10));
  }
  return out;
}

} // namespace text
