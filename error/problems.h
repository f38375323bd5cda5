// SPDX-License-Identifier: MIT
// What the parsers repair, as codes.
//
// Every problem a parser can record has a code and one fixed English text,
// listed once below. The text is what the record's "description" says (the
// command-line tool and the desktop hosts print it, so it must not change);
// the code is for programs, and its name (the enumerator's own spelling) is
// what a JSON consumer sees, so names must not change either: add new codes,
// never rename one.
//
// Texts with a % are printf patterns for text::format; the comment above each
// group says what they are filled with. Fill them from pattern_of<code>, which
// lets the compiler check the arguments against the pattern.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace quern::error {

#define TIDEWELL_QUOTED(s) "\xE2\x80\x9C" s "\xE2\x80\x9D"

// X(name, text). Grouped by the parser that records them; the order is the
// enumerators' order and otherwise means nothing.
#define TIDEWELL_PROBLEMS(X)                                                                                           \
  /* Dates. date_other_zone: the offset assumed, as a long long. */                                                    \
  X(date_dash, "Non-standard use of '-' ignored")                                                                      \
  X(date_two_digit_year_20xx,                                                                                          \
    "Two-digit years obsoleted in RFC2822 (parsed according to RFC822, but assumed to be 20xx instead of 19xx)")       \
  X(date_two_digit_year_19xx, "Two-digit years obsoleted in RFC2822 (parsed according to RFC822 as 19xx)")             \
  X(date_unsigned_zone, "Non-standard missing +/- in time zone")                                                       \
  X(date_zone_bounds, "Zone number is out of bounds (accepted anyway)")                                                \
  X(date_quoted_zone, "Non-standard double-quoted zone name")                                                          \
  X(date_zone_name, "Zone names obsoleted in RFC2822 (parsed according to RFC822)")                                    \
  X(date_other_zone, "Zone name does not exist in RFC822 (assumed to be %+05lld)")                                     \
  X(date_military_zone, "Military zone names obsoleted in RFC2822 (parsed according to RFC822)")                       \
  X(date_unknown_zone, "Non-parsable zone name ignored (assumed UTC)")                                                 \
  /* Encoded words in header fields. */                                                                                \
  X(encoded_word_empty_charset, "Non-existing charset (UTF-8 assumed)")                                                \
  X(encoded_word_quoted_charset, "Single quotes around charset ignored")                                               \
  X(encoded_word_illegal_in_q, "Quoted-printable encoded word contains one or more illegal characters")                \
  X(encoded_word_space_in_q, "Quoted-printable encoded word contains one or more spaces")                              \
  /* Transfer encodings: the encoding, then the type and subtype; the base64 */                                        \
  /* and quoted-printable counts are size_t. */                                                                        \
  X(encoding_multiple_words, "Encoding '%s' contains multiple words (ignoring anything but the first word)")           \
  X(encoding_is_charset,                                                                                               \
    "Encoding '%s' is unknown, but seems to be the charset of the message (7bit encoding assumed instead)")            \
  X(encoding_unknown, "Encoding '%s' is unknown. Now treated as application/octet-stream with a binary encoding")      \
  X(encoding_unknown_in_container, "Encoding '%s' is unknown, but it's a '%s/%s' (7bit encoding assumed instead)")     \
  X(encoding_allowed_anyway, "Encoding '%s' not allowed for body parts of type '%s' (allowing it anyway)")             \
  X(encoding_not_allowed, "Encoding '%s' not allowed for body parts of type '%s' (7bit assumed)")                      \
  X(encoding_uuencode, "Deprecated Content-Transfer-Encoding (x-uuencode), but Tidewell can handle it.")               \
  X(base64_passed_through, "Passed through %zu unexpected characters during base64 decoding.")                         \
  X(quoted_printable_unencoded_linefeeds,                                                                              \
    "Quoted-printable binary body part contains %zu unencoded linefeed(s) (LF). CR characters have been inserted.")    \
  X(quoted_printable_illegal_equals,                                                                                   \
    "Quoted-printable text contains %zu illegal use(s) of '='. They have been passed through.")                        \
  /* Format and delsp parameters. */                                                                                   \
  X(delsp_without_flowed, "Ignoring 'delsp=yes' since 'format!=flowed")                                                \
  X(flowed_in_html, "Ignoring 'format=flowed' which should not be used for text/html")                                 \
  X(delsp_in_html, "Ignoring 'delsp=yes' which should not be used for text/html")                                      \
  /* Multipart bodies. */                                                                                              \
  X(multipart_missing_newline, "Missing newline after boundary string at end of body part")                            \
  X(multipart_no_closing_boundary, "No closing MIME boundary found")                                                   \
  /* Charsets: the charset as declared (in quotes) or as assumed (in upper */                                          \
  /* case). charset_valid_utf8 and charset_fallback never stand alone: they */                                         \
  /* finish one of the three eight_bit texts, and the record has that one's */                                         \
  /* code. The two sequence texts are followed by " (iconv / charset)". */                                             \
  X(charset_ascii_label, "Non-standard charset is assumed to be 'us-ascii'")                                           \
  X(charset_eight_bit_unknown, "Charset is " TIDEWELL_QUOTED("%s") " and contains 8 bit characters.")                  \
  X(charset_eight_bit_undeclared, "Non-ASCII detected in string with no charset defined.")                             \
  X(charset_eight_bit_in_ascii, "Non-ASCII detected in string claimed to be ASCII (" TIDEWELL_QUOTED("%s") ").")       \
  X(charset_valid_utf8, " It is valid and assumed to be UTF-8.")                                                       \
  X(charset_fallback, " It is not valid UTF-8. Instead %s is assumed.")                                                \
  X(charset_escape_in_undeclared,                                                                                      \
    "Escape character detected in string (charset is " TIDEWELL_QUOTED("%s") "). Instead %s is assumed.")              \
  X(charset_label_ignored, "Ignored charset (%s) because the text is non-7bit and valid UTF-8.")                       \
  X(charset_circled_number,                                                                                            \
    "Non-standard circled number detected in Japanese encoding (charset is " TIDEWELL_QUOTED("%s") ")")                \
  X(charset_wider_variant,                                                                                             \
    "Escape sequence indicates the charset is " TIDEWELL_QUOTED("%s") " (and not " TIDEWELL_QUOTED("%s") ").")         \
  X(charset_unknown, "Unknown charset specified for conversion (iconv)")                                               \
  X(charset_unknown_utf8, "Unknown charset specified for conversion (iconv). Trying UTF-8 instead")                    \
  X(charset_invalid_sequence, "Invalid multibyte sequence encountered")                                                \
  X(charset_incomplete_sequence, "Incomplete multibyte sequence encountered")                                          \
  X(charset_cesu8, "Detected CESU-8 (converting to UTF-8).")                                                           \
  /* HTML parts: the depth limit, as a size_t. */                                                                      \
  X(html_too_deep, "HTML nested deeper than %zu elements (read flat below that)")

#define TIDEWELL_ENUMERATOR(name, text) name,
enum class code_t : std::uint8_t { TIDEWELL_PROBLEMS(TIDEWELL_ENUMERATOR) };
#undef TIDEWELL_ENUMERATOR

namespace detail {

struct problem_text_t {
  std::string_view name;
  std::string_view text;
};

#define TIDEWELL_ROW(name, text) problem_text_t{#name, text},
inline constexpr std::array problem_texts{TIDEWELL_PROBLEMS(TIDEWELL_ROW)};
#undef TIDEWELL_ROW

} // namespace detail

#undef TIDEWELL_PROBLEMS
#undef TIDEWELL_QUOTED

inline constexpr std::size_t code_count = detail::problem_texts.size();

constexpr std::string_view text_of(code_t code) {
  return detail::problem_texts[static_cast<std::size_t>(code)].text;
}

// The enumerator's name: "date_dash" for code_t::date_dash.
constexpr std::string_view name_of(code_t code) {
  return detail::problem_texts[static_cast<std::size_t>(code)].name;
}

// text_of(C) as a constant C string. The compiler checks printf arguments
// against a constant like this one, but not reliably against a text_of call.
template <code_t C> inline constexpr char const* pattern_of = text_of(C).data();

// The code whose name_of is name; nothing for a name no code has.
constexpr std::optional<code_t> code_named(std::string_view name) {
  for (std::size_t i = 0; i != code_count; ++i)
    if (detail::problem_texts[i].name == name)
      return static_cast<code_t>(i);
  return std::nullopt;
}

} // namespace quern::error
