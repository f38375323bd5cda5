// Rendering one import for the command line: JSON lines and mdls-style text.
#pragma once

#include <string>

#include "importer/attributes.h"

namespace cli {

struct record_t {
  std::string path;
  bool imported = false;
  importer::attribute_set_t attributes;
};

// {"path": ..., "imported": ..., "attributes": {...}} and a line feed. Dates
// are "YYYY-MM-DDTHH:MM:SSZ" strings; bytes of a path that are not UTF-8
// become U+FFFD so the line is always valid JSON.
std::string to_json_line(record_t const& record);

// The path, then "name = value" lines with lists in parentheses, then a
// blank line.
std::string to_listing(record_t const& record);

// "YYYY-MM-DDTHH:MM:SSZ".
std::string iso8601(importer::instant_t instant);

} // namespace cli
