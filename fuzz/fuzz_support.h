// SPDX-License-Identifier: MIT
// Shared pieces of the fuzz harnesses.
//
// Every harness copies libFuzzer's bytes into a buffer of exactly their size,
// so that AddressSanitizer catches a read one byte past the end, and checks a
// property that a correct core must keep, not only that nothing crashed: the
// same result with and without a problem collector listening, outputs that
// stay inside their inputs, round trips that give back what they promise.
// A broken property prints what differed and aborts, which libFuzzer records
// as a crash with the input that caused it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "importer/import.h"

namespace fuzz {

// libFuzzer's bytes, copied to an exact-size buffer, with a cursor that lets
// a harness take a few leading bytes as choices and the rest as the text.
class input_t {
public:
  input_t(std::uint8_t const* data, std::size_t size) : bytes_(data, data + size) {}

  // The next byte as a choice, 0 once the input is used up.
  std::uint8_t take_byte() { return at_ < bytes_.size() ? static_cast<std::uint8_t>(bytes_[at_++]) : 0; }

  // The bytes up to the next NUL (consumed, not included), or all that is left.
  std::string take_until_nul() {
    std::size_t const nul = std::string_view(bytes_.data(), bytes_.size()).find('\0', at_);
    std::size_t const stop = nul == std::string_view::npos ? bytes_.size() : nul;
    std::string part(bytes_.data() + at_, bytes_.data() + stop);
    at_ = nul == std::string_view::npos ? stop : stop + 1;
    return part;
  }

  // What is left, as its own exact-size buffer.
  std::vector<char> rest() const {
    return std::vector<char>(bytes_.begin() + static_cast<std::ptrdiff_t>(at_), bytes_.end());
  }

private:
  std::vector<char> bytes_;
  std::size_t at_ = 0;
};

[[noreturn]] inline void fail(char const* what, std::string_view left = {}, std::string_view right = {}) {
  std::fprintf(stderr, "property broken: %s\n  left:  %.*s\n  right: %.*s\n", what, static_cast<int>(left.size()),
               left.data(), static_cast<int>(right.size()), right.data());
  std::abort();
}

inline void expect_equal(char const* what, std::string_view left, std::string_view right) {
  if (left != right)
    fail(what, left, right);
}

// A readable dump of an attribute set, for comparing two imports.
inline std::string describe(importer::attribute_set_t const& attributes) {
  std::string out;
  for (auto const& [name, value] : attributes) {
    out += name + "=";
    if (auto const* text = std::get_if<std::string>(&value))
      out += *text;
    else if (auto const* list = std::get_if<std::vector<std::string>>(&value))
      for (auto const& element : *list)
        out += "[" + element + "]";
    else
      out += std::to_string(std::get<importer::instant_t>(value).time_since_epoch().count());
    out += "\n";
  }
  return out;
}

// Every string an import stores must be well-formed UTF-8: the hosts build
// platform strings from them, which refuse anything else.
inline void expect_well_formed(importer::attribute_set_t const& attributes) {
  for (auto const& [name, value] : attributes) {
    if (auto const* text = std::get_if<std::string>(&value); text && !importer::is_well_formed_utf8(*text))
      fail("ill-formed UTF-8 stored", name, *text);
    if (auto const* list = std::get_if<std::vector<std::string>>(&value))
      for (auto const& element : *list)
        if (!importer::is_well_formed_utf8(element))
          fail("ill-formed UTF-8 list element stored", name, element);
  }
}

// Charset labels as mail carries them, the Japanese family and junk included;
// harnesses pick one with an input byte.
inline constexpr std::array<char const*, 40> charset_names{"",
                                                           "us-ascii",
                                                           "utf-8",
                                                           "utf8",
                                                           "utf-7",
                                                           "utf-16",
                                                           "utf-16le",
                                                           "utf-16be",
                                                           "utf-32",
                                                           "iso-2022-jp",
                                                           "iso-2022-jp-1",
                                                           "iso-2022-jp-2",
                                                           "iso-2022-jp-3",
                                                           "shift_jis",
                                                           "sjis",
                                                           "cp932",
                                                           "euc-jp",
                                                           "gb2312",
                                                           "gbk",
                                                           "gb18030",
                                                           "big5",
                                                           "big5-hkscs",
                                                           "euc-kr",
                                                           "iso-2022-kr",
                                                           "koi8-r",
                                                           "koi8-u",
                                                           "windows-1250",
                                                           "windows-1251",
                                                           "windows-1252",
                                                           "windows-1255",
                                                           "windows-1258",
                                                           "tis-620",
                                                           "iso-8859-1",
                                                           "iso-8859-15",
                                                           "iso-8859-8-i",
                                                           "x-unknown",
                                                           "unknown-8bit",
                                                           "no-such-charset",
                                                           "iso-8859-1 ",
                                                           "ucs-4-internal"};

inline std::string pick_charset(std::uint8_t choice) {
  return charset_names[choice % charset_names.size()];
}

} // namespace fuzz
