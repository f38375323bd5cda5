// SPDX-License-Identifier: MIT
// Splitting a multipart body at its boundary delimiter lines.
//
// A delimiter line is "--" + boundary at the very start of a line, optionally
// followed by "--" (the closing delimiter) and by blanks (transport padding),
// and ended by an LF. Only LF ends a line: a delimiter followed by CR LF is
// content, which keeps this splitter in agreement with the header scanner
// about where lines end. The search from a part's start always skips that
// first line, so a delimiter line directly after another is content of the
// part rather than an empty part of its own.
//
// The scan jumps from LF to LF and compares the delimiter only at line
// starts. When the delimiter holds no LF (a header value never does after
// unfolding) each comparison stops within its line, so one search is linear
// in the bytes it passes, and parse_subparts, which resumes each search where
// the last one ended, is linear in the body. Parts are byte ranges into the
// caller's buffer; nothing is copied.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "error/handler.h"

namespace email {

inline constexpr char problem_missing_newline[] = "Missing newline after boundary string at end of body part";
inline constexpr char problem_no_closing_boundary[] = "No closing MIME boundary found";

// [first, last) inside the caller's body.
using byte_range_t = std::pair<char const*, char const*>;

// Finds the next delimiter line in [begin, end). With at_line_start, begin
// itself may start the delimiter line; otherwise the line holding begin is
// skipped first. Returns the end of the range before the delimiter line (the
// LF that ends the previous line, or begin) and sets after past the
// delimiter line and *is_close when it was the closing one. When nothing is
// found, returns end and sets after to end. is_close and problems may be null.
char const* find_boundary(char const* begin, char const* end, std::string const& delimiter, bool at_line_start,
                          char const*& after, bool* is_close, quern::error::handler_t* problems);

// The preamble, each body part and the remainder (epilogue) of a multipart
// body, in input order. first_part_only stops after the first body part; the
// remainder then spans the rest of the body. Empty for an empty body or
// boundary.
std::vector<byte_range_t> parse_subparts(char const* begin, char const* end, std::string const& boundary,
                                         bool first_part_only, quern::error::handler_t* problems);

// The preamble as text when it holds anything but white space, otherwise the
// no-text marker.
std::string parse_preamble(char const* begin, char const* end, std::string const& boundary);

} // namespace email
