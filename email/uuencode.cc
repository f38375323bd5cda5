// SPDX-License-Identifier: MIT
// The uuencode character table, built at compile time.
#include "email/uuencode.h"

#include <array>

namespace email {
namespace {

constexpr std::array<unsigned char, 256> make_uuencode_table() {
  std::array<unsigned char, 256> table{};
  table.fill(64);
  for (unsigned c = 0x20; c <= 0x5F; ++c)
    table[c] = static_cast<unsigned char>(c - 0x20);
  table[0x60] = 0;
  return table;
}

} // namespace

unsigned char decode_uuencode_function(unsigned char c) {
  static constexpr std::array<unsigned char, 256> DecodingTable = make_uuencode_table();
  return DecodingTable[c];
}

} // namespace email
