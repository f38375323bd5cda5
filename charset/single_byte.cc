// SPDX-License-Identifier: MIT
#include "charset/single_byte.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "charset/iconv_descriptor.h"

namespace charset::detail {
namespace {

struct table_t {
  std::array<std::array<char, 3>, 256> utf8;
  std::array<unsigned char, 256> length; // 0: iconv does not decode the byte alone
  bool ascii_as_itself;                  // bytes below 0x80 map to themselves
};

bool ascii_word(char const* p, char const* last) {
  std::uint64_t word;
  return last - p >= 8 && (std::memcpy(&word, p, 8), (word & 0x8080808080808080) == 0);
}

// The names (lower case, as the converter receives them) of charsets that
// iconv decodes one byte at a time with no state.
bool is_single_byte_name(std::string_view name) {
  if (name.starts_with("iso-8859-"))
    return true;
  for (std::string_view prefix : {"windows-125", "cp125"})
    if (name.starts_with(prefix) && name.size() == prefix.size() + 1)
      return name.back() >= '0' && name.back() <= '7' && name.back() != '5';
  return name == "koi8-r" || name == "koi8-u";
}

// Null when iconv does not know the charset or a byte decodes to something
// the CESU-8 repair might touch (never in these charsets, but the table must
// not differ from the converter's output in any case).
std::unique_ptr<table_t> make_table(std::string const& charset) {
  descriptor_t const descriptor = open_descriptor(charset, "UTF-8");
  if (!descriptor)
    return nullptr;
  auto table = std::make_unique<table_t>();
  for (unsigned byte = 0; byte < 256; ++byte) {
    char in = static_cast<char>(byte);
    char* in_pointer = &in;
    std::size_t in_left = 1;
    char out[8];
    char* out_pointer = out;
    std::size_t out_left = sizeof out;
    iconv(descriptor.get(), nullptr, nullptr, nullptr, nullptr);
    std::size_t const status = iconv(descriptor.get(), &in_pointer, &in_left, &out_pointer, &out_left);
    auto const length = static_cast<std::size_t>(out_pointer - out);
    table->length[byte] = 0;
    if (status == static_cast<std::size_t>(-1) || in_left != 0 || length == 0)
      continue;
    if (length > 3 || static_cast<unsigned char>(out[0]) == 0xED)
      return nullptr;
    std::copy(out, out + length, table->utf8[byte].begin());
    table->length[byte] = static_cast<unsigned char>(length);
  }
  table->ascii_as_itself = true;
  for (unsigned byte = 0; byte < 0x80; ++byte)
    if (table->length[byte] != 1 || table->utf8[byte][0] != static_cast<char>(byte))
      table->ascii_as_itself = false;
  return table;
}

// This thread's tables, null where the charset has none. Odd names do not
// make it grow without bound: past a few dozen, texts go to iconv.
table_t const* table_for(std::string const& charset) {
  constexpr std::size_t max_tables = 32;
  thread_local std::vector<std::pair<std::string, std::unique_ptr<table_t>>> tables;
  for (auto const& [name, table] : tables)
    if (name == charset)
      return table.get();
  if (tables.size() == max_tables)
    return nullptr;
  return tables.emplace_back(charset, make_table(charset)).second.get();
}

} // namespace

bool convert_single_byte(char const* first, char const* last, sink_t const& out, std::string const& charset) {
  if (!is_single_byte_name(charset))
    return false;
  table_t const* const table = table_for(charset);
  if (!table)
    return false;
  // Mostly-ASCII text is taken eight bytes at a time where ASCII reads as
  // itself.
  bool const skip_ascii = table->ascii_as_itself;
  for (char const* p = first; p != last;) {
    if (skip_ascii && ascii_word(p, last)) {
      p += 8;
      continue;
    }
    if (table->length[static_cast<unsigned char>(*p++)] == 0)
      return false;
  }
  char buffer[4096];
  std::size_t used = 0;
  for (char const* p = first; p != last; ++p) {
    if (sizeof buffer - used < 8) {
      out(buffer, buffer + used);
      used = 0;
    }
    if (skip_ascii && ascii_word(p, last)) {
      std::memcpy(buffer + used, p, 8);
      used += 8;
      p += 7;
      continue;
    }
    auto const byte = static_cast<unsigned char>(*p);
    auto const& utf8 = table->utf8[byte];
    buffer[used] = utf8[0];
    buffer[used + 1] = utf8[1];
    buffer[used + 2] = utf8[2];
    used += table->length[byte];
  }
  out(buffer, buffer + used);
  return true;
}

} // namespace charset::detail
