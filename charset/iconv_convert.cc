// SPDX-License-Identifier: MIT
// The iconv engine: one labelled byte range through the platform's iconv
// into UTF-8 (or another charset), strict or tolerant.
//
// iconv writes through a fixed 1 KiB buffer; every full buffer converted to
// UTF-8 passes through the CESU-8 repair on its way out.
//
// Tolerant mode spells out every byte iconv cannot decode as the text <U+XX>
// (a byte below 0x80 as itself) and counts one error for it, then carries on
// after that byte. With GNU libiconv this is its fallback hook; with other
// iconv implementations the loop does the same where iconv reports EILSEQ.
// The loop also closes gaps of glibc, so that results do not depend on the
// platform's iconv: an escape sequence that an ISO-2022 variant does not
// define, a control character inside an ISO-2022-JP run of two-byte or
// katakana characters, and a byte that EUC-KR, EUC-JP or Big5 does not use
// each stop the conversion exactly like an undecodable byte (glibc would copy
// them to the output); and UTF-8 to UTF-8 is done here, so that encoded
// surrogates reach the repair and nothing above U+10FFFF reaches the output.
//
// The policy of which charset a text is in lives in convert.cc, above this
// and the Japanese converter; both call down into this file and nothing here
// calls back up.
#include "charset/iconv_convert.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "charset/iconv_descriptor.h"
#include "charset/surrogates.h"
#include "charset/utf8.h"
#include "text/ascii.h"
#include "text/format.h"

namespace charset {

using namespace std::string_view_literals;

namespace {

using quern::error::code_t;
using quern::error::handler_t;

using detail::classify_escape;
using detail::defined_escapes;
using detail::descriptor_t;
using detail::escape_set_t;
using detail::escape_t;
using detail::has_japanese_runs;
using detail::is_utf8_name;
using detail::open_descriptor;
using detail::parse_escapes;
using detail::run_t;
using detail::shift_of;
using detail::shift_t;
using detail::stray_byte_t;
using detail::stray_bytes;

std::string hex_context(std::pair<char const*, char const*> span) {
  std::string context;
  hex_print(span.first, span.second, std::back_inserter(context));
  return context;
}

// Sends one buffer of UTF-8 on, repairing CESU-8 pairs when it holds any.
void pass_on(char const* first, char const* last, bool to_utf8, sink_t const& out, handler_t* problems) {
  if (!to_utf8 || std::find(first, last, static_cast<char>(0xED)) == last) {
    out(first, last);
    return;
  }
  std::string repaired;
  surrogates_copy(first, last, std::back_inserter(repaired), problems);
  out(repaired.data(), repaired.data() + repaired.size());
}

// UTF-8 to UTF-8 with iconv's calling convention. The platform's converter
// cannot be used for this: glibc's lets code points above U+10FFFF through and
// rejects encoded surrogates, where the surrogates must reach the CESU-8
// repair and nothing beyond Unicode may reach the output. Accepted: the
// well-formed sequences plus ED A0..BF xx (a surrogate).
int copy_utf8(char const*& in, char const* limit, char*& out, std::size_t& out_left) {
  auto const byte = [](char const* p) { return static_cast<unsigned char>(*p); };
  while (in != limit) {
    unsigned const c = byte(in);
    std::size_t length = 1;
    unsigned low = 0x80, high = 0xBF; // range of the second byte
    if (c < 0x80) {
      length = 1;
    } else if (c >= 0xC2 && c <= 0xDF) {
      length = 2;
    } else if (c >= 0xE0 && c <= 0xEF) {
      length = 3;
      if (c == 0xE0)
        low = 0xA0;
    } else if (c >= 0xF0 && c <= 0xF4) {
      length = 4;
      if (c == 0xF0)
        low = 0x90;
      else if (c == 0xF4)
        high = 0x8F;
    } else {
      return EILSEQ;
    }
    std::size_t const available = static_cast<std::size_t>(limit - in);
    for (std::size_t i = 1; i < length && i < available; ++i) {
      unsigned const b = byte(in + i);
      if (i == 1 ? (b < low || b > high) : (b & 0xC0) != 0x80)
        return EILSEQ;
    }
    if (available < length)
      return EINVAL;
    if (out_left < length)
      return E2BIG;
    std::memcpy(out, in, length);
    in += length;
    out += length;
    out_left -= length;
  }
  return 0;
}

#ifdef _LIBICONV_VERSION
// libiconv's hook for bytes it cannot decode: spell each one out and count
// the sequence.
extern "C" void iconv_fallback(char const* inbuf, size_t inbufsize,
                               void (*write_replacement)(unsigned int const*, size_t, void*), void* callback_arg,
                               void* data) {
  if (data)
    ++*static_cast<std::uint64_t*>(data);
  for (size_t i = 0; i < inbufsize; ++i) {
    auto const c = static_cast<unsigned char>(inbuf[i]);
    unsigned int code_points[8];
    size_t count = 1;
    code_points[0] = c;
    if (c >= 0x80) {
      char spelled[9];
      std::snprintf(spelled, sizeof spelled, "<U+%04X>", c);
      for (count = 0; count < 8; ++count)
        code_points[count] = static_cast<unsigned char>(spelled[count]);
    }
    write_replacement(code_points, count, callback_arg);
  }
}
#endif

// The steps of detail::convert. Each full output buffer goes through the
// CESU-8 repair on its own, so a pair whose halves land in two buffers stays
// two lone surrogates. That is the long-standing behaviour of this converter,
// kept so results do not depend on who converts; the importer then drops such
// a value as ill-formed.
struct output_t {
  output_t(sink_t const& out, bool to_utf8, handler_t* problems) : out(out), to_utf8(to_utf8), problems(problems) {}

  sink_t const& out;
  bool const to_utf8;
  handler_t* const problems;
  char buffer[1024];
  std::size_t used = 0;

  void flush() {
    pass_on(buffer, buffer + used, to_utf8, out, problems);
    used = 0;
  }
  void append(char const* text, std::size_t size) {
    if (sizeof buffer - used < size)
      flush();
    std::memcpy(buffer + used, text, size);
    used += size;
  }
};

// The descriptor from source to to_charset. An unknown source fails, except
// in tolerant conversion to UTF-8, which reads the text as UTF-8 instead and
// sets source to that.
descriptor_t open_source(std::string& source, std::string const& to_charset, bool tolerant, handler_t* problems) {
  descriptor_t descriptor = open_descriptor(source, to_charset);
  if (descriptor)
    return descriptor;
  if (!tolerant || to_charset != "UTF-8"sv) {
    if (problems)
      problems->push_back(code_t::charset_unknown, {{"from_charset", source}, {"to_charset", to_charset}});
    return descriptor;
  }
  if (problems)
    problems->push_back(code_t::charset_unknown_utf8, {{"from_charset", source}, {"to_charset", to_charset}});
  source = "utf-8";
  return open_descriptor(source, to_charset);
}

void install_fallbacks([[maybe_unused]] iconv_t cd, [[maybe_unused]] std::uint64_t* error_count) {
#ifdef _LIBICONV_VERSION
  iconv_fallbacks fallbacks{};
  if (error_count) {
    fallbacks.mb_to_uc_fallback = &iconv_fallback;
    fallbacks.data = error_count;
  }
  iconvctl(cd, ICONV_SET_FALLBACKS, &fallbacks);
#endif
}

// How far iconv may read from in: to the end, or up to the first byte that
// it must not see, with error telling what stopping there means.
struct limit_t {
  char const* end;
  int error; // 0 when only the window ended
};

// Finds what iconv must not see of one conversion's input: escapes the
// ISO-2022 variant does not define, bytes an ISO-2022-JP run cannot hold, and
// bytes the charset does not use that glibc would read as C1 controls. Each
// of them stops the conversion exactly as an undecodable sequence would. The
// input is looked at one window at a time, each ending before the first such
// byte; windows grow as they are used up, so the input is looked at about as
// far ahead as the conversion gets, however often it is restarted.
//
// The guard follows the escapes as the converter does, so it knows the run a
// byte is in. A call starts where the converter stands, which is never before
// an escape the last call went past: the run found there still holds.
class guard_t {
public:
  explicit guard_t(std::string const& source)
      : escapes_(defined_escapes(source)), escape_set_(escapes_ ? parse_escapes(escapes_) : escape_set_t()),
        japanese_runs_(escapes_ && has_japanese_runs(source)), stray_(stray_bytes(source)) {}

  limit_t next(char const* in, char const* last, std::size_t window) {
    if (!escapes_ && !stray_)
      return {last, 0};
    char const* const horizon = static_cast<std::size_t>(last - in) > window ? in + window : last;
    char const* p = in;
    while (p < horizon) {
      auto const c = static_cast<unsigned char>(*p);
      if (c == 0x1B && escapes_) {
        std::size_t length = 0;
        escape_t const kind = classify_escape(escape_set_, p, last, length);
        if (kind != escape_t::defined)
          return {p, kind == escape_t::undefined ? EILSEQ : EINVAL};
        std::size_t skip = 0;
        if (japanese_runs_) {
          shift_t const shift = shift_of(p, length);
          if (shift.changes)
            run_ = shift.run;
          skip = shift.skip_after;
        }
        p += std::min(length + skip, static_cast<std::size_t>(last - p));
        continue;
      }
      if (stray_ && stray_(c))
        return {p, EILSEQ};
      if (run_ != run_t::single && (c < 0x21 || c >= 0x7F)) {
        // A lone byte at the end of a two-byte run is half a character,
        // whatever it is, as it would be in any run that breaks off there.
        return {p, run_ == run_t::two_byte && p + 1 == last ? EINVAL : EILSEQ};
      }
      ++p;
    }
    return {p, 0};
  }

private:
  char const* const escapes_;
  escape_set_t const escape_set_;
  bool const japanese_runs_;
  stray_byte_t const stray_;
  run_t run_ = run_t::single;
};

// One run of the converter over [in, limit) into the free part of the
// buffer; moves in past what it read and returns 0 or the errno value.
int run_converter(iconv_t cd, bool utf8_copy, char const*& in, char const* limit, output_t& output) {
  char* out_pointer = output.buffer + output.used;
  std::size_t out_left = sizeof output.buffer - output.used;
  int status = 0;
  if (utf8_copy) {
    status = copy_utf8(in, limit, out_pointer, out_left);
  } else {
    char* in_pointer = const_cast<char*>(in);
    std::size_t in_left = static_cast<std::size_t>(limit - in);
    if (in_left != 0 && iconv(cd, &in_pointer, &in_left, &out_pointer, &out_left) == static_cast<size_t>(-1))
      status = errno;
    in = in_pointer;
  }
  output.used = static_cast<std::size_t>(out_pointer - output.buffer);
  return status;
}

// Writes an undecodable byte as itself (below 0x80) or as the text <U+XX>.
void spell_undecodable(char byte, output_t& output, std::string const& to_charset) {
  auto const c = static_cast<unsigned char>(byte);
  char spelled[9];
  std::size_t size = 1;
  spelled[0] = static_cast<char>(c);
  if (c >= 0x80)
    size = static_cast<std::size_t>(std::snprintf(spelled, sizeof spelled, "<U+%04X>", c));
  if (output.to_utf8) {
    output.append(spelled, size);
    return;
  }
  output.flush();
  detail::convert(spelled, spelled + size, output.out, "UTF-8", to_charset, nullptr, output.problems);
}

// Converts from in up to last, or up to an error that tolerance does not
// cover; moves in to where it stopped and returns that error (0 at the end).
int convert_through(iconv_t cd, char const*& in, char const* last, std::string const& source,
                    std::string const& to_charset, std::uint64_t* error_count, output_t& output) {
  bool const utf8_copy = output.to_utf8 && is_utf8_name(source);
  guard_t guard(source);
  std::size_t window = 1024;
  limit_t limit = guard.next(in, last, window);
  for (;;) {
    // iconv gets at most a slice of the input per call. glibc's converters
    // that go through its internal form convert ahead of a full output
    // buffer and then redo the step to find where the output stopped, so
    // handing them all the remaining input made text with many shifts (a
    // million ISO-2022-JP escapes) an order of magnitude slower per byte. A
    // slice that ends inside a character or escape is incomplete, not wrong:
    // the next call resumes.
    constexpr std::size_t slice = 512;
    char const* const slice_end =
        !utf8_copy && static_cast<std::size_t>(limit.end - in) > slice ? in + slice : limit.end;
    int status = run_converter(cd, utf8_copy, in, slice_end, output);
    if (status == E2BIG) {
      output.flush();
      continue;
    }
    if (slice_end != limit.end && (status == 0 || status == EINVAL))
      continue;
    if (status == 0 || (status == EINVAL && limit.end != last)) {
      if (in == last)
        return 0;
      if (limit.error == 0) { // only the window ended (or cut a character)
        window *= 2;
        limit = guard.next(in, last, window);
        continue;
      }
      // A byte iconv must not see; a character cut off by it is invalid
      // rather than incomplete.
      status = in == limit.end ? limit.error : EILSEQ;
    }
    if (status != EILSEQ || !error_count)
      return status;
    ++*error_count;
    spell_undecodable(*in, output, to_charset);
    if (++in > limit.end)
      limit = guard.next(in, last, window);
  }
}

void report_stop(int error, std::string const& source, char const* first, char const* last, char const* in,
                 handler_t* problems) {
  code_t const code = error == EILSEQ ? code_t::charset_invalid_sequence : code_t::charset_incomplete_sequence;
  std::string description(text_of(code));
  description += " (iconv / " + source + ")";
  problems->push_back(
      code, {{"description", description}, {"context", hex_context(text::bytes_around(first, last, in, 10))}});
}

} // namespace

namespace detail {

char const* convert(char const* first, char const* last, sink_t out, std::string const& from_charset,
                    std::string const& to_charset, std::uint64_t* error_count, handler_t* problems) {
  if (first == last)
    return last;
  std::string source = from_charset;
  descriptor_t const descriptor = open_source(source, to_charset, error_count != nullptr, problems);
  if (!descriptor)
    return first;
  install_fallbacks(descriptor.get(), error_count);
  output_t output(out, to_charset == "UTF-8"sv, problems);
  char const* in = first;
  int const error = convert_through(descriptor.get(), in, last, source, to_charset, error_count, output);
  if (error != 0 && problems)
    report_stop(error, source, first, last, in, problems);
  output.flush();
  return in;
}

} // namespace detail

} // namespace charset
