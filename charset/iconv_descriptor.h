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
//    other escape as at an undecodable sequence.
#pragma once

#include <iconv.h>

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

// The outcome of looking at the escape sequence that starts at p.
enum class escape_t { defined, undefined, truncated };
escape_t classify_escape(char const* escapes, char const* p, char const* last, std::size_t& length);

// True for the names of UTF-8 itself.
bool is_utf8_name(std::string_view charset);

} // namespace charset::detail
