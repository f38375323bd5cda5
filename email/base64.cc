// SPDX-License-Identifier: MIT
// The base64 decoder: one class table, a forward cursor and a run start that
// marks the first byte not yet decoded or copied, so that a line found to be
// undecodable can be copied whole without backtracking over the input.
// Letters are decoded four at a time straight into the caller's buffer; the
// bytes of a group still open are taken back if its line is passed through.
#include "email/base64.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <iterator>

#include "email/reinterpret_base.h"
#include "text/ascii.h"
#include "text/format.h"

namespace email {
namespace {

using quern::error::code_t, quern::error::pattern_of;
using text::is_blank;

constexpr std::array<unsigned char, 256> make_base64_table() {
  std::array<unsigned char, 256> table{};
  table.fill(kBase64IllegalCharacter);
  constexpr char letters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  for (unsigned i = 0; i < 64; ++i)
    table[static_cast<unsigned char>(letters[i])] = static_cast<unsigned char>(i);
  for (unsigned char c : {'\t', '\n', '\r', ' '})
    table[c] = kBase64WhitespaceCharacter;
  table['='] = kBase64EqualCharacter;
  return table;
}

} // namespace

unsigned char decode_base_64_function(unsigned char c) {
  static constexpr std::array<unsigned char, 256> Base64DecodingTable = make_base64_table();
  return Base64DecodingTable[c];
}

namespace {

// One decoding run over an output buffer that is as large as the input: the
// output never outgrows it, since four letters give three bytes and a line
// passed through replaces whatever its pending letters gave.
struct base64_run_t {
  char const* end;
  char* out;
  std::size_t written;
  // Bytes from pending_start on come from letters whose group is still
  // open; a line passed through takes them back.
  std::size_t pending_start;
  char const* run_start;   // where the bytes a pass-through copies begin
  std::size_t pending = 0; // letters in the open group
  std::uint32_t accumulator = 0;
  unsigned bits = 0;
  std::size_t passed_through = 0;
  bool cr_is_blank = false; // the full reading: a stray CR is white space too

  bool is_white(char c) const { return is_blank(c) || (cr_is_blank && c == '\r'); }

  char const* skip_white(char const* p) const {
    while (p != end && is_white(*p))
      ++p;
    return p;
  }

  void drop_pending() {
    pending = 0;
    accumulator = 0;
    bits = 0;
    pending_start = written;
  }

  // Copies everything from run_start to the end of the line holding from
  // (LF included), drops the pending letters and returns where the next
  // line starts.
  char const* pass_through(char const* from) {
    auto const* lf = static_cast<char const*>(std::memchr(from, '\n', static_cast<std::size_t>(end - from)));
    char const* const line_end = lf ? lf : end;
    char const* const next = lf ? lf + 1 : end;
    written = pending_start;
    std::memcpy(out + written, run_start, static_cast<std::size_t>(next - run_start));
    written += static_cast<std::size_t>(next - run_start);
    passed_through += static_cast<std::size_t>(line_end - run_start);
    drop_pending();
    run_start = next;
    return next;
  }

  // Decodes the letters from p on, four at a time while they last (the
  // accumulator holds fewer than eight bits between letters, so 24 more
  // always fit), then at most one more; returns where it stopped.
  char const* decode_letters(char const* p) {
    while (end - p >= 4) {
      unsigned const a = decode_base_64_function(static_cast<unsigned char>(p[0]));
      unsigned const b = decode_base_64_function(static_cast<unsigned char>(p[1]));
      unsigned const c = decode_base_64_function(static_cast<unsigned char>(p[2]));
      unsigned const d = decode_base_64_function(static_cast<unsigned char>(p[3]));
      if ((a | b | c | d) >= 64)
        break;
      accumulator = (accumulator << 24) | (a << 18) | (b << 12) | (c << 6) | d;
      out[written] = static_cast<char>(accumulator >> (bits + 16));
      out[written + 1] = static_cast<char>(accumulator >> (bits + 8));
      out[written + 2] = static_cast<char>(accumulator >> bits);
      written += 3;
      accumulator &= (std::uint32_t{1} << bits) - 1;
      pending += 4;
      p += 4;
    }
    if (p == end)
      return p;
    unsigned const v = decode_base_64_function(static_cast<unsigned char>(*p));
    if (v >= 64)
      return p;
    accumulator = (accumulator << 6) | v;
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      out[written++] = static_cast<char>(accumulator >> bits);
      accumulator &= (std::uint32_t{1} << bits) - 1;
    }
    ++pending;
    return p + 1;
  }

  // White space or '=' after letters ends a group. The '=' padding only
  // counts towards the group's length; the byte after it is examined anew.
  // In line mode anything but blanks after the group passes its line through.
  char const* end_group(char const* p, bool line_mode) {
    std::size_t group = pending;
    for (; p != end && *p == '='; ++p)
      ++group;
    if (line_mode && p != end) {
      p = skip_white(p);
      if (p != end) {
        if (*p != '\n')
          return pass_through(p);
        p = skip_white(p + 1);
      }
    }
    // A complete group's bytes are final; the bits left over are padding.
    if (!line_mode || group % 4 == 0)
      drop_pending();
    run_start = p;
    return p;
  }
};

} // namespace

void decode_base_64_append(char const* begin, char const* end, bool line_mode, std::vector<char>& result,
                           quern::error::handler_t* problems, bool blank_lines_empty) {
  while (begin != end && *begin == '\n')
    ++begin;
  if (begin == end)
    return;
  std::size_t const base = result.size();
  result.resize(base + static_cast<std::size_t>(end - begin));
  base64_run_t run{end, result.data(), base, base, begin};
  run.cr_is_blank = blank_lines_empty;
  char const* p = begin;
  while (p != end) {
    unsigned char const value = decode_base_64_function(static_cast<unsigned char>(*p));
    if (value < 64)
      p = run.decode_letters(p);
    else if (run.pending == 0 && (run.is_white(*p) || (blank_lines_empty && *p == '\n')))
      ++p; // run_start stays: a line passed through later keeps the white space before it
    else if (run.pending == 0 || value == kBase64IllegalCharacter)
      p = run.pass_through(p);
    else
      p = run.end_group(p, line_mode);
  }
  if (problems && run.passed_through != 0)
    problems->push_back(code_t::base64_passed_through,
                        {{"description", text::format(pattern_of<code_t::base64_passed_through>, run.passed_through)}});
  result.resize(run.written);
}

namespace {

// 1 for a byte that is neither a letter nor LF, else 0; written with byte
// arithmetic and a single comparison for equality, so that a loop of it
// turns into vector instructions.
inline std::uint8_t is_not_letter_or_lf(std::uint8_t c) {
  using u8 = std::uint8_t;
  u8 const alpha = static_cast<u8>(static_cast<u8>(c | 0x20) - u8('a'));
  u8 const digit = static_cast<u8>(c - u8('0'));
  u8 const other = std::min(std::min(u8(c ^ u8('+')), u8(c ^ u8('/'))), u8(c ^ u8('\n')));
  return static_cast<u8>(!((alpha < u8(26)) | (digit < u8(10)) | (other == 0)));
}

} // namespace

// Most of a large message is such a body, so where the processor has wider
// vectors the same loop is built for them too, and chosen when loaded.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__) && !defined(__SANITIZE_ADDRESS__)
__attribute__((target_clones("avx2", "default")))
#endif
std::optional<std::uint64_t>
plain_base64_size(char const* begin, char const* end) {
  // The padding, if any, is in the tail of '=' and line ends the body ends
  // with; an '=' anywhere else is not plain, which the letter test finds.
  char const* tail = end;
  while (tail != begin && (tail[-1] == '=' || tail[-1] == '\n'))
    --tail;
  auto const* equals = static_cast<char const*>(std::memchr(tail, '=', static_cast<std::size_t>(end - tail)));
  char const* const letters_end = equals ? equals : end;
  // Blocks of a fixed size, which the compiler widens even where it weighs
  // the cost of a loop of unknown length as too high.
  constexpr std::ptrdiff_t block = 64;
  std::uint8_t other = 0;
  std::uint64_t line_ends = 0;
  char const* p = begin;
  for (; letters_end - p >= block; p += block) {
    std::uint8_t lfs = 0;
    for (std::ptrdiff_t i = 0; i < block; ++i) {
      other |= is_not_letter_or_lf(static_cast<std::uint8_t>(p[i]));
      lfs += p[i] == '\n';
    }
    line_ends += lfs;
  }
  for (; p != letters_end; ++p) {
    other |= is_not_letter_or_lf(static_cast<std::uint8_t>(*p));
    line_ends += *p == '\n';
  }
  if (other)
    return std::nullopt;
  if (equals) {
    // Padding closes a group only right after a letter, and only line ends
    // may follow it; anything else is read line by line.
    if (equals == begin || equals[-1] == '\n')
      return std::nullopt;
    char const* q = equals;
    while (q != end && *q == '=')
      ++q;
    while (q != end && *q == '\n')
      ++q;
    if (q != end)
      return std::nullopt;
  }
  std::uint64_t const letters = static_cast<std::uint64_t>(letters_end - begin) - line_ends;
  return letters * 6 / 8;
}

std::vector<char> decode_base_64_data(char const* begin, char const* end, bool line_mode,
                                      quern::error::handler_t* problems) {
  std::vector<char> result;
  decode_base_64_append(begin, end, line_mode, result, problems);
  return result;
}

std::string decode_base_64(char const* begin, char const* end, quern::error::handler_t* problems,
                           std::string const& /*context*/) {
  std::vector<char> const bytes = decode_base_64_data(begin, end, false, problems);
  return std::string(bytes.begin(), bytes.end());
}

} // namespace email
