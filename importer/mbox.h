// SPDX-License-Identifier: MIT
// Reading an mbox as a stream of messages.
//
// An mbox is messages one after another, each starting with a From_ line
// (the envelope line a delivery agent writes: "From sender date"). A body
// line that starts with "From " was quoted by the writer as ">From " so it
// could not pass for a separator; mboxrd quotes ">From " as ">>From " too,
// so taking one ">" off every such line gives the message back exactly. Not
// every writer quotes, so a line counts as a separator only if it has an
// envelope line's shape: "From ", a sender (an address, MAILER-DAEMON, "-" as
// Thunderbird and Evolution write it) and a date in an order real writers
// use, asctime's "Thu Oct  2 14:03:09 2025" (a zone after the time or the
// year allowed, the weekday left out allowed) or RFC 2822's "Thu, 2 Oct 2025
// 14:03:09 +0200". The date needs a month, a time and a four-digit year, so
// "From 9:00 to 17:00 on 12 May 2025", "From -5 to +3" and "From time to
// time" stay in the message. The empty line before a separator (and at the
// very end) is the mbox's, not the message's.
//
// Text before the first separator is a message too, so a single message
// file read as an mbox is that one message. The file is read in chunks and
// only the current message is held, so mboxes of any size are read in
// memory bounded by their largest message.
//
// That message is bounded too: one longer than max_message is kept to
// max_message + 1 bytes (the byte more tells that it was cut) and the rest
// of it is read past to the next separator, and a line is taken in pieces of
// at most about a megabyte, so no line, however long, is held whole.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace tidewell {

class mbox_reader_t {
public:
  // Asked when a read is interrupted by a signal: true gives up reading
  // (the end of the input), false reads again. Empty: always read again.
  using stop_t = std::function<bool()>;

  // Reads from fd, which stays the caller's to close.
  explicit mbox_reader_t(int fd, std::size_t max_message = SIZE_MAX, stop_t stop = {})
      : fd_(fd), keep_(max_message == SIZE_MAX ? SIZE_MAX : max_message + 1), stop_(std::move(stop)) {}

  // The next message, unquoted and without its separator; false at the end
  // or after a read error.
  bool next(std::string& message);

  // The errno of a failed read; 0 when the end was reached.
  int error() const { return error_; }

private:
  // The next line with its line feed (none on a last line without one, or
  // on a piece of a long line); false at the end of the input.
  bool next_line(std::string_view& line);

  // Appends to the message what fits in keep_.
  void keep(std::string_view bytes);

  int fd_;
  std::size_t keep_;
  stop_t stop_;
  // The last piece next_line gave ended a line: the next one starts one.
  bool at_line_start_ = true;
  int error_ = 0;
  bool eof_ = false;
  bool started_ = false;
  std::string buffer_;
  std::size_t position_ = 0;
  std::string message_;
  // An empty line held back until the line after it shows whose it is.
  std::string held_blank_;
};

// Whether line (with or without its line end) is an mbox separator.
bool is_envelope_line(std::string_view line);

} // namespace tidewell
