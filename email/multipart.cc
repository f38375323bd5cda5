// SPDX-License-Identifier: MIT
// The delimiter search and the split built on it. find_boundary walks from
// one candidate line (an LF followed by the delimiter's first byte) to the
// next with memchr; each candidate is accepted or rejected by looking at most
// at the delimiter's length plus the padding of that line, and the search
// only moves forward, so no byte is scanned twice.
#include "email/multipart.h"

#include <algorithm>
#include <cstring>

#include "email/body.h"
#include "text/ascii.h"

namespace email {
namespace {

using text::is_blank;

// True when [line, end) starts with a delimiter line; sets after and *is_close.
// The input must hold more bytes than the delimiter: a delimiter that ends
// the input exactly is not a line of its own.
bool is_delimiter_line(char const* line, char const* end, std::string const& delimiter, char const*& after,
                       bool& is_close, bool& missing_newline) {
  if (static_cast<std::size_t>(end - line) <= delimiter.size() ||
      std::memcmp(line, delimiter.data(), delimiter.size()) != 0)
    return false;
  char const* p = line + delimiter.size();
  if (end - p >= 2 && p[0] == '-' && p[1] == '-') {
    is_close = true;
    p += 2;
  }
  if (p == end) {
    missing_newline = true;
    after = end;
    return true;
  }
  p = std::find_if_not(p, end, is_blank);
  if (p == end || *p != '\n')
    return false;
  after = p + 1;
  return true;
}

} // namespace

char const* find_boundary(char const* begin, char const* end, std::string const& delimiter, bool at_line_start,
                          char const*& after, bool* is_close, quern::error::handler_t* problems) {
  bool close_unused = false;
  bool& close = is_close ? *is_close : close_unused;
  // Only a line that starts with the delimiter is a candidate, so the search
  // is for the delimiter's first byte ('-') right after an LF: base64 has no
  // '-' at all, and most text has far fewer of them than line ends.
  char const* cursor = begin;
  bool candidate_at_cursor = at_line_start;
  while (cursor != end) {
    close = false;
    char const* range_end = cursor;
    if (!candidate_at_cursor) {
      char const* q = nullptr;
      if (delimiter.empty()) {
        q = static_cast<char const*>(std::memchr(cursor, '\n', static_cast<std::size_t>(end - cursor)));
        q = q ? q + 1 : nullptr;
      } else {
        q = cursor + 1;
        while ((q = static_cast<char const*>(std::memchr(q, delimiter.front(), static_cast<std::size_t>(end - q)))) &&
               q[-1] != '\n')
          ++q;
      }
      if (!q)
        break;
      range_end = q - 1;
      cursor = q;
    }
    candidate_at_cursor = false;

    bool missing_newline = false;
    if (is_delimiter_line(cursor, end, delimiter, after, close, missing_newline)) {
      if (missing_newline && problems)
        problems->push_back({{"description", problem_missing_newline}, {"context", "delimiter"}});
      return range_end;
    }
  }

  close = false;
  if (problems)
    problems->push_back({{"description", problem_no_closing_boundary}, {"context", delimiter}});
  after = end;
  return end;
}

std::vector<byte_range_t> parse_subparts(char const* begin, char const* end, std::string const& boundary,
                                         bool first_part_only, quern::error::handler_t* problems) {
  std::vector<byte_range_t> ranges;
  if (begin == end || boundary.empty())
    return ranges;

  std::string const delimiter = "--" + boundary;
  char const* cursor = begin;
  bool at_line_start = true;
  for (;;) {
    char const* after = end;
    bool is_close = false;
    char const* const range_end = find_boundary(cursor, end, delimiter, at_line_start, after, &is_close, problems);
    at_line_start = false;
    ranges.emplace_back(cursor, range_end);
    cursor = after;
    if ((first_part_only && ranges.size() == 2) || cursor == end || is_close)
      break;
  }
  ranges.emplace_back(cursor, end);
  return ranges;
}

std::string parse_preamble(char const* begin, char const* end, std::string const& boundary) {
  if (boundary.empty())
    return no_text_marker;
  char const* after = end;
  char const* const preamble_end = find_boundary(begin, end, "--" + boundary, true, after, nullptr, nullptr);
  bool const has_text = !std::all_of(begin, preamble_end, text::is_space);
  return has_text ? std::string(begin, preamble_end) : std::string(no_text_marker);
}

} // namespace email
