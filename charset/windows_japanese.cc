// SPDX-License-Identifier: MIT
// The Windows reading of Japanese text: an ISO-2022 escape scanner in front
// of the iconv engine's CP932.
//
// Code pages 932 and 50221 hold the same characters, laid out on JIS rows of
// 94 cells: JIS X 0208 in rows 1 to 94, NEC's specials in row 13, NEC's
// selection of IBM's extensions in rows 89 to 92, and the user-defined
// characters in rows 95 to 114. Shift_JIS is an arithmetic rearrangement of
// those rows, so the scanner rewrites each two-byte JIS code as its Shift_JIS
// bytes, drops the escapes, and the whole text goes through iconv as CP932 in
// one call (glibc has CP932 but no CP50221). Shift_JIS text goes to CP932 as
// it is. iconv stops only where a unit is undecodable; that unit is replaced
// and iconv resumes right after it, so the work stays linear in the input and
// the only buffer is one copy of the text.
//
// Escapes of the other ISO-2022-JP variants (JIS X 0212, JIS X 0213, the
// ISO-2022-JP-2 sets) are not CP50221's. The stretch from such an escape to
// the next escape that is hands over to the labelled Japanese converter,
// which reads those variants.
//
// ESC ( J (JIS-Roman) reads as ASCII, as Windows reads it: the mailers that
// wrote it used it to end a run of kanji, and a tilde in a URL after it is a
// tilde. A line feed ends any run of two-byte or katakana characters, since
// every line of such mail starts in ASCII.
#include "charset/windows_japanese.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string>
#include <vector>

#include "charset/japanese.h"
#include "charset/surrogates.h"
#include "text/ascii.h"

namespace charset {

using namespace std::string_view_literals;

windows_japanese_t windows_japanese_form(std::string_view charset) {
  static constexpr std::string_view jis[] = {"iso-2022-jp", "csiso2022jp", "cp50220", "cp50221", "cp50222"};
  static constexpr std::string_view shift_jis[] = {"shift_jis",   "shift-jis",  "sjis",        "x-sjis",
                                                   "ms_kanji",    "csshiftjis", "cp932",       "ms932",
                                                   "windows-31j", "x-ms-cp932", "cswindows31j"};
  if (std::find(std::begin(jis), std::end(jis), charset) != std::end(jis))
    return windows_japanese_t::jis;
  if (std::find(std::begin(shift_jis), std::end(shift_jis), charset) != std::end(shift_jis))
    return windows_japanese_t::shift_jis;
  return windows_japanese_t::none;
}

namespace detail {
namespace {

using quern::error::code_t;
using quern::error::handler_t;

unsigned byte(char c) {
  return static_cast<unsigned char>(c);
}

bool is_lead(unsigned c) {
  return (c >= 0x81 && c <= 0x9F) || (c >= 0xE0 && c <= 0xFC);
}

bool is_trail(unsigned c) {
  return c >= 0x40 && c <= 0xFC && c != 0x7F;
}

// Any byte CP932 refuses on its own: a stand-in for a unit the scanner
// already knows to be undecodable, replaced when iconv stops at it.
constexpr char refused = '\xFF';

void append_utf8(char32_t code_point, sink_t const& out) {
  // Only BMP code points from U+0800 are written here.
  char const bytes[] = {static_cast<char>(0xE0 | (code_point >> 12)),
                        static_cast<char>(0x80 | ((code_point >> 6) & 0x3F)),
                        static_cast<char>(0x80 | (code_point & 0x3F))};
  out(bytes, bytes + 3);
}

// Replaces the unit at p, which CP932 cannot decode, and returns its length:
// two bytes when it is a lead and trail byte, otherwise one.
//
// A pair that CP932 leaves undefined in JIS rows 85 to 94 becomes the private
// use character U+E000 + (row - 85) * 94 + (cell - 1). Those rows are where
// Windows' EUC-JP and eucJP-ms put user-defined characters, and where KDDI's
// phones put their emoji in ISO-2022-JP mail: a private-use code point keeps
// each one distinct and mappable later to a carrier's table, which is what
// CP932 itself does with its user-defined area (it is also glibc's EUC-JP-MS
// reading of the same codes). Any other undecodable pair is a hole in a
// standard row, which nobody assigns and which comes from damaged text, and
// a lone byte is half a character or none: both become U+FFFD.
std::size_t replace_unit(char const* p, char const* last, sink_t const& out) {
  unsigned const lead = byte(p[0]);
  if (!is_lead(lead) || last - p < 2 || !is_trail(byte(p[1]))) {
    append_utf8(0xFFFD, out);
    return 1;
  }
  unsigned const trail = byte(p[1]);
  unsigned row = (lead <= 0x9F ? lead - 0x81 : lead - 0xC1) * 2 + 1;
  unsigned cell = trail - (trail >= 0x80 ? 0x40 : 0x3F);
  if (trail >= 0x9F) {
    ++row;
    cell = trail - 0x9E;
  }
  append_utf8(row >= 85 && row <= 94 ? 0xE000 + (row - 85) * 94 + (cell - 1) : 0xFFFD, out);
  return 2;
}

// Decodes CP932 bytes into out; returns the first unit that had to be
// replaced, or null when there was none.
char const* read_cp932(char const* first, char const* last, sink_t const& out) {
  static std::string const cp932 = "cp932", utf8 = "UTF-8";
  char const* replaced = nullptr;
  while (first != last) {
    char const* const stop = detail::convert(first, last, out, cp932, utf8, nullptr, nullptr);
    if (stop == last)
      break;
    if (!replaced)
      replaced = stop;
    first = stop + replace_unit(stop, last, out);
  }
  return replaced;
}

// One record per text for what had to be replaced, quoting the bytes around
// the first such unit.
void record_replaced(char const* first, char const* last, char const* at, char const* reading, handler_t* problems) {
  if (!problems || !at)
    return;
  std::string description(text_of(code_t::charset_invalid_sequence));
  description += " (iconv / ";
  description += reading;
  description += ')';
  std::string context;
  auto const [from, to] = text::bytes_around(first, last, at, 10);
  hex_print(from, to, std::back_inserter(context));
  problems->push_back(code_t::charset_invalid_sequence, {{"description", description}, {"context", context}});
}

enum class jis_run_t { ascii, katakana, two_byte };

// An escape sequence by its ISO 2022 shape: ESC, intermediate bytes, one
// final byte.
struct escape_t {
  enum kind_t {
    designation, // a set CP50221 reads; run tells which
    announcer,   // says which edition of JIS X 0208 follows; changes nothing
    other_variant,
    unknown,   // well-formed, but no set this reading knows
    malformed, // ends before its final byte, or holds a byte no escape can
  } kind;
  jis_run_t run;
  std::size_t length;
};

escape_t escape_at(char const* p, char const* last) {
  char const* q = p + 1;
  while (q != last && byte(*q) >= 0x21 && byte(*q) <= 0x2F)
    ++q;
  if (q == last || byte(*q) < 0x30 || byte(*q) > 0x7E)
    return {escape_t::malformed, jis_run_t::ascii, static_cast<std::size_t>(q - p)};
  std::size_t const length = static_cast<std::size_t>(q + 1 - p);
  std::string_view const sequence(p + 1, length - 1);
  if (sequence == "(B"sv || sequence == "(J"sv || sequence == "(H"sv)
    return {escape_t::designation, jis_run_t::ascii, length};
  if (sequence == "(I"sv)
    return {escape_t::designation, jis_run_t::katakana, length};
  if (sequence == "$B"sv || sequence == "$@"sv || sequence == "$(B"sv || sequence == "$(@"sv)
    return {escape_t::designation, jis_run_t::two_byte, length};
  if (sequence == "&@"sv)
    return {escape_t::announcer, jis_run_t::ascii, length};
  for (std::string_view const variant : {"$(D"sv, "$A"sv, "$(C"sv, ".A"sv, ".F"sv, "N"sv, "$(O"sv, "$(P"sv, "$(Q"sv})
    if (sequence == variant)
      return {escape_t::other_variant, jis_run_t::ascii, length};
  return {escape_t::unknown, jis_run_t::ascii, length};
}

// The first escape at or after p that designates a set CP50221 reads.
char const* next_designation(char const* p, char const* last) {
  for (;; ++p) {
    p = std::find(p, last, '\x1B');
    if (p == last || escape_at(p, last).kind == escape_t::designation)
      return p;
  }
}

// ISO-2022-JP to a copy in CP932 bytes, converted whenever the text hands
// over to the labelled converter and at its end. While a collector listens,
// marks keep where the copy and the input line up again after the scanner
// dropped or shortened something, so that a problem can quote the input.
class jis_reader_t {
public:
  jis_reader_t(char const* first, char const* last, sink_t const& out, handler_t* problems)
      : first_(first), last_(last), out_(out), problems_(problems) {
    copy_.reserve(static_cast<std::size_t>(last - first));
  }

  void read();

private:
  struct mark_t {
    std::size_t offset; // in copy_
    char const* input;
  };
  static constexpr std::size_t max_marks = 1024;

  // Marks are needed only until the first replaced unit is known, and a
  // text full of escapes converts in pieces rather than keep a mark for each.
  void mark(char const* p) {
    if (!problems_ || replaced_)
      return;
    if (marks_.size() >= max_marks)
      flush();
    marks_.push_back({copy_.size(), p});
  }
  // A unit the scanner cannot read, length bytes long.
  void refuse(char const*& p, std::size_t length) {
    mark(p);
    copy_ += refused;
    p += length;
    mark(p);
  }
  void flush();

  char const* const first_;
  char const* const last_;
  sink_t const& out_;
  handler_t* const problems_;
  std::string copy_;
  std::vector<mark_t> marks_;
  char const* replaced_ = nullptr; // the first unit replaced, in the input
};

void jis_reader_t::flush() {
  char const* const stop = read_cp932(copy_.data(), copy_.data() + copy_.size(), out_);
  if (stop && !replaced_ && problems_) {
    auto const offset = static_cast<std::size_t>(stop - copy_.data());
    auto const after = std::upper_bound(marks_.begin(), marks_.end(), offset,
                                        [](std::size_t value, mark_t const& m) { return value < m.offset; });
    replaced_ = after == marks_.begin() ? first_ : std::prev(after)->input + (offset - std::prev(after)->offset);
  }
  copy_.clear();
  marks_.clear();
}

void jis_reader_t::read() {
  // The first byte of row 114, the last user-defined row.
  static constexpr unsigned last_row_byte = 0x92;
  jis_run_t run = jis_run_t::ascii, before_shift = jis_run_t::ascii;
  char const* p = first_;
  mark(p);
  while (p != last_) {
    unsigned const c = byte(*p);
    if (c == 0x1B) {
      escape_t const escape = escape_at(p, last_);
      if (escape.kind == escape_t::designation || escape.kind == escape_t::announcer) {
        if (escape.kind == escape_t::designation)
          run = escape.run;
        p += escape.length;
        mark(p);
      } else if (escape.kind == escape_t::other_variant) {
        flush();
        char const* const end = next_designation(p + escape.length, last_);
        detail::japanese_convert(p, end, out_, "iso-2022-jp-3", problems_);
        p = end;
        mark(p);
      } else {
        refuse(p, escape.length);
      }
      continue;
    }
    // SO and SI shift into half-width katakana and back, as code page 50222
    // writes it.
    if (c == 0x0E || c == 0x0F) {
      if (c == 0x0E) {
        if (run != jis_run_t::katakana)
          before_shift = run;
        run = jis_run_t::katakana;
      } else if (run == jis_run_t::katakana) {
        run = before_shift;
      }
      ++p;
      mark(p);
      continue;
    }
    if (c == '\n') {
      run = before_shift = jis_run_t::ascii;
      copy_ += '\n';
      ++p;
      continue;
    }
    if (run == jis_run_t::two_byte && c >= 0x21 && c <= last_row_byte && last_ - p >= 2 && byte(p[1]) >= 0x21 &&
        byte(p[1]) <= 0x7E) {
      // Row and cell to Shift_JIS; rows past 94 (first bytes 0x7F to 0x92)
      // continue into lead bytes 0xF0 to 0xF9, CP932's user-defined area.
      unsigned const row = c - 0x20, cell = byte(p[1]) - 0x20;
      copy_ += static_cast<char>((row + 1) / 2 + (row <= 62 ? 0x80 : 0xC0));
      copy_ += static_cast<char>(row % 2 == 0 ? cell + 0x9E : cell + 0x3F + (cell >= 64 ? 1 : 0));
      p += 2;
      continue;
    }
    if (run == jis_run_t::katakana && c >= 0x21 && c <= 0x5F) {
      copy_ += static_cast<char>(c + 0x80);
      ++p;
      continue;
    }
    if (run == jis_run_t::ascii && c < 0x80) {
      char const* q = p;
      while (q != last_ && byte(*q) < 0x80 && *q != '\x1B' && *q != '\n' && *q != '\x0E' && *q != '\x0F')
        ++q;
      copy_.append(p, q);
      p = q;
      continue;
    }
    // In any run, control characters, space and DEL stand for themselves,
    // and 8-bit bytes A1 to DF are half-width katakana (8-bit JIS).
    if (c < 0x21 || c == 0x7F || (c >= 0xA1 && c <= 0xDF)) {
      copy_ += *p++;
      continue;
    }
    refuse(p, 1);
  }
  flush();
  record_replaced(first_, last_, replaced_, "cp50221", problems_);
}

} // namespace

void windows_japanese_convert(char const* first, char const* last, sink_t out, windows_japanese_t form,
                              handler_t* problems) {
  if (form == windows_japanese_t::shift_jis) {
    record_replaced(first, last, read_cp932(first, last, out), "cp932", problems);
    return;
  }
  // Without a single escape the text is not ISO-2022-JP; the labelled
  // converter reads it as the EUC-JP such mail usually is.
  if (form != windows_japanese_t::jis || std::find(first, last, '\x1B') == last) {
    detail::japanese_convert(first, last, out, "iso-2022-jp-3", problems);
    return;
  }
  jis_reader_t(first, last, out, problems).read();
}

} // namespace detail

} // namespace charset
