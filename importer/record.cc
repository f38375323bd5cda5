// SPDX-License-Identifier: MIT
#include "importer/record.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <system_error>
#include <utility>
#include <vector>

#include <boost/locale/utf.hpp>

#include "importer/import.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace tidewell::record {
namespace {

template <typename Keep, typename Bad> void each_utf8_run(std::string_view bytes, Keep&& keep, Bad&& bad) {
  using traits = boost::locale::utf::utf_traits<char>;
  char const* p = bytes.data();
  char const* const end = p + bytes.size();
  while (p != end) {
    char const* start = p;
    auto const code_point = traits::decode(p, end);
    if (code_point == boost::locale::utf::illegal || code_point == boost::locale::utf::incomplete) {
      bad(static_cast<unsigned char>(*start));
      p = start + 1;
    } else {
      keep(start, p);
    }
  }
}

bool needs_escape(unsigned char c) {
  return c < 0x20 || c == '"' || c == '\\';
}

// Writes the escape of c at out; returns its length.
std::size_t write_escape(unsigned char c, char* out) {
  static constexpr char hex[] = "0123456789abcdef";
  out[0] = '\\';
  switch (c) {
  case '"':
  case '\\':
    out[1] = static_cast<char>(c);
    return 2;
  case '\b':
    out[1] = 'b';
    return 2;
  case '\f':
    out[1] = 'f';
    return 2;
  case '\n':
    out[1] = 'n';
    return 2;
  case '\r':
    out[1] = 'r';
    return 2;
  case '\t':
    out[1] = 't';
    return 2;
  default:
    std::memcpy(out + 1, "u00", 3);
    out[4] = hex[c >> 4];
    out[5] = hex[c & 15];
    return 6;
  }
}

} // namespace

// Appends text escaped as in a JSON string, with the escapes boost::json writes: the
// short forms for '"', '\\' and \b \f \n \r \t, \u00XX for the other control
// characters, every other byte as it is. Sixteen bytes (or eight) at a time
// are tested for anything to escape, as most text has nothing; a run of bytes
// to escape (a text of NULs) is written in one go.
void append_escaped(std::string& out, std::string_view text) {
  constexpr std::uint64_t ones = 0x0101010101010101, highs = 0x8080808080808080;
  auto const has_byte = [](std::uint64_t word, unsigned char c) {
    std::uint64_t const x = word ^ (ones * c);
    return ((x - ones) & ~x & highs) != 0;
  };
  char const* p = text.data();
  char const* const end = p + text.size();
  char const* run = p;
  while (p != end) {
#ifdef __SSE2__
    if (end - p >= 16) {
      __m128i const bytes = _mm_loadu_si128(reinterpret_cast<__m128i const*>(p));
      // A byte below 0x20 is its own maximum with 0x1F only if it is 0x1F or less.
      __m128i const control = _mm_cmpeq_epi8(_mm_max_epu8(bytes, _mm_set1_epi8(0x1F)), _mm_set1_epi8(0x1F));
      __m128i const special =
          _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('"')), _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\\')));
      // Straight to the first byte to escape, if any.
      int const found = _mm_movemask_epi8(_mm_or_si128(control, special));
      p += found == 0 ? 16 : __builtin_ctz(static_cast<unsigned>(found));
      if (found == 0)
        continue;
    }
#endif
    if (end - p >= 8) {
      std::uint64_t word;
      std::memcpy(&word, p, 8);
      bool const control = ((word - ones * 0x20) & ~word & highs) != 0;
      if (!control && !has_byte(word, '"') && !has_byte(word, '\\')) {
        p += 8;
        continue;
      }
    }
    if (!needs_escape(static_cast<unsigned char>(*p))) {
      ++p;
      continue;
    }
    out.append(run, p);
    char const* stop = p;
    while (stop != end && needs_escape(static_cast<unsigned char>(*stop)))
      ++stop;
    std::size_t const at = out.size();
    out.resize(at + 6 * static_cast<std::size_t>(stop - p));
    char* written = out.data() + at;
    for (; p != stop; ++p)
      written += write_escape(static_cast<unsigned char>(*p), written);
    out.resize(static_cast<std::size_t>(written - out.data()));
    run = p;
  }
  out.append(run, end);
}

namespace {

void append_optional(printer_t& out, std::optional<std::string> const& text) {
  if (text)
    append_string(out, *text);
  else
    out.text += "null";
}

// Writes the elements of list, comma-separated, each by write_one.
template <typename List, typename Write> void append_each(printer_t& out, List const& list, Write&& write_one) {
  bool first = true;
  for (auto const& element : list) {
    if (!first)
      out.text += ',';
    first = false;
    write_one(element);
  }
}

void append_mailboxes(printer_t& out, std::vector<mailbox_t> const& list) {
  out.text += '[';
  append_each(out, list, [&](mailbox_t const& mailbox) {
    out.text += "{\"name\":";
    append_string(out, mailbox.name);
    out.text += ",\"address\":";
    append_string(out, mailbox.address);
    out.text += '}';
  });
  out.text += ']';
}

void append_date(printer_t& out, std::optional<date_t> const& date) {
  if (date)
    out.text.append(1, '"').append(rfc3339(*date)).append(1, '"');
  else
    out.text += "null";
}

// The problem's code, where it is in the message, its description and the
// context it was found in.
void append_problem(printer_t& out, problem_t const& problem) {
  out.text += "{\"code\":\"";
  out.text += quern::error::name_of(problem.code);
  out.text += "\",\"offset\":";
  out.text += std::to_string(problem.offset);
  out.text += ",\"text\":";
  append_string(out, problem.text);
  out.text += ",\"context\":";
  append_string(out, problem.context);
  out.text += '}';
}

} // namespace

std::string repaired_utf8(std::string_view bytes) {
  if (importer::is_well_formed_utf8(bytes))
    return std::string(bytes);
  std::string out;
  out.reserve(bytes.size() + 8);
  each_utf8_run(
      bytes, [&](char const* first, char const* last) { out.append(first, last); },
      [&](unsigned char) { out += "\xEF\xBF\xBD"; });
  return out;
}

std::string path_bytes(std::string_view path) {
  if (importer::is_well_formed_utf8(path))
    return {};
  static constexpr char hex[] = "0123456789ABCDEF";
  std::string out;
  auto const escape = [&](unsigned char c) { out.append({'%', hex[c >> 4], hex[c & 15]}); };
  each_utf8_run(
      path,
      [&](char const* first, char const* last) {
        for (; first != last; ++first)
          if (*first == '%')
            escape('%');
          else
            out += *first;
      },
      escape);
  return out;
}

local_time_t utc_time(instant_t instant) {
  auto const days = std::chrono::floor<std::chrono::days>(instant);
  std::chrono::year_month_day const ymd{days};
  std::chrono::hh_mm_ss const time{instant - days};
  return {int(ymd.year()),
          unsigned(ymd.month()),
          unsigned(ymd.day()),
          long(time.hours().count()),
          long(time.minutes().count()),
          long(time.seconds().count())};
}

local_time_t local_time(date_t const& date) {
  return utc_time(date.instant + date.offset);
}

std::string rfc3339(date_t const& date) {
  local_time_t const d = local_time(date);
  long const offset = static_cast<long>(date.offset.count());
  long const magnitude = offset < 0 ? -offset : offset;
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%04d-%02u-%02uT%02ld:%02ld:%02ld%c%02ld:%02ld", d.year, d.month, d.day, d.hours,
                d.minutes, d.seconds, offset < 0 ? '-' : '+', magnitude / 60, magnitude % 60);
  return buffer;
}

// A slice at a time, so that a printer that spills never holds more than a
// slice of the text escaped.
void append_quoted(printer_t& out, std::string_view text) {
  constexpr std::size_t slice = 256 * 1024;
  out.text += '"';
  for (std::size_t at = 0; at < text.size(); at += slice) {
    append_escaped(out.text, text.substr(at, slice));
    out.maybe_spill();
  }
  out.text += '"';
}

// A text that is well-formed, as nearly every one is, is not copied.
void append_string(printer_t& out, std::string_view text) {
  if (importer::is_well_formed_utf8(text))
    append_quoted(out, text);
  else
    append_quoted(out, repaired_utf8(text));
}

void append_head(printer_t& out, source_t const& source) {
  std::string& line = out.text;
  line += "\"path\":";
  append_string(out, source.path);
  if (std::string const lossless = path_bytes(source.path); !lossless.empty()) {
    line += ",\"path_bytes\":";
    append_quoted(out, lossless);
  }
  if (source.message != 0)
    line += ",\"message\":" + std::to_string(source.message);
  line += source.imported ? ",\"imported\":true" : ",\"imported\":false";
  if (!source.error.empty()) {
    line += ",\"error\":";
    append_string(out, source.error);
  }
}

std::size_t printed_size(message_t const& message) {
  auto const optional = [](std::optional<std::string> const& text) { return text ? text->size() : 0; };
  std::size_t size = 512 + optional(message.subject) + optional(message.message_id) + optional(message.in_reply_to);
  if (message.text)
    size += message.text->size() + message.text->size() / 16;
  for (auto const* list : {&message.from, &message.sender, &message.reply_to, &message.to, &message.cc, &message.bcc})
    for (mailbox_t const& mailbox : *list)
      size += mailbox.name.size() + mailbox.address.size() + 24;
  for (std::string const& id : message.references)
    size += id.size() + 4;
  for (attachment_t const& attachment : message.attachments)
    size += attachment.file_name.size() + attachment.media_type.size() + attachment.content_id.size() + 96;
  for (problem_t const& problem : message.problems)
    size += problem.text.size() + problem.context.size() + 80;
  return size;
}

// Written straight into one string: building a JSON document only to
// serialise it cost more than the import of many messages.
void print_json(source_t const& source, message_t const* read, bool with_problems, printer_t& out) {
  static message_t const nothing;
  message_t const& message = read ? *read : nothing;
  std::string& line = out.text;
  line.reserve(std::min(source.path.size() + printed_size(message), printer_t::spill_at * 2));
  line += "{\"schema\":" + std::to_string(schema_version) + ",";
  append_head(out, source);
  line += ",\"subject\":";
  append_optional(out, message.subject);
  std::pair<char const*, std::vector<mailbox_t> const*> const address_fields[] = {
      {"from", &message.from}, {"sender", &message.sender}, {"reply_to", &message.reply_to},
      {"to", &message.to},     {"cc", &message.cc},         {"bcc", &message.bcc}};
  for (auto const& [key, list] : address_fields) {
    line.append(",\"").append(key).append("\":");
    append_mailboxes(out, *list);
  }
  line += ",\"date\":";
  append_date(out, message.date);
  line += ",\"received\":";
  append_date(out, message.received);
  line += ",\"message_id\":";
  append_optional(out, message.message_id);
  line += ",\"in_reply_to\":";
  append_optional(out, message.in_reply_to);
  line += ",\"references\":[";
  append_each(out, message.references, [&](std::string const& id) { append_string(out, id); });
  line += "],\"text\":";
  append_optional(out, message.text);
  line += ",\"attachments\":[";
  append_each(out, message.attachments, [&](attachment_t const& attachment) {
    line += "{\"file_name\":";
    append_string(out, attachment.file_name);
    line += ",\"media_type\":";
    append_string(out, attachment.media_type);
    line += ",\"size\":" + std::to_string(attachment.size) + ",\"content_id\":";
    append_string(out, attachment.content_id);
    line += ",\"disposition\":";
    append_string(out, attachment.disposition);
    line += '}';
  });
  line += ']';
  if (with_problems) {
    line += ",\"problems\":[";
    append_each(out, message.problems, [&](problem_t const& problem) { append_problem(out, problem); });
    line += ']';
  }
  if (message.cut)
    line += ",\"cut\":true";
  line += "}\n";
}

std::string to_json(source_t const& source, message_t const* message, bool with_problems) {
  printer_t out;
  print_json(source, message, with_problems, out);
  return std::move(out.text);
}

std::string not_regular(unsigned mode) {
  char const* kind = S_ISFIFO(mode)   ? "a FIFO; use - to read standard input"
                     : S_ISSOCK(mode) ? "a socket"
                     : S_ISCHR(mode)  ? "a character device"
                     : S_ISBLK(mode)  ? "a block device"
                     : S_ISDIR(mode)  ? "a directory"
                                      : "not a file";
  return std::string("not a regular file (") + kind + ")";
}

int open_regular(std::string const& path, std::string& error, int* error_number) {
  struct stat info;
  int fd = -1;
  int code = 0;
  if (::stat(path.c_str(), &info) != 0 ||
      (S_ISREG(info.st_mode) &&
       ((fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)) < 0 || ::fstat(fd, &info) != 0))) {
    code = errno;
    error = std::error_code(code, std::generic_category()).message();
  } else if (!S_ISREG(info.st_mode)) {
    error = not_regular(info.st_mode);
  } else {
    return fd;
  }
  if (error_number)
    *error_number = code;
  if (fd >= 0)
    ::close(fd);
  return -1;
}

message_t read_path(std::string const& path, options_t const& options, source_t& source) {
  source.path = path;
  source.imported = true;
  source.error.clear();
  source.error_number = 0;
  struct stat info;
  int error = 0;
  message_t message;
  if (::stat(path.c_str(), &info) != 0) {
    error = errno;
  } else if (!S_ISREG(info.st_mode)) {
    source.imported = false;
    source.error = not_regular(info.st_mode);
    return message;
  } else {
    std::error_code code;
    message = parse_file(path.c_str(), options, code);
    error = code.value();
  }
  if (error) {
    source.imported = false;
    source.error = std::error_code(error, std::generic_category()).message();
    source.error_number = error;
    return {};
  }
  return message;
}

} // namespace tidewell::record
