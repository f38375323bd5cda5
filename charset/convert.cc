// SPDX-License-Identifier: MIT
// convert_to_utf8: which charset a text is in, decided before the iconv
// engine (iconv_convert.cc) or the Japanese converter is asked to read it.
//
// Deciding costs at most a few passes over the bytes: one ASCII scan for
// texts labelled ASCII, one high-byte count that stops as soon as the label
// becomes doubtful, and one UTF-8 validity pass.
#include "charset/convert.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "charset/iconv_convert.h"
#include "charset/japanese.h"
#include "charset/single_byte.h"
#include "charset/surrogates.h"
#include "charset/utf8.h"
#include "charset/windows_japanese.h"
#include "text/ascii.h"
#include "text/format.h"

namespace charset {

using namespace std::string_view_literals;

ascii_encodings_t::ascii_encodings_t() {
  for (char const* name : {"", "ansi_x3.4-1968", "ansi_x3.4-1986", "ascii", "cp367", "ibm367", "iso-ir-6", "iso646-us",
                           "iso_646.irv:1991", "us", "us-ascii", "csascii", "", "unknown-8bit", "x-unknown"})
    names_.insert(name);
}

ascii_encodings_t::~ascii_encodings_t() = default;

ascii_encodings_t const ascii_encodings;

namespace {

using quern::error::code_t;
using quern::error::handler_t;
using quern::error::pattern_of;

std::string hex_context(std::pair<char const*, char const*> span) {
  std::string context;
  hex_print(span.first, span.second, std::back_inserter(context));
  return context;
}

// 8-bit byte at p in a text labelled ASCII (or not labelled at all). The
// record's code says what was wrong with the label; its description goes on
// to say how the text was read.
void eight_bit_in_ascii(char const* first, char const* last, char const* p, std::string& charset,
                        fallback_charset_t const& fallback, handler_t* problems) {
  code_t code = code_t::charset_eight_bit_in_ascii;
  std::string description;
  if (problems) {
    if (charset == "unknown-8bit"sv || charset == "x-unknown"sv) {
      code = code_t::charset_eight_bit_unknown;
      description = text::format(pattern_of<code_t::charset_eight_bit_unknown>, charset.c_str());
    } else if (charset.empty()) {
      code = code_t::charset_eight_bit_undeclared;
      description = text_of(code);
    } else {
      description = text::format(pattern_of<code_t::charset_eight_bit_in_ascii>, charset.c_str());
    }
  }
  auto const span = text::bytes_around(first, last, p, 20);
  if (utf8::is_valid(first, last)) {
    charset = "utf-8";
    if (problems) {
      std::string context;
      escape_whitespace(span.first, span.second, std::back_inserter(context));
      description += text_of(code_t::charset_valid_utf8);
      problems->push_back(code, {{"description", description}, {"context", context}});
    }
    return;
  }
  charset = fallback();
  if (problems) {
    description += text::format(pattern_of<code_t::charset_fallback>, text::to_upper_copy(charset).c_str());
    problems->push_back(code, {{"description", description}, {"context", hex_context(span)}});
  }
}

// No byte with the high bit set and no ESC. Eight bytes at a time: a word
// has an ESC when some byte of it XOR 0x1B is zero.
bool is_plain_ascii(char const* first, char const* last) {
  constexpr std::uint64_t ones = 0x0101010101010101, highs = 0x8080808080808080;
  for (; last - first >= 8; first += 8) {
    std::uint64_t word;
    std::memcpy(&word, first, 8);
    std::uint64_t const esc = word ^ (ones * 0x1B);
    if ((word & highs) != 0 || ((esc - ones) & ~esc & highs) != 0)
      return false;
  }
  for (; first != last; ++first)
    if (static_cast<unsigned char>(*first) >= 0x80 || *first == '\x1B')
      return false;
  return true;
}

// Turns NEC's circled numbers 1 to 10 (JIS row 13, right after a switch into
// JIS X 0208) into "(1)" to "(10)", which no ISO-2022-JP converter knows.
// Any other row-13 character right after the switch is dropped with the
// switch, as its row has no standard reading.
std::string rewrite_circled_numbers(char const* first, char const* last, std::string const& charset,
                                    handler_t* problems) {
  static constexpr char marker[] = "\x1B$B-";
  std::string result;
  result.reserve(static_cast<std::size_t>(last - first));
  bool recorded = false;
  char const* p = first;
  for (;;) {
    char const* q = std::search(p, last, marker, marker + 4);
    if (q == last || last - q <= 5)
      break;
    result.append(p, q);
    auto const c = static_cast<unsigned char>(q[4]);
    if (c >= 0x21 && c <= 0x2A) {
      result += '(';
      result += std::to_string(c - 0x20);
      result += ")\x1B$B";
      if (problems && !recorded) {
        recorded = true;
        problems->push_back(code_t::charset_circled_number,
                            {{"description", text::format(pattern_of<code_t::charset_circled_number>, charset.c_str())},
                             {"context", hex_context(text::bytes_around(first, last, q, 5))}});
      }
    }
    p = q + 5;
  }
  result.append(p, last);
  return result;
}

} // namespace

namespace detail {
namespace {

// Most header values and many bodies are 7-bit text under an ASCII name or
// none: they read as themselves in every charset they could be in, so iconv
// is not asked. An ESC may start ISO-2022 and takes the long way. A listener
// also hears about the ASCII names iconv does not know, so then only the two
// names that never give a problem are taken this way. True when done.
bool pass_plain_ascii(char const* first, char const* last, sink_t& out, std::string const& charset,
                      handler_t* problems) {
  bool const ascii_name = charset.empty() || charset == "us-ascii"sv ||
                          (!problems && charset != "ascii"sv && ascii_encodings.is_ascii(charset));
  if (!ascii_name || !is_plain_ascii(first, last))
    return false;
  out(first, last);
  return true;
}

// Text under an ASCII name: 8-bit bytes relabel it (see eight_bit_in_ascii),
// and undeclared text with ESC "$" is ISO-2022-JP, unless the caller's
// fallback says the text comes from somewhere that would not send it.
void relabel_ascii_text(char const* first, char const* last, std::string& charset, fallback_charset_t const& fallback,
                        handler_t* problems) {
  bool const undeclared = charset.empty();
  for (char const* p = first; p != last; ++p) {
    auto const c = static_cast<unsigned char>(*p);
    if (c >= 0x80) {
      eight_bit_in_ascii(first, last, p, charset, fallback, problems);
      return;
    }
    if (c != 0x1B || !undeclared)
      continue;
    bool const japanese_allowed = fallback() == "iso-2022-jp"sv || fallback().empty();
    if (japanese_allowed && last - p > 1 && p[1] == '$') {
      charset = "iso-2022-jp";
      if (problems)
        problems->push_back(code_t::charset_escape_in_undeclared,
                            {{"description", text::format(pattern_of<code_t::charset_escape_in_undeclared>,
                                                          charset.c_str(), text::to_upper_copy(charset).c_str())},
                             {"context", hex_context(text::bytes_around(first, last, p, 20))}});
      return;
    }
  }
}

// Text under another name that holds many 8-bit bytes and is valid UTF-8 was
// mislabelled: read it as UTF-8.
void relabel_utf8_text(char const* first, char const* last, std::string& charset, handler_t* problems) {
  std::uint64_t high = 0;
  for (char const* p = first; p != last && high <= max_valid_8bit_chars; ++p)
    if (static_cast<unsigned char>(*p) >= 0x80)
      ++high;
  if (high > max_valid_8bit_chars && utf8::is_valid(first, last)) {
    charset = "utf-8";
    if (problems)
      problems->push_back(code_t::charset_label_ignored,
                          {{"description", text::format(pattern_of<code_t::charset_label_ignored>, charset.c_str())}});
  }
}

// Labels whose text is better read under a wider or standard name.
void widen_label(std::string& charset) {
  if (charset == "gb2312"sv)
    charset = "gb18030";
  else if (charset == "ks_c_5601-1987"sv)
    charset = "euc-kr";
  else if (charset == "western"sv)
    charset = "iso-8859-1";
  else if (charset == "iso-8859-8-i"sv)
    charset = "iso-8859-8";
}

// A strict pass; where it breaks down, the rest is retried tolerantly, and
// if too much of it is undecodable, the label was wrong and ISO-8859-1 takes
// over.
void convert_with_retry(char const* first, char const* last, sink_t& out, std::string const& charset,
                        handler_t* problems) {
  char const* const stop = detail::convert(first, last, out, charset, "UTF-8", nullptr, problems);
  if (stop == last)
    return;
  std::uint64_t errors = 0;
  std::string tolerant;
  auto tolerant_out = std::back_inserter(tolerant);
  char const* const end = detail::convert(stop, last, sink_t(tolerant_out), charset, "UTF-8", &errors, problems);
  if (end == last && errors < static_cast<std::uint64_t>(last - stop) / 10)
    out(tolerant.data(), tolerant.data() + tolerant.size());
  else
    detail::convert(stop, last, out, "iso-8859-1", "UTF-8", &errors, problems);
}

} // namespace

void convert_to_utf8(char const* first, char const* last, sink_t out, std::string charset,
                     fallback_charset_t const& fallback, handler_t* problems, policy_t policy) {
  (void)policy; // the guessing reading is not yet different
  if (first == last || pass_plain_ascii(first, last, out, charset, problems))
    return;
  if (charset == "ascii"sv) {
    if (problems)
      problems->push_back(code_t::charset_ascii_label, {{"context", charset}});
    charset = "us-ascii";
  }
  if (ascii_encodings.is_ascii(charset))
    relabel_ascii_text(first, last, charset, fallback, problems);
  else if (charset != "utf-8"sv)
    relabel_utf8_text(first, last, charset, problems);
  widen_label(charset);

  if (charset == "us-ascii"sv) {
    out(first, last);
    return;
  }
  // Guessing, Japanese labels read as the Windows and phone mail programs
  // that write them mean them: with their vendors' characters.
  if (windows_japanese_t const form =
          policy == policy_t::guess ? windows_japanese_form(charset) : windows_japanese_t::none;
      form != windows_japanese_t::none) {
    detail::windows_japanese_convert(first, last, out, form, problems);
    return;
  }
  if (charset == "iso-2022-jp"sv || charset == "shift_jis"sv) {
    if (charset == "iso-2022-jp"sv)
      charset = "iso-2022-jp-3";
    std::string const rewritten = rewrite_circled_numbers(first, last, charset, problems);
    detail::japanese_convert(rewritten.data(), rewritten.data() + rewritten.size(), out, charset, problems);
    return;
  }
  // Well-formed UTF-8 holds no surrogates to repair and nothing to replace:
  // the conversion would copy it unchanged. (Only under names iconv knows: a
  // spelling it does not know takes the unknown-charset path.)
  if ((charset == "utf-8"sv || charset == "utf8"sv) && utf8::is_well_formed(first, last)) {
    out(first, last);
    return;
  }
  if (!convert_single_byte(first, last, out, charset))
    convert_with_retry(first, last, out, charset, problems);
}

} // namespace detail

} // namespace charset
