// SPDX-License-Identifier: MIT
// ASCII character classes, ASCII case mapping and the span of input that a
// problem description quotes.
//
// Every character test of the parser reads one constexpr 256-entry table
// instead of the C library's <cctype> functions. Those answer according to
// the process locale, and a host (a desktop indexer, a Qt application) may
// well have called setlocale(LC_ALL, ""): under an 8-bit locale such as
// ISO-8859-1, isalnum, isprint and tolower also accept bytes above 0x7F, and
// the same message would give different attributes in different processes.
// The table holds the C locale's answers, so the classification is the C
// locale's by construction, whatever the host sets. Bytes from 0x80 up belong
// to no class, and to_lower/to_upper map only A-Z and a-z.
//
// The classes are those of the C locale (blank, digit, alpha, space, print,
// control) plus the two MIME sets the token scanner needs: the RFC 2045
// tspecials, which include NUL because that set was always tested with
// strchr, and RFC 2231 attribute-chars.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>

namespace text {

enum ascii_class_t : std::uint16_t {
  ascii_blank = 1 << 0,     // space, tab
  ascii_space = 1 << 1,     // space, \t \n \v \f \r (isspace)
  ascii_digit = 1 << 2,     // 0-9
  ascii_upper = 1 << 3,     // A-Z
  ascii_lower = 1 << 4,     // a-z
  ascii_print = 1 << 5,     // 0x20-0x7E (isprint)
  ascii_control = 1 << 6,   // 0x00-0x1F, 0x7F (iscntrl)
  ascii_tspecial = 1 << 7,  // ()<>@,;:\"/[]?= and NUL
  ascii_attribute = 1 << 8, // RFC 2231 attribute-char
  ascii_alpha = ascii_upper | ascii_lower,
  ascii_alnum = ascii_alpha | ascii_digit,
};

namespace detail {

constexpr std::array<std::uint16_t, 256> make_ascii_classes() {
  std::array<std::uint16_t, 256> table{};
  auto const add = [&table](int from, int to, std::uint16_t bits) {
    for (int c = from; c <= to; ++c)
      table[static_cast<std::size_t>(c)] |= bits;
  };
  add(' ', ' ', ascii_blank | ascii_space);
  add('\t', '\t', ascii_blank | ascii_space);
  add('\n', '\r', ascii_space); // \n \v \f \r
  add('0', '9', ascii_digit);
  add('A', 'Z', ascii_upper);
  add('a', 'z', ascii_lower);
  add(0x20, 0x7E, ascii_print);
  add(0x00, 0x1F, ascii_control);
  add(0x7F, 0x7F, ascii_control);
  constexpr char tspecials[] = "()<>@,;:\\\"/[]?=";
  for (char c : tspecials) // includes the terminating NUL on purpose
    table[static_cast<unsigned char>(c)] |= ascii_tspecial;
  // Printable ASCII but space, and neither a tspecial nor one of % ' *.
  for (int c = 0x21; c < 0x7F; ++c)
    if (!(table[static_cast<std::size_t>(c)] & ascii_tspecial) && c != '%' && c != '\'' && c != '*')
      table[static_cast<std::size_t>(c)] |= ascii_attribute;
  return table;
}

inline constexpr std::array<std::uint16_t, 256> ascii_classes = make_ascii_classes();

} // namespace detail

// True when c belongs to any of the classes in mask.
constexpr bool has_class(char c, std::uint16_t mask) {
  return (detail::ascii_classes[static_cast<unsigned char>(c)] & mask) != 0;
}

constexpr bool is_blank(char c) {
  return has_class(c, ascii_blank);
}
constexpr bool is_space(char c) {
  return has_class(c, ascii_space);
}
constexpr bool is_digit(char c) {
  return has_class(c, ascii_digit);
}
constexpr bool is_alpha(char c) {
  return has_class(c, ascii_alpha);
}
constexpr bool is_alnum(char c) {
  return has_class(c, ascii_alnum);
}
constexpr bool is_print(char c) {
  return has_class(c, ascii_print);
}
constexpr bool is_control(char c) {
  return has_class(c, ascii_control);
}

constexpr char to_lower(char c) {
  return has_class(c, ascii_upper) ? static_cast<char>(c - 'A' + 'a') : c;
}
constexpr char to_upper(char c) {
  return has_class(c, ascii_lower) ? static_cast<char>(c - 'a' + 'A') : c;
}

// Whether s, lower-cased, is lower (which is already in lower case).
constexpr bool equals_lower(std::string_view s, std::string_view lower) {
  if (s.size() != lower.size())
    return false;
  for (std::size_t i = 0; i != s.size(); ++i)
    if (to_lower(s[i]) != lower[i])
      return false;
  return true;
}

inline std::string to_lower_copy(std::string_view s) {
  std::string result(s);
  for (char& c : result)
    c = to_lower(c);
  return result;
}
inline std::string to_upper_copy(std::string_view s) {
  std::string result(s);
  for (char& c : result)
    c = to_upper(c);
  return result;
}

// The first byte of [p, end) that is not a blank.
constexpr char const* skip_blanks(char const* p, char const* end) {
  while (p != end && is_blank(*p))
    ++p;
  return p;
}

// The bytes a problem description quotes around p: up to radius bytes on
// each side, clipped to [first, last).
template <std::random_access_iterator It>
constexpr std::pair<It, It> bytes_around(It first, It last, It p, std::ptrdiff_t radius) {
  return {p - first > radius ? p - radius : first, last - p > radius ? p + radius : last};
}

} // namespace text
