// SPDX-License-Identifier: MIT
// One message as a typed value: what the library gives every caller.
//
// parse reads a message held in memory, parse_file a file by its path and
// parse_fd an open file descriptor; each takes one options value that
// decides, once, how the message is read, and each gives a message_t whose
// fields a host reads directly: the subject, every address field as its own
// list of mailboxes, the sent and received dates with the zone the message
// gave, the thread identifiers, the text and the attachments. Absent means
// absent: an optional without a value or an empty list, never a marker.
//
// Two readings exist. The full reading (the default) is for every program
// that wants what a person would read in the message: CR LF line ends read
// as LF (and CR alone as LF in a file that has no LF), every mailbox of a
// list, HTML text (or a calendar's events) where no plain text is given,
// attachments, whole month names, and U+FFFD where bytes are not UTF-8. The
// desktop reading is the one the desktop-search host has always had: LF line
// ends only, one mailbox per address field, text only from text/plain, and a
// value that is not well-formed UTF-8 left out. It gives the same values as
// that host's attribute rows, typed.
//
// Files are read, never mapped: a file truncated while it is mapped kills
// the process that reads it with SIGBUS. Nothing here throws for bad mail,
// prints, or aborts; a file that cannot be read gives an empty message and
// its error.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "error/problems.h"

namespace tidewell {

using instant_t = std::chrono::sys_seconds;

struct mailbox_t {
  std::string name;    // the display name, decoded; empty when there is none
  std::string address; // the address itself; empty for a mailbox that gives only a name
  bool operator==(mailbox_t const&) const = default;
};

// A date as the message gave it: the instant, and the offset from UTC of the
// zone it was written in ("+0200" is 120 minutes).
struct date_t {
  instant_t instant;
  std::chrono::minutes offset{0};
  bool operator==(date_t const&) const = default;
};

// A part that names a file, wherever it sits in the structure.
struct attachment_t {
  std::string file_name;
  std::string media_type;  // "type/subtype", lower case
  std::uint64_t size = 0;  // bytes, once the transfer encoding is undone
  std::string content_id;  // without angle brackets; empty when none
  std::string disposition; // lower case: "attachment", "inline" (the default), ...
  bool operator==(attachment_t const&) const = default;
};

using problem_code_t = quern::error::code_t;

// Something a parser repaired or tolerated: what (code, and its fixed English
// text with the values it names), where (the byte offset in the message of
// the header field or body part being read) and the text it was found in.
struct problem_t {
  problem_code_t code;
  std::size_t offset = 0;
  std::string text;
  std::string context;
  bool operator==(problem_t const&) const = default;
};

struct message_t {
  std::optional<std::string> subject;
  std::vector<mailbox_t> from, sender, reply_to, to, cc, bcc;
  std::optional<date_t> date;     // the Date field
  std::optional<date_t> received; // the first Received field whose date can be read
  // Message identifiers without their angle brackets.
  std::optional<std::string> message_id;
  std::optional<std::string> in_reply_to; // the first identifier of In-Reply-To
  std::vector<std::string> references;    // in the order written
  std::optional<std::string> text;
  std::vector<attachment_t> attachments;
  std::vector<problem_t> problems; // only when asked for
  // The input was longer than options_t::max_bytes and only its start was read.
  bool cut = false;
  bool operator==(message_t const&) const = default;
};

enum class reading_t { desktop, full };
enum class line_ends_t {
  as_stored,  // only LF ends a line; a CR is content
  crlf_as_lf, // every CR LF is read as LF (a lone CR stays content); in the
              // full reading, a file without any LF has its CRs read as LF
};

struct options_t {
  reading_t reading = reading_t::full;
  line_ends_t line_ends = line_ends_t::crlf_as_lf;
  // Collect what the parsers repaired into message_t::problems.
  bool problems = false;
  // List the attachments (the full reading only); costs a decode of each.
  bool attachments = true;
  // Read Message-ID, In-Reply-To and References.
  bool thread_ids = true;
  // At most this many bytes of the input are read; the rest is left unread
  // and the message is marked as cut. Headers and the first text come first
  // in a message, so a cut message still gives them.
  std::uint64_t max_bytes = UINT64_MAX;

  // The desktop-search host's reading, with its LF-only line ends.
  static constexpr options_t desktop() { return {reading_t::desktop, line_ends_t::as_stored}; }
};

// The message held in [bytes.data(), bytes.data() + bytes.size()).
message_t parse(std::string_view bytes, options_t const& options = {});

// The message in the file at path. When the file cannot be opened or read,
// error says why and the message is empty; an empty file is read as an empty
// message, without error.
message_t parse_file(char const* path, options_t const& options, std::error_code& error);

// The same for a file already open for reading; fd is read from its current
// position to its end and is not closed.
message_t parse_fd(int fd, options_t const& options, std::error_code& error);

} // namespace tidewell
