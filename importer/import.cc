// SPDX-License-Identifier: MIT
#include "importer/import.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <iterator>

#include "charset/utf8.h"
#include "error/diagnostics.h"
#include "importer/file_mmap.h"
#include "text/line_ends.h"

namespace importer {
namespace {

// Processed in this order; a later row replaces an earlier value under the
// same attribute, and the three recipient rows share their attributes.
constexpr std::array<attribute_row_t, 9> rows{{
    {"subject", attribute::subject, {}, false},
    {"subject", attribute::display_name, {}, false},
    {"#text", attribute::text_content, {}, false},
    {"date", attribute::content_creation_date, {}, false},
    {"received", attribute::date_received, {}, false},
    {"from", attribute::authors, attribute::author_email_addresses, true},
    {"to", attribute::recipients, attribute::recipient_email_addresses, true},
    {"cc", attribute::recipients, attribute::recipient_email_addresses, true},
    {"bcc", attribute::recipients, attribute::recipient_email_addresses, true},
}};

bool read_number(std::string_view text, std::size_t at, std::size_t digits, int& value) {
  char const* first = text.data() + at;
  char const* last = first + digits;
  for (char const* p = first; p != last; ++p)
    if (*p < '0' || *p > '9')
      return false;
  std::from_chars(first, last, value);
  return true;
}

} // namespace

email::header_set_t const& wanted_headers() {
  static email::header_set_t const wanted{"from",
                                          "to",
                                          "cc",
                                          "bcc",
                                          "subject",
                                          "date",
                                          "received",
                                          "content-type",
                                          "content-transfer-encoding",
                                          "content-disposition"};
  return wanted;
}

namespace {

email::header_map_t parse_lf_bytes(char const* first, char const* last, email::header_set_t const& wanted,
                                   options_t const& options) {
  email::header_map_t result;
  if (first == last)
    return result;
  char const* cursor = first;
  result = email::quick_parse_headers(cursor, last, wanted, options.problems);
  std::string text = email::parse_body(cursor, last, result, true, options.problems);
  result.insert_or_assign("#text", std::move(text));
  return result;
}

} // namespace

email::header_map_t parse_email(std::string const& path, email::header_set_t const& wanted, bool* readable,
                                options_t const& options) {
  file_mmap_t const file(path);
  if (readable)
    *readable = file.readable();
  // A mapping that failed for any reason but memory leaves a null start with
  // a non-zero size; such a file is read as empty.
  if (file.size() == 0 || !file.data())
    return {};
  return parse_email_bytes(file.data(), file.data() + file.size(), wanted, options);
}

email::header_map_t parse_email_bytes(char const* first, char const* last, email::header_set_t const& wanted,
                                      options_t const& options) {
  // The desktop host's warning lines are its own, and this is its path.
  quern::error::desktop_scope_t const desktop_host;
  if (options.line_ends == line_ends_t::crlf_as_lf && text::has_crlf(first, last)) {
    std::string bytes;
    bytes.reserve(static_cast<std::size_t>(last - first));
    text::crlf_to_lf(first, last, std::back_inserter(bytes));
    return parse_lf_bytes(bytes.data(), bytes.data() + bytes.size(), wanted, options);
  }
  return parse_lf_bytes(first, last, wanted, options);
}

bool import_file(std::string const& path, attribute_set_t& attributes, options_t const& options, bool* readable) {
  file_mmap_t const file(path);
  if (readable)
    *readable = file.readable();
  // A mapping that failed for any reason but memory leaves a null start with
  // a non-zero size; such a file is read as empty.
  if (file.size() == 0 || !file.data())
    return true;
  return import_bytes(file.data(), file.data() + file.size(), attributes, options);
}

bool import_bytes(char const* first, char const* last, attribute_set_t& attributes, options_t const& options) {
  // The map is this import's own, so the text can be moved out of it.
  email::header_map_t headers = parse_email_bytes(first, last, wanted_headers(), options);
  attribute_sink_t sink(attributes);
  apply_rows(headers, sink);
  return true;
}

namespace detail {

bool read_by_later_row(attribute_row_t const& row) {
  auto const at = std::find_if(rows.begin(), rows.end(), [&](attribute_row_t const& own) { return &own == &row; });
  // A row of some other table: its value is left where it is.
  if (at == rows.end())
    return true;
  return std::any_of(std::next(at), rows.end(), [&](attribute_row_t const& later) { return later.key == row.key; });
}

} // namespace detail

std::span<attribute_row_t const> attribute_rows() {
  return rows;
}

bool get_metadata_for_file(attribute_set_t& attributes, std::string_view content_type, std::string const& path) {
  if (content_type != mail_content_type)
    return false;
  import_file(path, attributes);
  return true;
}

std::optional<instant_t> parse_canonical_date(std::string_view text) {
  // yyyy-MM-dd HH:mm:ss, every field zero-padded, nothing before or after.
  if (text.size() != 19 || text[4] != '-' || text[7] != '-' || text[10] != ' ' || text[13] != ':' || text[16] != ':')
    return std::nullopt;
  int year, month, day, hour, minute, second;
  if (!read_number(text, 0, 4, year) || !read_number(text, 5, 2, month) || !read_number(text, 8, 2, day) ||
      !read_number(text, 11, 2, hour) || !read_number(text, 14, 2, minute) || !read_number(text, 17, 2, second))
    return std::nullopt;
  std::chrono::year_month_day const ymd{std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                                        std::chrono::day(static_cast<unsigned>(day))};
  if (!ymd.ok() || hour > 23 || minute > 59 || second > 59)
    return std::nullopt;
  return std::chrono::sys_days(ymd) + std::chrono::hours(hour) + std::chrono::minutes(minute) +
         std::chrono::seconds(second);
}

bool is_well_formed_utf8(std::string_view text) {
  return utf8::is_well_formed(text.data(), text.data() + text.size());
}

} // namespace importer
