// SPDX-License-Identifier: MIT
// One message as a record: the JSON line the command-line tool prints for
// the full reading, and the pieces every binding needs to give the same
// values in its own language's objects.
//
// A record says where a message came from (a path, its number in an mbox),
// whether it could be read and why not, and then every field of the typed
// message. Its text is always valid UTF-8: bytes that are not become U+FFFD,
// one for each byte, so a consumer never meets a decoding error; a path that
// is not UTF-8 also comes losslessly as %HH escapes. Dates are RFC 3339 in
// the zone the message gave. The command-line tool, the Python module and
// the Node.js addon all build their records from these functions, so the
// three cannot drift apart.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "importer/message.h"

namespace tidewell::record {

// The version of the JSON record. It changes only when a key changes
// meaning or goes away; new keys may appear within a version.
inline constexpr int schema_version = 1;

// Where a record comes from.
struct source_t {
  std::string path;
  // The message's 1-based number within an mbox; 0 for a file of its own.
  std::size_t message = 0;
  bool imported = true;
  // Why the path could not be read; empty when it could.
  std::string error;
  // The errno behind error, when there is one (0 for a path that is not a
  // regular file, which is no system error).
  int error_number = 0;
};

// Every byte that is not part of well-formed UTF-8 as one U+FFFD each;
// well-formed text comes back as it is.
std::string repaired_utf8(std::string_view bytes);

// A path that is not well-formed UTF-8, written so that no byte is lost and
// the result is UTF-8: every byte that is not part of a well-formed
// sequence as %HH (upper-case hex), '%' itself as %25, everything else as it
// is. Any percent-decoder gives the bytes back. Empty for a UTF-8 path,
// which needs no such form.
std::string path_bytes(std::string_view path);

// The wall-clock time of a date in its own zone.
struct local_time_t {
  int year;
  unsigned month, day;
  long hours, minutes, seconds;
};
local_time_t local_time(date_t const& date);
local_time_t utc_time(instant_t instant);

// "2025-10-07T03:30:00+02:00"; a zero offset is "+00:00".
std::string rfc3339(date_t const& date);

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

// Appends text escaped as in a JSON string (the short escapes for '"', '\\'
// and \b \f \n \r \t, \u00XX for other control characters, every other byte
// as it is), without quotes.
void append_escaped(std::string& out, std::string_view text);
// The text in quotes, escaped, as it is: for text known to be UTF-8.
void append_quoted(printer_t& out, std::string_view text);
// The text in quotes, escaped; bytes that are not UTF-8 become U+FFFD.
void append_string(printer_t& out, std::string_view text);
// "path", "path_bytes" where needed, "message" in an mbox, "imported" and
// "error" where there is one: the keys every record starts with.
void append_head(printer_t& out, source_t const& source);

// About how many bytes the message's record takes, unescaped.
std::size_t printed_size(message_t const& message);

// The JSON record, one line ending in a line feed: {"schema": 1, the head,
// then every field of the message, "problems" when with_problems, "cut"
// when the message was cut}. A field without a value is null and a list is
// always there, [] when empty. A null message prints as an empty one.
void print_json(source_t const& source, message_t const* message, bool with_problems, printer_t& out);
std::string to_json(source_t const& source, message_t const* message, bool with_problems);

// "not a regular file (a FIFO; ...)": why a path of this mode is not read.
std::string not_regular(unsigned mode);

// Opens the regular file at path for reading, without blocking (a FIFO put
// in its place after the check is caught too); -1 with error set to the
// reason when it cannot be opened or is not a regular file, with
// error_number set to the errno where there is one.
int open_regular(std::string const& path, std::string& error, int* error_number = nullptr);

// Reads the file at path as the command-line tool does: only a regular file
// is opened (a FIFO, a device or a folder gives a record that says so), and
// a file that cannot be read gives source.imported false with the reason.
// source.path is set to path.
message_t read_path(std::string const& path, options_t const& options, source_t& source);

} // namespace tidewell::record
