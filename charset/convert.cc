// convert_to_utf8 decides how to read a text; convert runs iconv over it.
//
// Deciding costs at most a few passes over the bytes: one ASCII scan for
// texts labelled ASCII, one high-byte count that stops as soon as the label
// becomes doubtful, and one UTF-8 validity pass. iconv writes through a fixed
// 1 KiB buffer; every full buffer converted to UTF-8 passes through the
// CESU-8 repair on its way out.
//
// Tolerant mode spells out every byte iconv cannot decode as the text <U+XX>
// (a byte below 0x80 as itself) and counts one error for it, then carries on
// after that byte. With GNU libiconv this is its fallback hook; with other
// iconv implementations the loop does the same where iconv reports EILSEQ.
// The loop also closes gaps of glibc: an escape sequence that an ISO-2022
// variant does not define stops the conversion exactly like an undecodable
// byte (instead of being copied into the output), and UTF-8 to UTF-8 is done
// here, so that encoded surrogates reach the repair and nothing above U+10FFFF
// reaches the output.
#include "charset/convert.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "charset/iconv_descriptor.h"
#include "charset/japanese.h"
#include "charset/surrogates.h"
#include "charset/utf8.h"
#include "text/format.h"

namespace charset {

ascii_encodings_t::ascii_encodings_t() {
  for (char const* name : {"", "ansi_x3.4-1968", "ansi_x3.4-1986", "ascii", "cp367", "ibm367", "iso-ir-6", "iso646-us",
                           "iso_646.irv:1991", "us", "us-ascii", "csascii", "", "unknown-8bit", "x-unknown"})
    names_.insert(name);
}

ascii_encodings_t::~ascii_encodings_t() = default;

ascii_encodings_t const ascii_encodings;

namespace {

using quern::error::handler_t;

// The bytes around p that a problem description quotes: radius bytes each
// side, cut at the ends of the input.
std::pair<char const*, char const*> span_around(char const* first, char const* last, char const* p,
                                                std::ptrdiff_t radius) {
  return {p - first > radius ? p - radius : first, last - p > radius ? p + radius : last};
}

std::string hex_context(std::pair<char const*, char const*> span) {
  std::string context;
  hex_print(span.first, span.second, std::back_inserter(context));
  return context;
}

std::string upper(std::string text) {
  for (char& c : text)
    if (c >= 'a' && c <= 'z')
      c = static_cast<char>(c - 'a' + 'A');
  return text;
}

// 8-bit byte at p in a text labelled ASCII (or not labelled at all).
void eight_bit_in_ascii(char const* first, char const* last, char const* p, std::string& charset,
                        fallback_charset_t const& fallback, handler_t* problems) {
  std::string description;
  if (problems) {
    if (charset == "unknown-8bit" || charset == "x-unknown")
      description =
          text::format("Charset is \xE2\x80\x9C%s\xE2\x80\x9D and contains 8 bit characters.", charset.c_str());
    else if (charset.empty())
      description = "Non-ASCII detected in string with no charset defined.";
    else
      description = text::format("Non-ASCII detected in string claimed to be ASCII (\xE2\x80\x9C%s\xE2\x80\x9D).",
                                 charset.c_str());
  }
  auto const span = span_around(first, last, p, 20);
  if (utf8::is_valid(first, last)) {
    charset = "utf-8";
    if (problems) {
      std::string context;
      escape_whitespace(span.first, span.second, std::back_inserter(context));
      problems->push_back(
          {{"description", description + " It is valid and assumed to be UTF-8."}, {"context", context}});
    }
    return;
  }
  charset = fallback();
  if (problems)
    problems->push_back(
        {{"description", description + " It is not valid UTF-8. Instead " + upper(charset) + " is assumed."},
         {"context", hex_context(span)}});
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
        problems->push_back(
            {{"description", text::format("Non-standard circled number detected in Japanese encoding (charset is "
                                          "\xE2\x80\x9C%s\xE2\x80\x9D)",
                                          charset.c_str())},
             {"context", hex_context(span_around(first, last, q, 5))}});
      }
    }
    p = q + 5;
  }
  result.append(p, last);
  return result;
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

} // namespace

namespace detail {

char const* convert(char const* first, char const* last, sink_t out, std::string const& from_charset,
                    std::string const& to_charset, std::uint64_t* error_count, handler_t* problems) {
  if (first == last)
    return last;
  std::string source = from_charset;
  descriptor_t descriptor = open_descriptor(source, to_charset);
  if (!descriptor) {
    if (!error_count || to_charset != "UTF-8") {
      if (problems)
        problems->push_back({{"description", "Unknown charset specified for conversion (iconv)"},
                             {"from_charset", source},
                             {"to_charset", to_charset}});
      return first;
    }
    source = "utf-8";
    descriptor = open_descriptor(source, to_charset);
    if (problems)
      problems->push_back({{"description", "Unknown charset specified for conversion (iconv). Trying UTF-8 instead"},
                           {"from_charset", from_charset},
                           {"to_charset", to_charset}});
    if (!descriptor)
      return first;
  }
  iconv_t const cd = descriptor.get();
#ifdef _LIBICONV_VERSION
  iconv_fallbacks fallbacks{};
  if (error_count) {
    fallbacks.mb_to_uc_fallback = &iconv_fallback;
    fallbacks.data = error_count;
  }
  iconvctl(cd, ICONV_SET_FALLBACKS, &fallbacks);
#endif

  bool const to_utf8 = to_charset == "UTF-8";
  bool const utf8_copy = to_utf8 && is_utf8_name(source);
  char const* const escapes = defined_escapes(source);

  char buffer[1024];
  std::size_t used = 0;
  // Each full buffer goes through the CESU-8 repair on its own, so a pair
  // whose halves land in two buffers stays two lone surrogates. That is the
  // long-standing behaviour of this converter, kept so results do not depend
  // on who converts; the importer then drops such a value as ill-formed.
  auto const flush = [&] {
    pass_on(buffer, buffer + used, to_utf8, out, problems);
    used = 0;
  };
  auto const append = [&](char const* text, std::size_t size) {
    if (sizeof buffer - used < size)
      flush();
    std::memcpy(buffer + used, text, size);
    used += size;
  };

  // With escapes to check, iconv sees the input one window at a time, each
  // window ending before the first escape it must not see. Windows grow as
  // they are used up, so escapes are looked at about as far ahead as the
  // conversion gets, however often it is restarted.
  char const* in = first;
  char const* limit = last;
  int limit_error = 0; // what stopping at limit means, when limit is an escape
  std::size_t window = 1024;
  auto const next_limit = [&] {
    limit_error = 0;
    if (!escapes) {
      limit = last;
      return;
    }
    char const* const horizon = static_cast<std::size_t>(last - in) > window ? in + window : last;
    char const* p = in;
    while ((p = std::find(p, horizon, '\x1B')) != horizon) {
      std::size_t length = 0;
      escape_t const kind = classify_escape(escapes, p, last, length);
      if (kind != escape_t::defined) {
        limit = p;
        limit_error = kind == escape_t::undefined ? EILSEQ : EINVAL;
        return;
      }
      p += length;
      if (p >= horizon)
        break;
    }
    limit = std::max(p, horizon);
  };
  next_limit();

  // iconv gets at most a slice of the input per call. glibc's converters
  // that go through its internal form convert ahead of a full output buffer
  // and then redo the step to find where the output stopped, so handing them
  // all the remaining input made text with many shifts (a million ISO-2022-JP
  // escapes) an order of magnitude slower per byte. A slice that ends inside
  // a character or escape is incomplete, not wrong: the next call resumes.
  constexpr std::size_t slice = 512;
  int error = 0;
  for (;;) {
    char const* const slice_end = !utf8_copy && static_cast<std::size_t>(limit - in) > slice ? in + slice : limit;
    char* in_pointer = const_cast<char*>(in);
    std::size_t in_left = static_cast<std::size_t>(slice_end - in);
    char* out_pointer = buffer + used;
    std::size_t out_left = sizeof buffer - used;
    int status = 0;
    if (utf8_copy) {
      char const* copied = in;
      status = copy_utf8(copied, limit, out_pointer, out_left);
      in_pointer = const_cast<char*>(copied);
    } else if (in_left != 0 && iconv(cd, &in_pointer, &in_left, &out_pointer, &out_left) == static_cast<size_t>(-1)) {
      status = errno;
    }
    in = in_pointer;
    used = static_cast<std::size_t>(out_pointer - buffer);

    if (status == E2BIG) {
      flush();
      continue;
    }
    if (slice_end != limit && (status == 0 || status == EINVAL))
      continue;
    if (status == 0 || (status == EINVAL && limit != last)) {
      if (in == last)
        break;
      if (limit_error == 0) {
        // Only the window ended (or cut a character): look further.
        window *= 2;
        next_limit();
        continue;
      }
      // An escape iconv must not see; a character cut off by it is invalid
      // rather than incomplete.
      status = in == limit ? limit_error : EILSEQ;
    }
    if (status == EILSEQ && error_count) {
      ++*error_count;
      auto const c = static_cast<unsigned char>(*in);
      char spelled[9];
      std::size_t size = 1;
      spelled[0] = static_cast<char>(c);
      if (c >= 0x80)
        size = static_cast<std::size_t>(std::snprintf(spelled, sizeof spelled, "<U+%04X>", c));
      if (to_utf8) {
        append(spelled, size);
      } else {
        flush();
        detail::convert(spelled, spelled + size, out, "UTF-8", to_charset, nullptr, problems);
      }
      ++in;
      if (in > limit)
        next_limit();
      continue;
    }
    error = status;
    break;
  }

  if (error != 0 && problems) {
    std::string description =
        error == EILSEQ ? "Invalid multibyte sequence encountered" : "Incomplete multibyte sequence encountered";
    description += " (iconv / " + source + ")";
    problems->push_back({{"description", description}, {"context", hex_context(span_around(first, last, in, 10))}});
  }
  flush();
  return in;
}

void convert_to_utf8(char const* first, char const* last, sink_t out, std::string charset,
                     fallback_charset_t const& fallback, handler_t* problems) {
  if (first == last)
    return;
  if (charset == "ascii") {
    if (problems)
      problems->push_back({{"description", "Non-standard charset is assumed to be 'us-ascii'"}, {"context", charset}});
    charset = "us-ascii";
  }

  if (ascii_encodings.is_ascii(charset)) {
    bool const undeclared = charset.empty();
    for (char const* p = first; p != last; ++p) {
      auto const c = static_cast<unsigned char>(*p);
      if (c >= 0x80) {
        eight_bit_in_ascii(first, last, p, charset, fallback, problems);
        break;
      }
      if (c != 0x1B || !undeclared)
        continue;
      // Undeclared text with ESC "$" is ISO-2022-JP, unless the caller's
      // fallback says the text comes from somewhere that would not send it.
      bool const japanese_allowed = fallback() == "iso-2022-jp" || fallback().empty();
      if (japanese_allowed && last - p > 1 && p[1] == '$') {
        charset = "iso-2022-jp";
        if (problems)
          problems->push_back({{"description", text::format("Escape character detected in string (charset is "
                                                            "\xE2\x80\x9C%s\xE2\x80\x9D). Instead %s is assumed.",
                                                            charset.c_str(), upper(charset).c_str())},
                               {"context", hex_context(span_around(first, last, p, 20))}});
        break;
      }
    }
  } else if (charset != "utf-8") {
    std::uint64_t high = 0;
    for (char const* p = first; p != last && high <= max_valid_8bit_chars; ++p)
      if (static_cast<unsigned char>(*p) >= 0x80)
        ++high;
    if (high > max_valid_8bit_chars && utf8::is_valid(first, last)) {
      charset = "utf-8";
      if (problems)
        problems->push_back(
            {{"description",
              text::format("Ignored charset (%s) because the text is non-7bit and valid UTF-8.", charset.c_str())}});
    }
  }

  if (charset == "gb2312")
    charset = "gb18030";
  else if (charset == "ks_c_5601-1987")
    charset = "euc-kr";
  else if (charset == "western")
    charset = "iso-8859-1";
  else if (charset == "iso-8859-8-i")
    charset = "iso-8859-8";

  if (charset == "us-ascii") {
    out(first, last);
    return;
  }
  if (charset == "iso-2022-jp" || charset == "shift_jis") {
    if (charset == "iso-2022-jp")
      charset = "iso-2022-jp-3";
    std::string const rewritten = rewrite_circled_numbers(first, last, charset, problems);
    detail::japanese_convert(rewritten.data(), rewritten.data() + rewritten.size(), out, charset, problems);
    return;
  }

  char const* const stop = detail::convert(first, last, out, charset, "UTF-8", nullptr, problems);
  if (stop == last)
    return;
  // The strict pass broke down: retry the rest tolerantly, and if too much
  // of it is undecodable, the label was wrong and ISO-8859-1 takes over.
  std::uint64_t errors = 0;
  std::string tolerant;
  auto tolerant_out = std::back_inserter(tolerant);
  char const* const end = detail::convert(stop, last, sink_t(tolerant_out), charset, "UTF-8", &errors, problems);
  if (end == last && errors < static_cast<std::uint64_t>(last - stop) / 10)
    out(tolerant.data(), tolerant.data() + tolerant.size());
  else
    detail::convert(stop, last, out, "iso-8859-1", "UTF-8", &errors, problems);
}

} // namespace detail

} // namespace charset
