// SPDX-License-Identifier: MIT
// Splitting a multipart body at its boundary delimiter lines.
//
// A delimiter line is "--" + boundary at the very start of a line, optionally
// followed by "--" (the closing delimiter) and by blanks (transport padding),
// and ended by an LF. Only LF ends a line: a delimiter followed by CR LF is
// content, which keeps this splitter in agreement with the header scanner
// about where lines end. In the desktop reading the search from a part's
// start skips that first line, so a delimiter line directly after another
// is content of the part rather than an empty part of its own. The full
// reading takes it for the end of an empty part: otherwise a close
// delimiter right after a delimiter line is missed and the epilogue is read
// as the last part.
//
// The scan jumps from LF to LF and compares the delimiter only at line
// starts. When the delimiter holds no LF (a header value never does after
// unfolding) each comparison stops within its line, so one search is linear
// in the bytes it passes, and parse_subparts, which resumes each search where
// the last one ended, is linear in the body. Parts are byte ranges into the
// caller's buffer; nothing is copied.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "email/reading.h"
#include "error/handler.h"

namespace email {

// [first, last) inside the caller's body.
using byte_range_t = std::pair<char const*, char const*>;

// The lines of one buffer that begin with "--", keyed by what follows (less
// trailing blanks), so that a delimiter search in any range of the buffer
// costs about the same however far away the delimiter is. Without it every
// level of a deeply nested multipart would rescan the rest of the body for
// its own delimiter, and the walk would take time quadratic in the depth.
// Building it takes one pass and 16 bytes per such line.
class delimiter_index_t {
public:
  delimiter_index_t(char const* begin, char const* end);

  // True when the index answers for searches in [first, last): the range is
  // inside the buffer and ends at the end of a line, so that its lines are
  // the buffer's lines.
  bool covers(char const* first, char const* last) const;

private:
  friend char const* find_boundary(char const*, char const*, std::string const&, bool, char const*&, bool*,
                                   quern::error::handler_t*, delimiter_index_t const*);
  char const* begin_;
  char const* end_;
  std::vector<std::pair<std::size_t, char const*>> lines_; // (key hash, line start), sorted
};

// Finds the next delimiter line in [begin, end). With at_line_start, begin
// itself may start the delimiter line; otherwise the line holding begin is
// skipped first. Returns the end of the range before the delimiter line (the
// LF that ends the previous line, or begin) and sets after past the
// delimiter line and *is_close when it was the closing one. When nothing is
// found, returns end and sets after to end. is_close and problems may be null.
// An index of the buffer, when given and covering the range, gives the same
// answer faster.
char const* find_boundary(char const* begin, char const* end, std::string const& delimiter, bool at_line_start,
                          char const*& after, bool* is_close, quern::error::handler_t* problems,
                          delimiter_index_t const* index = nullptr);

// The preamble, each body part and the remainder (epilogue) of a multipart
// body, in input order. first_part_only stops after the first body part; the
// remainder then spans the rest of the body. Empty for an empty body or
// boundary.
std::vector<byte_range_t> parse_subparts(char const* begin, char const* end, std::string const& boundary,
                                         bool first_part_only, quern::error::handler_t* problems,
                                         delimiter_index_t const* index = nullptr,
                                         reading_t reading = reading_t::desktop);

// The preamble as text when it holds anything but white space, otherwise the
// no-text marker.
std::string parse_preamble(char const* begin, char const* end, std::string const& boundary);

} // namespace email
