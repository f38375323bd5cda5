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

#include "charset/detect.h"
#include "charset/iconv_convert.h"
#include "charset/iconv_descriptor.h"
#include "charset/japanese.h"
#include "charset/single_byte.h"
#include "charset/surrogates.h"
#include "charset/utf8.h"
#include "charset/windows_japanese.h"
#include "text/ascii.h"
#include "text/format.h"
#include "text/utf8.h"

#include <boost/locale/utf.hpp>

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

// The guessing reading. Mail programs show text whose label is missing,
// too narrow or wrong by what its bytes say: UTF-8 when they are UTF-8,
// whatever the label, and otherwise the charset a detector recognises, with
// windows-1252 (a superset of Latin-1 that every such program uses for
// Latin-1) when nothing is recognised. The steps below only rewrite the label
// where they can, so that the conversion after them is the labelled
// reading's own; they write the text themselves only where that has no
// equivalent: UTF-8 with U+FFFD for its few ill-formed sequences, and
// windows-1252 with the five bytes the code page leaves undefined read as
// the C1 controls of the same number, as browsers read them.

constexpr char replacement_character[] = "\xEF\xBF\xBD";

bool is_latin1_name(std::string_view name) {
  static constexpr std::string_view names[] = {
      "iso-8859-1", "iso8859-1", "iso_8859-1", "iso_8859-1:1987", "latin1",   "latin-1",     "l1",
      "cp819",      "ibm819",    "iso-ir-100", "csisolatin1",     "iso88591", "windows-1252"};
  return std::find(std::begin(names), std::end(names), name) != std::end(names);
}

// Labels whose text is made of 16- or 32-bit units or of 7-bit bytes alone:
// an 8-bit byte in them proves nothing about UTF-8.
bool is_wide_or_7bit_unicode(std::string_view name) {
  return name.starts_with("utf-16"sv) || name.starts_with("utf16"sv) || name.starts_with("utf-32"sv) ||
         name.starts_with("utf32"sv) || name.starts_with("ucs"sv) || name.starts_with("utf-7"sv) ||
         name.starts_with("utf7"sv) || name.starts_with("unicode"sv);
}

constexpr char16_t windows_1252_high[32] = {0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                            0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
                                            0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                            0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

void convert_windows_1252(char const* first, char const* last, sink_t const& out) {
  char buffer[1024];
  std::size_t used = 0;
  for (char const* p = first; p != last; ++p) {
    if (sizeof buffer - used < 3) {
      out(buffer, buffer + used);
      used = 0;
    }
    auto const c = static_cast<unsigned char>(*p);
    unsigned const u = c >= 0x80 && c < 0xA0 ? windows_1252_high[c - 0x80] : c;
    if (u < 0x80) {
      buffer[used++] = static_cast<char>(u);
    } else if (u < 0x800) {
      buffer[used++] = static_cast<char>(0xC0 | (u >> 6));
      buffer[used++] = static_cast<char>(0x80 | (u & 0x3F));
    } else {
      buffer[used++] = static_cast<char>(0xE0 | (u >> 12));
      buffer[used++] = static_cast<char>(0x80 | ((u >> 6) & 0x3F));
      buffer[used++] = static_cast<char>(0x80 | (u & 0x3F));
    }
  }
  out(buffer, buffer + used);
}

// UTF-8 damaged in a few places: at least three well-formed multi-byte
// characters for each ill-formed sequence. Text in a legacy charset makes
// almost nothing but ill-formed sequences, so the count gives up once the
// bad ones outnumber the good (after the first few).
bool is_mostly_utf8(char const* first, char const* last) {
  using traits = boost::locale::utf::utf_traits<char>;
  std::uint64_t good = 0, bad = 0;
  for (char const* p = first; p != last;) {
    // Runs of ASCII, eight bytes at a time.
    std::uint64_t word;
    if (last - p >= 8 && (std::memcpy(&word, p, 8), (word & 0x8080808080808080) == 0)) {
      p += 8;
      continue;
    }
    if (static_cast<unsigned char>(*p) < 0x80) {
      ++p;
      continue;
    }
    char const* const start = p;
    auto const code_point = traits::decode(p, last);
    if (code_point == boost::locale::utf::illegal || code_point == boost::locale::utf::incomplete) {
      if (++bad > 4 && bad > good)
        return false;
      p = start + 1;
    } else {
      ++good;
    }
  }
  return bad != 0 && good >= 3 * bad;
}

std::string upper(std::string const& name) {
  return text::to_upper_copy(name);
}

// Reads [first, last) as UTF-8 with one U+FFFD for each ill-formed sequence.
void repair_utf8(char const* first, char const* last, sink_t const& out, handler_t* problems) {
  if (problems)
    problems->push_back(code_t::charset_invalid_sequence,
                        {{"context", "UTF-8, each ill-formed sequence read as U+FFFD"}});
  std::string const repaired = text::repair(std::string_view(first, static_cast<std::size_t>(last - first)));
  out(repaired.data(), repaired.data() + repaired.size());
}

// The charset a caller's fallback names, when it names one that tells more
// than "not UTF-8": the charset a message's other texts were found in.
std::string hinted(fallback_charset_t const& fallback) {
  std::string hint = fallback ? fallback() : std::string();
  if (hint == "iso-2022-jp"sv || ascii_encodings.is_ascii(hint) || (is_latin1_name(hint) && hint != "windows-1252"sv))
    return {};
  return hint;
}

// The label's verdict in the guessing reading, for text that holds 8-bit
// bytes (or an ESC): true when the text was written out, else charset is
// what the conversion reads it as.
bool guess_label(char const* first, char const* last, sink_t& out, std::string& charset,
                 fallback_charset_t const& fallback, handler_t* problems) {
  if (is_wide_or_7bit_unicode(charset))
    return false;
  bool const utf8_label = charset == "utf-8"sv || charset == "utf8"sv;
  if (utf8_label && utf8::is_well_formed(first, last)) {
    out(first, last);
    return true;
  }
  bool const ascii_name = ascii_encodings.is_ascii(charset);
  char const* const high = std::find_if(first, last, [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
  if (high == last) {
    // 7-bit text with an ESC: undeclared ISO-2022-JP, as the labelled reading
    // finds it. Guessing, an "us-ascii" that only the missing label implied
    // (or a sender wrote without thinking) holds it just as well, and
    // escapes are never meant to be shown.
    if (ascii_name) {
      static constexpr char jis[] = "\x1B$";
      if (!charset.empty() && std::search(first, last, jis, jis + 2) != last)
        charset.clear();
      relabel_ascii_text(first, last, charset, fallback, problems);
    }
    return false;
  }
  widen_label(charset);
  std::string const label = charset;
  if (utf8::is_valid(high, last)) {
    charset = "utf-8";
    if (problems && !utf8_label)
      problems->push_back(code_t::charset_label_ignored,
                          {{"description", text::format(pattern_of<code_t::charset_label_ignored>, label.c_str())}});
    return false;
  }
  if (is_mostly_utf8(high, last)) {
    repair_utf8(first, last, out, problems);
    return true;
  }
  bool const known = !ascii_name && !utf8_label &&
                     (is_latin1_name(charset) || windows_japanese_form(charset) != windows_japanese_t::none ||
                      open_descriptor(charset, "UTF-8"));
  if (known) {
    if (!is_latin1_name(charset))
      return false;
    // The table (single_byte.h) holds every byte but the five undefined ones.
    if (!convert_single_byte(first, last, out, "windows-1252"))
      convert_windows_1252(first, last, out);
    return true;
  }
  std::string detected = hinted(fallback);
  if (detected.empty())
    detected = detect_charset(first, last);
  if (detected.empty())
    detected = "windows-1252";
  if (problems) {
    code_t const code = label.empty() ? code_t::charset_eight_bit_undeclared
                        : ascii_name  ? code_t::charset_eight_bit_in_ascii
                                      : code_t::charset_eight_bit_unknown;
    std::string description = code == code_t::charset_eight_bit_undeclared ? std::string(text_of(code))
                              : code == code_t::charset_eight_bit_in_ascii
                                  ? text::format(pattern_of<code_t::charset_eight_bit_in_ascii>, label.c_str())
                                  : text::format(pattern_of<code_t::charset_eight_bit_unknown>, label.c_str());
    description += text::format(pattern_of<code_t::charset_fallback>, upper(detected).c_str());
    problems->push_back(
        code, {{"description", description}, {"context", hex_context(text::bytes_around(first, last, high, 20))}});
  }
  if (detected == "windows-1252"sv) {
    convert_windows_1252(first, last, out);
    return true;
  }
  charset = std::move(detected);
  return false;
}

// Appends [first, last) read as charset with a U+FFFD for each byte it
// cannot read, and counts those; stops counting (and appending) once more
// than a tenth of the bytes failed, which tells that charset is not the
// text's.
std::uint64_t convert_replacing(char const* first, char const* last, sink_t const& out, std::string const& charset) {
  auto const size = static_cast<std::uint64_t>(last - first);
  std::uint64_t errors = 0;
  while (first != last && errors * 10 <= size) {
    char const* const stop = detail::convert(first, last, out, charset, "UTF-8", nullptr, nullptr);
    if (stop == last)
      break;
    out(replacement_character, replacement_character + 3);
    ++errors;
    first = stop + 1;
  }
  return errors;
}

// A strict pass; where the label's charset cannot read the rest, a few bad
// bytes become U+FFFD, and many make the rest be read in the charset the
// detector finds for it (windows-1252 when it finds none).
void guess_with_retry(char const* first, char const* last, sink_t& out, std::string const& charset,
                      handler_t* problems) {
  char const* const stop = detail::convert(first, last, out, charset, "UTF-8", nullptr, problems);
  if (stop == last)
    return;
  std::string rest;
  auto rest_out = std::back_inserter(rest);
  if (convert_replacing(stop, last, sink_t(rest_out), charset) * 10 <= static_cast<std::uint64_t>(last - stop)) {
    out(rest.data(), rest.data() + rest.size());
    return;
  }
  std::string().swap(rest);
  std::string const detected = detect_charset(stop, last);
  if (problems)
    problems->push_back(code_t::charset_invalid_sequence,
                        {{"description", std::string(text_of(code_t::charset_invalid_sequence)) +
                                             text::format(pattern_of<code_t::charset_fallback>,
                                                          upper(detected.empty() ? "windows-1252" : detected).c_str())},
                         {"context", hex_context(text::bytes_around(first, last, stop, 20))}});
  if (detected.empty() || detected == "windows-1252"sv || detected == charset)
    convert_windows_1252(stop, last, out);
  else
    convert_to_utf8(
        stop, last, out, detected, [] { return std::string(); }, problems, policy_t::labelled);
}

} // namespace

void convert_to_utf8(char const* first, char const* last, sink_t out, std::string charset,
                     fallback_charset_t const& fallback, handler_t* problems, policy_t policy) {
  if (first == last || pass_plain_ascii(first, last, out, charset, problems))
    return;
  if (charset == "ascii"sv) {
    if (problems)
      problems->push_back(code_t::charset_ascii_label, {{"context", charset}});
    charset = "us-ascii";
  }
  bool const guess = policy == policy_t::guess;
  if (guess) {
    if (guess_label(first, last, out, charset, fallback, problems))
      return;
  } else if (ascii_encodings.is_ascii(charset)) {
    relabel_ascii_text(first, last, charset, fallback, problems);
  } else if (charset != "utf-8"sv) {
    relabel_utf8_text(first, last, charset, problems);
  }
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
  if (convert_single_byte(first, last, out, charset))
    return;
  if (guess)
    guess_with_retry(first, last, out, charset, problems);
  else
    convert_with_retry(first, last, out, charset, problems);
}

} // namespace detail

} // namespace charset
