// SPDX-License-Identifier: MIT
// Rendering one import for the command line: JSON lines and mdls-style text.
//
// Every record the tool prints is built here, so the two renderings agree on
// what a record holds: the path (with the message's number when it came from
// an mbox), whether it was imported, why it could not be read, what was read
// (the typed message of the full reading, or the desktop host's attributes)
// and, when asked for, the problems the parsers reported.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "error/handler.h"
#include "importer/attributes.h"
#include "importer/message.h"
#include "importer/record.h"

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
  // The desktop reading's problems; present only when problems were asked
  // for (then even when empty).
  std::optional<std::vector<quern::error::record_t>> problems;
  // The full reading's message. When it is set the record is printed in the
  // full reading's schema, and attributes and problems are not used;
  // full_problems says whether its problems were asked for.
  std::optional<tidewell::message_t> full;
  bool full_problems = false;
  // Only the start of the message was read (the desktop reading; the full
  // reading's message says so itself).
  bool cut = false;
};

using tidewell::record::printer_t;
using tidewell::record::schema_version;

// About how many bytes the record's printed form takes, unescaped.
std::size_t printed_size(record_t const& record);

void print_json_line(record_t const& record, printer_t& out);
void print_listing(record_t const& record, printer_t& out);

// The desktop reading: {"path": ..., "path_bytes": ..., "message": N,
// "imported": ..., "error": ..., "attributes": {...}, "problems": [...],
// "cut": true}; "path_bytes", "message", "error", "problems" and "cut" only
// where they apply, dates as "YYYY-MM-DDTHH:MM:SSZ".
// The full reading: {"schema": 1, "path": ..., "path_bytes": ...,
// "message": N, "imported": ...,
// "error": ..., then every field of the message, "problems": [...] and
// "cut": true}; a field without a value is null and a list is always there,
// [] when empty, so only "message", "error", "problems" and "cut" come and
// go. Dates are RFC 3339 in the zone the message gave. Either way a line
// feed ends the record, and bytes that are not UTF-8 become U+FFFD so the
// line is always valid JSON. A path that is not UTF-8 loses bytes to that
// repair, so "path_bytes" then holds it losslessly (see path_bytes).
std::string to_json_line(record_t const& record);

// The path (PATH:N for an mbox message; in its path_bytes form, with a
// line saying so, when it is not UTF-8), then "name = value" lines with lists
// in parentheses, then the problems as indented lines, then a blank line.
// The full reading leaves out fields without a value and empty lists.
std::string to_listing(record_t const& record);

// "YYYY-MM-DDTHH:MM:SSZ".
std::string iso8601(importer::instant_t instant);

} // namespace cli
