// SPDX-License-Identifier: MIT
// The desktop-search host's import: one message file to its attribute set.
//
// This is the desktop reading's own path, kept byte for byte for the macOS
// plug-in and the command line's --desktop; every other host and library
// caller reads the typed message of importer/message.h instead.
//
// parse_email maps the file, scans its header block for the wanted fields and
// reduces the body to text ("#text"); parse_email_bytes does the same for a
// message already in memory. Either can read CR LF line ends as LF, which
// the desktop host never does but the command line offers. import_file then copies a fixed
// selection of that header map into the attribute set, row by row: subject
// (also the display name), text, the two dates, and the address fields. The
// To, Cc and Bcc rows share their attributes, so their results collect into
// one recipients list in that order. Nothing is deduplicated.
//
// Only well-formed UTF-8 becomes a string, as on the desktop-search platform
// whose string constructor refuses anything else. A single value that is not
// well-formed removes what an earlier row stored under its attribute (the
// platform stores "nothing" there); an ill-formed list element is skipped, so
// that no import can fail.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "email/body.h"
#include "email/headers.h"
#include "error/handler.h"
#include "importer/addresses.h"
#include "importer/attributes.h"

namespace importer {

inline constexpr std::string_view mail_content_type = "com.apple.mail.email";

// One row of the attribute mapping: the header-map key it reads and the
// attribute(s) it fills; address rows fill a names and an e-mails attribute.
struct attribute_row_t {
  std::string_view key;
  std::string_view attribute;
  std::string_view email_attribute;
  bool is_address;
};

// The rows in processing order: subject (twice: subject and display name),
// text, date, received, from, to, cc, bcc. The three recipient rows share
// their attributes, so their results collect into one list.
std::span<attribute_row_t const> attribute_rows();

// Well-formed UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
bool is_well_formed_utf8(std::string_view text);

// Walks the rows over a header map, in order. An address row hands the
// names and e-mail addresses of its field to on_address(row, names, emails);
// any other row whose value is present and not the no-text marker hands that
// value to on_value(row, value). Every host applies the rows through this
// walk, each with its own string, date and list types. A caller that walks a
// map it owns (not const) is handed its values as modifiable strings and may
// move them out: a message's text is the largest value and need not be
// copied.
template <typename HeaderMap, typename AddressFn, typename ValueFn>
void for_each_row(HeaderMap& headers, AddressFn&& on_address, ValueFn&& on_value) {
  for (attribute_row_t const& row : attribute_rows()) {
    auto const found = headers.find(row.key);
    if (found == headers.end())
      continue;
    if (row.is_address) {
      std::vector<std::string> names, emails;
      parse_addresses(found->second, names, emails);
      on_address(row, names, emails);
    } else if (found->second != email::no_text_marker) {
      on_value(row, found->second);
    }
  }
}

// Whether a row's value is canonical date text rather than a string.
inline bool is_date_row(attribute_row_t const& row) {
  return row.key == "date" || row.key == "received";
}

// "from", "to", "cc", "bcc", "subject", "date", "received" and the three
// "content-" names; built once, read-only afterwards.
email::header_set_t const& wanted_headers();

// How line ends are read. as_stored is the desktop host's reading: only LF
// ends a line and a CR is content. crlf_as_lf first turns every CR LF into
// LF (a lone CR stays); the bytes are copied only when they hold a CR LF.
enum class line_ends_t { as_stored, crlf_as_lf };

struct options_t {
  line_ends_t line_ends = line_ends_t::as_stored;
  // When given, every parser on the way describes what it repaired here.
  // Listening never changes the attributes.
  quern::error::handler_t* problems = nullptr;
};

// The header map of the message at path plus its body text under "#text";
// empty when the file is empty or cannot be read. When readable is given it
// tells whether the file could be opened and read (an empty file can).
email::header_map_t parse_email(std::string const& path, email::header_set_t const& wanted, bool* readable = nullptr,
                                options_t const& options = {});

// The header map of the message held in [first, last), exactly as
// parse_email gives it for a file of these bytes; empty for an empty range.
email::header_map_t parse_email_bytes(char const* first, char const* last, email::header_set_t const& wanted,
                                      options_t const& options = {});

// Fills attributes from the message at path. Always true.
bool import_file(std::string const& path, attribute_set_t& attributes, options_t const& options = {},
                 bool* readable = nullptr);

// Fills attributes from the message held in [first, last), as import_file
// does for a file of these bytes. Always true.
bool import_bytes(char const* first, char const* last, attribute_set_t& attributes, options_t const& options = {});

// The host entry: only mail_content_type is imported; any other type returns
// false and leaves attributes untouched.
bool get_metadata_for_file(attribute_set_t& attributes, std::string_view content_type, std::string const& path);

// Reads canonical "yyyy-MM-dd HH:mm:ss" UTC text; anything else is no date.
std::optional<instant_t> parse_canonical_date(std::string_view text);

namespace detail {

// Whether a row after this one reads the same header-map key (the subject
// is read twice): its value must stay in the map until then.
bool read_by_later_row(attribute_row_t const& row);

// Lists keyed by attribute name, in the order their first element arrived.
// A list exists only once an element of it was made.
template <typename Sink> class row_lists_t {
public:
  void append(Sink& sink, std::string_view attribute, std::vector<std::string> const& elements) {
    for (std::string const& element : elements) {
      // An element the platform cannot make is skipped so that no import
      // fails.
      if (auto made = sink.make_string(std::string_view(element)))
        sink.append(list_for(attribute), std::move(made));
    }
  }
  void store(Sink& sink) {
    for (auto& [attribute, list] : lists_)
      sink.store(attribute, std::move(list));
  }

private:
  typename Sink::list_t& list_for(std::string_view attribute) {
    for (auto& [name, list] : lists_)
      if (name == attribute)
        return list;
    return lists_.emplace_back(attribute, typename Sink::list_t()).second;
  }
  std::vector<std::pair<std::string_view, typename Sink::list_t>> lists_; // at most four
};

// One single-value row. A string that cannot be made removes what an earlier
// row stored under the attribute, as the platform stores "nothing" there. A
// date that cannot be made stores nothing and removes nothing: no earlier row
// writes a date attribute, and the hosts never removed one.
template <typename Sink, typename Value> void apply_value(Sink& sink, attribute_row_t const& row, Value& value) {
  if (is_date_row(row)) {
    if (auto date = sink.make_date(std::string_view(value)))
      sink.set(row.attribute, std::move(date));
    return;
  }
  // A value no later row reads is handed over as an rvalue, so that a sink
  // may take the message text rather than copy it.
  auto made = read_by_later_row(row) ? sink.make_string(std::string_view(value)) : sink.make_string(std::move(value));
  if (made)
    sink.set(row.attribute, std::move(made));
  else
    sink.erase(row.attribute);
}

} // namespace detail

// Applies the desktop reading's rows to a host's attribute store. The walk
// and its rules are the same for every store; the sink supplies the
// platform's parts:
//   sink.make_string(bytes)      a string of the bytes (a std::string_view,
//                                or a std::string rvalue the sink may take),
//                                false when the platform cannot make one
//   sink.make_date(text)         a date from canonical date text, false when
//                                there is none
//   sink.set(attribute, made)    stores a string or date; a later row's value
//                                replaces an earlier one
//   sink.erase(attribute)        removes what is stored under the attribute
//   Sink::list_t                 a list, empty as constructed
//   sink.append(list, made)      adds a string to a list
//   sink.store(attribute, list)  stores a finished list
// Rows apply in order. An address row appends each name to the list of its
// attribute and each e-mail address to that of its email_attribute, so the
// three recipient rows collect into one list each; the lists are stored after
// the last row.
template <typename HeaderMap, typename Sink> void apply_rows(HeaderMap& headers, Sink& sink) {
  detail::row_lists_t<Sink> lists;
  for_each_row(
      headers,
      [&](attribute_row_t const& row, std::vector<std::string> const& names, std::vector<std::string> const& emails) {
        lists.append(sink, row.attribute, names);
        lists.append(sink, row.email_attribute, emails);
      },
      [&](attribute_row_t const& row, auto& value) { detail::apply_value(sink, row, value); });
  lists.store(sink);
}

// The core's sink: the attribute set, strings only of well-formed UTF-8 (the
// desktop platform's string constructor refuses anything else) and dates
// read by parse_canonical_date.
class attribute_sink_t {
public:
  using list_t = std::vector<std::string>;

  explicit attribute_sink_t(attribute_set_t& attributes) : attributes_(attributes) {}

  std::optional<std::string> make_string(std::string_view bytes) const {
    return is_well_formed_utf8(bytes) ? std::optional<std::string>(bytes) : std::nullopt;
  }
  std::optional<std::string> make_string(std::string&& bytes) const {
    return is_well_formed_utf8(bytes) ? std::optional<std::string>(std::move(bytes)) : std::nullopt;
  }
  std::optional<instant_t> make_date(std::string_view text) const { return parse_canonical_date(text); }
  template <typename Value> void set(std::string_view attribute, std::optional<Value>&& value) {
    attributes_.set(attribute, std::move(*value));
  }
  void erase(std::string_view attribute) { attributes_.erase(attribute); }
  void append(list_t& list, std::optional<std::string>&& element) { list.push_back(std::move(*element)); }
  void store(std::string_view attribute, list_t&& list) { attributes_.set(attribute, std::move(list)); }

private:
  attribute_set_t& attributes_;
};

} // namespace importer
