// SPDX-License-Identifier: MIT
#include "hosts/cli/output.h"

#include "importer/import.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include <boost/locale/utf.hpp>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace cli {
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

// Paths are bytes; JSON wants UTF-8.
std::string valid_utf8(std::string_view bytes) {
  if (importer::is_well_formed_utf8(bytes))
    return std::string(bytes);
  std::string out;
  each_utf8_run(
      bytes, [&](char const* first, char const* last) { out.append(first, last); },
      [&](unsigned char) { out += "\xEF\xBF\xBD"; });
  return out;
}

struct date_parts_t {
  int year;
  unsigned month, day;
  long hours, minutes, seconds;
};

date_parts_t split(importer::instant_t instant) {
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

// The text in quotes, escaped a slice at a time so that a printer that
// spills never holds more than a slice of it escaped.
void append_quoted(printer_t& out, std::string_view text) {
  constexpr std::size_t slice = 256 * 1024;
  out.text += '"';
  for (std::size_t at = 0; at < text.size(); at += slice) {
    append_escaped(out.text, text.substr(at, slice));
    out.maybe_spill();
  }
  out.text += '"';
}

// The same for a value that may hold bytes that are not UTF-8; a text that
// is well-formed, as nearly every one is, is not copied.
void append_utf8(printer_t& out, std::string_view text) {
  if (importer::is_well_formed_utf8(text))
    append_quoted(out, text);
  else
    append_quoted(out, valid_utf8(text));
}

void append_optional(printer_t& out, std::optional<std::string> const& text) {
  if (text)
    append_utf8(out, *text);
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

void append_mailboxes(printer_t& out, std::vector<tidewell::mailbox_t> const& list) {
  out.text += '[';
  append_each(out, list, [&](tidewell::mailbox_t const& mailbox) {
    out.text += "{\"name\":";
    append_utf8(out, mailbox.name);
    out.text += ",\"address\":";
    append_utf8(out, mailbox.address);
    out.text += '}';
  });
  out.text += ']';
}

void append_date(printer_t& out, std::optional<tidewell::date_t> const& date) {
  if (date)
    out.text.append(1, '"').append(rfc3339(*date)).append(1, '"');
  else
    out.text += "null";
}

// The local time of the date in its own zone, and its offset as +HH:MM.
struct local_t {
  date_parts_t parts;
  char sign;
  long hours, minutes;
};

local_t local_time(tidewell::date_t const& date) {
  long const offset = static_cast<long>(date.offset.count());
  long const magnitude = offset < 0 ? -offset : offset;
  return {split(date.instant + date.offset), offset < 0 ? '-' : '+', magnitude / 60, magnitude % 60};
}

// The problem's code, where it is in the message, its description and the
// context it was found in.
void append_full_problem(printer_t& out, tidewell::problem_t const& problem) {
  out.text += "{\"code\":\"";
  out.text += quern::error::name_of(problem.code);
  out.text += "\",\"offset\":";
  out.text += std::to_string(problem.offset);
  out.text += ",\"text\":";
  append_utf8(out, problem.text);
  out.text += ",\"context\":";
  append_utf8(out, problem.context);
  out.text += '}';
}

std::size_t printed_size(tidewell::message_t const& message) {
  auto const optional = [](std::optional<std::string> const& text) { return text ? text->size() : 0; };
  std::size_t size = 512 + optional(message.subject) + optional(message.message_id) + optional(message.in_reply_to);
  if (message.text)
    size += message.text->size() + message.text->size() / 16;
  for (auto const* list : {&message.from, &message.sender, &message.reply_to, &message.to, &message.cc, &message.bcc})
    for (tidewell::mailbox_t const& mailbox : *list)
      size += mailbox.name.size() + mailbox.address.size() + 24;
  for (std::string const& id : message.references)
    size += id.size() + 4;
  for (tidewell::attachment_t const& attachment : message.attachments)
    size += attachment.file_name.size() + attachment.media_type.size() + attachment.content_id.size() + 96;
  for (tidewell::problem_t const& problem : message.problems)
    size += problem.text.size() + problem.context.size() + 80;
  return size;
}

// What every record starts with, in both readings: where it came from,
// whether it was imported and, when it could not be read, why.
void append_record_head(record_t const& record, printer_t& out) {
  std::string& line = out.text;
  line += "\"path\":";
  append_quoted(out, valid_utf8(record.path));
  if (std::string const lossless = path_bytes(record.path); !lossless.empty()) {
    line += ",\"path_bytes\":";
    append_quoted(out, lossless);
  }
  if (record.message != 0)
    line += ",\"message\":" + std::to_string(record.message);
  line += record.imported ? ",\"imported\":true" : ",\"imported\":false";
  if (!record.error.empty()) {
    line += ",\"error\":";
    append_quoted(out, valid_utf8(record.error));
  }
}

void print_full_json_line(record_t const& record, printer_t& out) {
  tidewell::message_t const& message = *record.full;
  std::string& line = out.text;
  line.reserve(std::min(printed_size(record), printer_t::spill_at * 2));
  line += "{\"schema\":" + std::to_string(schema_version) + ",";
  append_record_head(record, out);
  line += ",\"subject\":";
  append_optional(out, message.subject);
  std::pair<char const*, std::vector<tidewell::mailbox_t> const*> const address_fields[] = {
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
  append_each(out, message.references, [&](std::string const& id) { append_utf8(out, id); });
  line += "],\"text\":";
  append_optional(out, message.text);
  line += ",\"attachments\":[";
  append_each(out, message.attachments, [&](tidewell::attachment_t const& attachment) {
    line += "{\"file_name\":";
    append_utf8(out, attachment.file_name);
    line += ",\"media_type\":";
    append_utf8(out, attachment.media_type);
    line += ",\"size\":" + std::to_string(attachment.size) + ",\"content_id\":";
    append_utf8(out, attachment.content_id);
    line += ",\"disposition\":";
    append_utf8(out, attachment.disposition);
    line += '}';
  });
  line += ']';
  if (record.full_problems) {
    line += ",\"problems\":[";
    append_each(out, message.problems, [&](tidewell::problem_t const& problem) { append_full_problem(out, problem); });
    line += ']';
  }
  if (message.cut)
    line += ",\"cut\":true";
  line += "}\n";
}

// The start of a "name = value" line of the listing.
void listing_name(std::string& out, char const* name) {
  char padded[32];
  std::snprintf(padded, sizeof padded, "%-11s = ", name);
  out += padded;
}

// A list in parentheses, one element a line, each written by write_one;
// nothing for an empty list.
template <typename List, typename Write>
void listing_list(printer_t& printer, char const* name, List const& list, Write&& write_one) {
  if (list.empty())
    return;
  listing_name(printer.text, name);
  printer.text += "(\n";
  for (std::size_t i = 0; i < list.size(); ++i) {
    printer.text += "    ";
    write_one(list[i]);
    printer.text += i + 1 < list.size() ? ",\n" : "\n";
  }
  printer.text += ")\n";
}

void print_full_listing(record_t const& record, printer_t& printer) {
  tidewell::message_t const& message = *record.full;
  std::string& out = printer.text;
  auto const text_line = [&](char const* name, std::optional<std::string> const& text) {
    if (!text)
      return;
    listing_name(out, name);
    append_utf8(printer, *text);
    out += '\n';
  };
  auto const date_line = [&](char const* name, std::optional<tidewell::date_t> const& date) {
    if (!date)
      return;
    listing_name(out, name);
    auto const [d, sign, hours, minutes] = local_time(*date);
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%04d-%02u-%02u %02ld:%02ld:%02ld %c%02ld%02ld\n", d.year, d.month, d.day,
                  d.hours, d.minutes, d.seconds, sign, hours, minutes);
    out += buffer;
  };
  // "Name" <address>, or either alone.
  auto const mailbox = [&](tidewell::mailbox_t const& m) {
    if (!m.name.empty())
      append_utf8(printer, m.name);
    if (!m.name.empty() && !m.address.empty())
      out += ' ';
    if (!m.address.empty()) {
      out += '<';
      append_escaped(out, valid_utf8(m.address));
      out += '>';
    }
  };
  text_line("subject", message.subject);
  std::pair<char const*, std::vector<tidewell::mailbox_t> const*> const address_fields[] = {
      {"from", &message.from}, {"sender", &message.sender}, {"reply_to", &message.reply_to},
      {"to", &message.to},     {"cc", &message.cc},         {"bcc", &message.bcc}};
  for (auto const& [name, list] : address_fields)
    listing_list(printer, name, *list, mailbox);
  date_line("date", message.date);
  date_line("received", message.received);
  text_line("message_id", message.message_id);
  text_line("in_reply_to", message.in_reply_to);
  listing_list(printer, "references", message.references, [&](std::string const& id) { append_utf8(printer, id); });
  text_line("text", message.text);
  // "name.pdf" application/pdf, 1234 bytes, attachment, <content-id>
  listing_list(printer, "attachments", message.attachments, [&](tidewell::attachment_t const& a) {
    append_utf8(printer, a.file_name);
    out += ' ' + valid_utf8(a.media_type) + ", " + std::to_string(a.size) + " bytes, " + valid_utf8(a.disposition);
    if (!a.content_id.empty())
      out += ", <" + valid_utf8(a.content_id) + '>';
  });

  bool const nothing = !message.subject && !message.date && !message.received && !message.message_id &&
                       !message.in_reply_to && !message.text && message.references.empty() &&
                       message.attachments.empty() &&
                       std::all_of(std::begin(address_fields), std::end(address_fields),
                                   [](auto const& field) { return field.second->empty(); });
  if (nothing)
    out += "  (nothing read)\n";
  // The context is quoted, so each problem stays one line.
  if (record.full_problems) {
    for (tidewell::problem_t const& problem : message.problems) {
      std::string text = valid_utf8(problem.text);
      std::replace(text.begin(), text.end(), '\n', ' ');
      out += "  problem: ";
      out += quern::error::name_of(problem.code);
      out += " at " + std::to_string(problem.offset) + ": " + text;
      if (!problem.context.empty()) {
        out += ": ";
        append_utf8(printer, problem.context);
      }
      out += '\n';
    }
  }
}

} // namespace

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

std::string rfc3339(tidewell::date_t const& date) {
  auto const [d, sign, hours, minutes] = local_time(date);
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%04d-%02u-%02uT%02ld:%02ld:%02ld%c%02ld:%02ld", d.year, d.month, d.day, d.hours,
                d.minutes, d.seconds, sign, hours, minutes);
  return buffer;
}

std::string iso8601(importer::instant_t instant) {
  auto const d = split(instant);
  if (d.year < 0 || d.year > 9999) {
    char buffer[48];
    std::snprintf(buffer, sizeof buffer, "%04d-%02u-%02uT%02ld:%02ld:%02ldZ", d.year, d.month, d.day, d.hours,
                  d.minutes, d.seconds);
    return buffer;
  }
  // The common case without a trip through the printf machinery.
  std::string text = "0000-00-00T00:00:00Z";
  auto const put = [&](std::size_t at, unsigned value, std::size_t digits) {
    for (std::size_t i = digits; i-- > 0; value /= 10)
      text[at + i] = static_cast<char>('0' + value % 10);
  };
  put(0, static_cast<unsigned>(d.year), 4);
  put(5, d.month, 2);
  put(8, d.day, 2);
  put(11, static_cast<unsigned>(d.hours), 2);
  put(14, static_cast<unsigned>(d.minutes), 2);
  put(17, static_cast<unsigned>(d.seconds), 2);
  return text;
}

std::size_t printed_size(record_t const& record) {
  if (record.full)
    return record.path.size() + printed_size(*record.full);
  std::size_t size = record.path.size() + 64;
  for (auto const& [name, value] : record.attributes) {
    size += name.size() + 32;
    if (auto const* text = std::get_if<std::string>(&value))
      size += text->size() + text->size() / 16;
    else if (auto const* list = std::get_if<std::vector<std::string>>(&value))
      for (std::string const& element : *list)
        size += element.size() + 8;
  }
  return size;
}

// Written straight into one string: building a JSON document only to
// serialise it cost more than the import of many messages.
void print_json_line(record_t const& record, printer_t& out) {
  if (record.full)
    return print_full_json_line(record, out);
  // Room for everything unescaped, so that most lines are written into
  // one allocation.
  std::string& line = out.text;
  line.reserve(std::min(printed_size(record), printer_t::spill_at * 2));
  line += "{";
  append_record_head(record, out);
  line += ",\"attributes\":{";
  bool first = true;
  for (auto const& [name, value] : record.attributes) {
    if (!first)
      line += ',';
    first = false;
    append_quoted(out, name);
    line += ':';
    if (auto const* text = std::get_if<std::string>(&value)) {
      append_quoted(out, *text);
    } else if (auto const* instant = std::get_if<importer::instant_t>(&value)) {
      append_quoted(out, iso8601(*instant));
    } else {
      line += '[';
      bool first_element = true;
      for (std::string const& element : std::get<std::vector<std::string>>(value)) {
        if (!first_element)
          line += ',';
        first_element = false;
        append_quoted(out, element);
      }
      line += ']';
    }
  }
  line += '}';
  if (record.problems) {
    line += ",\"problems\":[";
    bool first_problem = true;
    for (quern::error::record_t const& problem : *record.problems) {
      // Keys made alike by the UTF-8 repair share the first one's place and
      // keep the last one's value, as in a JSON object built key by key.
      std::vector<std::pair<std::string, std::string>> fields;
      for (auto const& [key, value] : problem) {
        std::string name = valid_utf8(key);
        auto const same = std::find_if(fields.begin(), fields.end(), [&](auto const& f) { return f.first == name; });
        if (same != fields.end())
          same->second = valid_utf8(value);
        else
          fields.emplace_back(std::move(name), valid_utf8(value));
      }
      line += first_problem ? "{" : ",{";
      first_problem = false;
      bool first_field = true;
      for (auto const& [key, value] : fields) {
        if (!first_field)
          line += ',';
        first_field = false;
        append_quoted(out, key);
        line += ':';
        append_quoted(out, value);
      }
      line += '}';
    }
    line += ']';
  }
  if (record.cut)
    line += ",\"cut\":true";
  line += "}\n";
}

std::string to_json_line(record_t const& record) {
  printer_t out;
  print_json_line(record, out);
  return std::move(out.text);
}

void print_listing(record_t const& record, printer_t& printer) {
  std::string& out = printer.text;
  std::string const lossless = path_bytes(record.path);
  out += lossless.empty() ? record.path : lossless;
  if (record.message != 0)
    out.append(":").append(std::to_string(record.message));
  out += "\n";
  if (!lossless.empty())
    out += "  (the path is not UTF-8: its other bytes are shown as %HH, and % as %25)\n";
  if (record.cut || (record.full && record.full->cut))
    out += "  (cut: only the start of the message was read)\n";
  if (!record.error.empty())
    out += "  (not imported: " + record.error + ")\n";
  else if (!record.imported)
    out += "  (not imported: not an e-mail message type)\n";
  else if (record.full)
    print_full_listing(record, printer);
  else if (record.attributes.empty())
    out += "  (no attributes)\n";
  for (auto const& [name, value] : record.attributes) {
    char padded[64];
    std::snprintf(padded, sizeof padded, "%-32s = ", name.c_str());
    out += padded;
    if (auto const* text = std::get_if<std::string>(&value)) {
      append_quoted(printer, *text);
      out += '\n';
    } else if (auto const* instant = std::get_if<importer::instant_t>(&value)) {
      auto const d = split(*instant);
      char buffer[48];
      std::snprintf(buffer, sizeof buffer, "%04d-%02u-%02u %02ld:%02ld:%02ld +0000\n", d.year, d.month, d.day, d.hours,
                    d.minutes, d.seconds);
      out += buffer;
    } else {
      out += "(\n";
      auto const& list = std::get<std::vector<std::string>>(value);
      for (std::size_t i = 0; i < list.size(); ++i) {
        out += "    ";
        append_quoted(printer, list[i]);
        out += i + 1 < list.size() ? ",\n" : "\n";
      }
      out += ")\n";
    }
  }
  if (record.problems) {
    // A problem's context may span lines; its continuation lines are
    // indented further so each problem stays one block.
    for (quern::error::record_t const& problem : *record.problems) {
      std::string line = "  problem: " + quern::error::to_s(problem);
      for (std::size_t at = 0; (at = line.find('\n', at)) != std::string::npos; at += 1)
        line.insert(at + 1, "    ");
      out += line + "\n";
    }
  }
  out += '\n';
}

std::string to_listing(record_t const& record) {
  printer_t out;
  print_listing(record, out);
  return std::move(out.text);
}

} // namespace cli
