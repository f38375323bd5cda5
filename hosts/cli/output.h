// SPDX-License-Identifier: MIT
// Rendering one import for the command line: JSON lines and mdls-style text.
//
// Every record the tool prints is built here, so the two renderings agree on
// what a record holds: the path (with the message's number when it came from
// an mbox), whether it was imported, why it could not be read, its
// attributes and, when asked for, the problems the parsers reported.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "error/handler.h"
#include "importer/attributes.h"

namespace cli {

struct record_t {
  record_t() = default;
  record_t(std::string path_, bool imported_, importer::attribute_set_t attributes_)
      : path(std::move(path_)), imported(imported_), attributes(std::move(attributes_)) {}

  std::string path;
  bool imported = false;
  importer::attribute_set_t attributes;
  // The message's 1-based number within an mbox; 0 for a file of its own.
  std::size_t message = 0;
  // Why the path could not be read; empty when it could.
  std::string error;
  // Present only when problems were asked for (then even when empty).
  std::optional<std::vector<quern::error::record_t>> problems;
};

// Where a record is printed. With spill set, the printed text is handed on
// each time it passes spill_at bytes and then dropped, so a record with a
// huge text (escaped, up to six bytes a byte) is never held whole in its
// printed form; without it, text holds the whole record.
struct printer_t {
  static constexpr std::size_t spill_at = 1 << 20;

  std::string text;
  std::function<void(std::string_view)> spill;

  void maybe_spill() {
    if (spill && text.size() >= spill_at)
      finish();
  }
  void finish() {
    if (spill && !text.empty()) {
      spill(text);
      text.clear();
    }
  }
};

// About how many bytes the record's printed form takes, unescaped.
std::size_t printed_size(record_t const& record);

void print_json_line(record_t const& record, printer_t& out);
void print_listing(record_t const& record, printer_t& out);

// {"path": ..., "message": N, "imported": ..., "error": ..., "attributes":
// {...}, "problems": [...]} and a line feed; "message", "error" and
// "problems" only where they apply. Dates are "YYYY-MM-DDTHH:MM:SSZ" strings;
// bytes that are not UTF-8 become U+FFFD so the line is always valid JSON.
std::string to_json_line(record_t const& record);

// The path (PATH:N for an mbox message), then "name = value" lines with lists
// in parentheses, then the problems as indented lines, then a blank line.
std::string to_listing(record_t const& record);

// "YYYY-MM-DDTHH:MM:SSZ".
std::string iso8601(importer::instant_t instant);

} // namespace cli
