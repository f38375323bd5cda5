// SPDX-License-Identifier: MIT
// iconv descriptors and what the platform's iconv needs around them.
//
// Opening a descriptor means looking up and loading converter modules, which
// costs far more than converting a header word. Descriptors are therefore kept
// in a small per-thread cache keyed by the pair of names and reset to their
// initial shift state whenever they are handed out; a descriptor in use is
// never handed out twice, so nested conversions get their own.
//
// Two gaps of glibc's iconv are closed here rather than in the callers:
//  - some charset names it does not know are mapped to the converter that
//    covers them (ISO-2022-JP-1 to ISO-2022-JP-2, ISO-2022-JP-4 to -3);
//  - its ISO-2022 decoders copy an escape sequence they do not know straight
//    to the output and carry on. The escape table below lists what each
//    variant really defines, so that the conversion loop can stop at any
//    other escape as at an undecodable sequence;
//  - its ISO-2022-JP decoders let control characters, space and DEL stand
//    inside a run of two-byte (or katakana) characters, so a line feed does
//    not end a run that was never switched back to ASCII; its EUC-KR, EUC-JP
//    and Big5 decoders read bytes those charsets do not use as C1 controls;
//  - its iconv_open ignores blanks and punctuation in a charset name, so
//    "iso-8859-1 " would be Latin-1. Such a name is unknown here, so that
//    text under it takes the path of any unknown charset.
#pragma once

#include <iconv.h>

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace charset::detail {

class descriptor_t {
public:
  descriptor_t() = default;
  descriptor_t(descriptor_t&& other) noexcept : slot_(other.slot_) { other.slot_ = nullptr; }
  descriptor_t& operator=(descriptor_t&& other) noexcept;
  ~descriptor_t();

  explicit operator bool() const { return slot_ != nullptr; }
  iconv_t get() const;

  struct slot_t;
  explicit descriptor_t(slot_t* slot) : slot_(slot) {}

private:
  slot_t* slot_ = nullptr;
};

// A descriptor from one charset to another, in its initial state; empty when
// iconv knows either name not.
descriptor_t open_descriptor(std::string const& from, std::string const& to);

// The escape sequences (without the ESC byte) that an ISO-2022 charset
// defines, as one string of entries separated by spaces; null when the
// charset is not ISO-2022 based and escapes need no checking.
char const* defined_escapes(std::string_view charset);

// The entries of such a string, one to three bytes each, ready to compare:
// text dense with escapes looks each one up.
struct escape_set_t {
  std::array<std::array<char, 3>, 16> bytes{};
  std::array<unsigned char, 16> sizes{};
  std::size_t count = 0;
};
escape_set_t parse_escapes(char const* escapes);

// The outcome of looking at the escape sequence that starts at p.
enum class escape_t { defined, undefined, truncated };
escape_t classify_escape(escape_set_t const& escapes, char const* p, char const* last, std::size_t& length);

// The kind of character set an ISO-2022-JP escape selects, which decides
// the bytes that may follow it: glibc passes control characters, space and
// DEL through inside a two-byte or katakana run, where they cannot stand.
enum class run_t { single, katakana, two_byte };

// What the escape (as found by classify_escape, ESC included) does to the
// current run: sets it, or leaves it (designations into G2). A single shift
// (ESC N) takes the one byte after it from G2, which skip_after tells.
struct shift_t {
  bool changes = false;
  run_t run = run_t::single;
  std::size_t skip_after = 0;
};
shift_t shift_of(char const* escape, std::size_t length);

// True for the ISO-2022-JP family, whose runs must be checked.
bool has_japanese_runs(std::string_view charset);

// Bytes that a multibyte charset never uses but glibc decodes anyway, as C1
// control characters (0x80 to 0x9F in EUC-KR, for instance): the predicate
// for them, or null when the charset has none.
using stray_byte_t = bool (*)(unsigned char);
stray_byte_t stray_bytes(std::string_view charset);

// True for the names of UTF-8 itself.
bool is_utf8_name(std::string_view charset);

} // namespace charset::detail
