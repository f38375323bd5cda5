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

using tidewell::record::append_escaped;
using tidewell::record::append_quoted;
using tidewell::record::append_string;
using tidewell::record::path_bytes;
using tidewell::record::rfc3339;

// Paths are bytes; JSON wants UTF-8.
std::string valid_utf8(std::string_view bytes) {
  return tidewell::record::repaired_utf8(bytes);
}

using date_parts_t = tidewell::record::local_time_t;

date_parts_t split(importer::instant_t instant) {
  return tidewell::record::utc_time(instant);
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
  return {tidewell::record::local_time(date), offset < 0 ? '-' : '+', magnitude / 60, magnitude % 60};
}

// Where the record came from, as the library's JSON writer takes it.
tidewell::record::source_t source_of(record_t const& record) {
  return {record.path, record.message, record.imported, record.error, 0};
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
    append_string(printer, *text);
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
      append_string(printer, m.name);
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
  listing_list(printer, "references", message.references, [&](std::string const& id) { append_string(printer, id); });
  text_line("text", message.text);
  // "name.pdf" application/pdf, 1234 bytes, attachment, <content-id>
  listing_list(printer, "attachments", message.attachments, [&](tidewell::attachment_t const& a) {
    append_string(printer, a.file_name);
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
        append_string(printer, problem.context);
      }
      out += '\n';
    }
  }
}

} // namespace

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
    return record.path.size() + tidewell::record::printed_size(*record.full);
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
    return tidewell::record::print_json(source_of(record), &*record.full, record.full_problems, out);
  // Room for everything unescaped, so that most lines are written into
  // one allocation.
  std::string& line = out.text;
  line.reserve(std::min(printed_size(record), printer_t::spill_at * 2));
  line += "{";
  tidewell::record::append_head(out, source_of(record));
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
