// SPDX-License-Identifier: MIT
// The delimiter search and the split built on it. find_boundary walks from
// one candidate line (an LF followed by the delimiter's first byte) to the
// next with memchr; each candidate is accepted or rejected by looking at most
// at the delimiter's length plus the padding of that line, and the search
// only moves forward, so no byte is scanned twice. With an index of the
// buffer it looks only at the lines whose key fits, and checks each of them
// exactly as the scan would.
#include "email/multipart.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <string_view>

#include "email/body.h"
#include "text/ascii.h"

namespace email {
namespace {

using quern::error::code_t;
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

std::size_t key_hash(std::string_view key) {
  return std::hash<std::string_view>()(key);
}

// The index's key of a delimiter line: what follows "--", less trailing
// blanks. A delimiter line for boundary B is "--" B, optionally "--", then
// blanks: its key is B less trailing blanks, or B "--".
std::string_view line_key(char const* line, char const* line_end) {
  char const* key_end = line_end;
  while (key_end > line + 2 && is_blank(key_end[-1]))
    --key_end;
  return {line + 2, static_cast<std::size_t>(key_end - line - 2)};
}

} // namespace

delimiter_index_t::delimiter_index_t(char const* begin, char const* end) : begin_(begin), end_(end) {
  char const* line = begin;
  while (line != end) {
    auto const* lf = static_cast<char const*>(std::memchr(line, '\n', static_cast<std::size_t>(end - line)));
    char const* const line_end = lf ? lf : end;
    if (line_end - line >= 2 && line[0] == '-' && line[1] == '-')
      lines_.emplace_back(key_hash(line_key(line, line_end)), line);
    if (!lf)
      break;
    line = lf + 1;
  }
  std::sort(lines_.begin(), lines_.end());
}

bool delimiter_index_t::covers(char const* first, char const* last) const {
  return begin_ <= first && first <= last && last <= end_ && (last == end_ || *last == '\n');
}

namespace {

// The indexed search: the candidate lines after begin whose key fits, in
// input order, each checked as the scan would check it.
char const* find_indexed(std::vector<std::pair<std::size_t, char const*>> const& lines, char const* begin,
                         char const* end, std::string const& delimiter, char const*& after, bool& close,
                         bool& missing_newline) {
  std::string_view const boundary = std::string_view(delimiter).substr(2);
  std::string_view open = boundary;
  while (!open.empty() && is_blank(open.back()))
    open.remove_suffix(1);
  std::size_t const hashes[2] = {key_hash(open), key_hash(std::string(boundary) + "--")};
  using entry_t = std::pair<std::size_t, char const*>;
  auto const first_after = [&](std::size_t hash) {
    return std::upper_bound(lines.begin(), lines.end(), entry_t{hash, begin});
  };
  auto const usable = [&](auto it, std::size_t hash) {
    return it != lines.end() && it->first == hash && it->second < end;
  };
  auto a = first_after(hashes[0]);
  auto b = hashes[1] == hashes[0] ? lines.end() : first_after(hashes[1]);
  for (;;) {
    bool const has_a = usable(a, hashes[0]), has_b = usable(b, hashes[1]);
    if (!has_a && !has_b)
      return nullptr;
    auto& next = has_a && (!has_b || a->second < b->second) ? a : b;
    char const* const line = next->second;
    ++next;
    close = false;
    if (is_delimiter_line(line, end, delimiter, after, close, missing_newline))
      return line;
  }
}

} // namespace

namespace {

// Where the next candidate line after cursor starts: only a line that starts
// with the delimiter can be one, so the search is for the delimiter's first
// byte ('-') right after an LF (base64 has no '-' at all, and most text has
// far fewer of them than line ends); any line start for an empty delimiter.
// Null when there is none.
char const* next_candidate(char const* cursor, char const* end, std::string const& delimiter) {
  if (delimiter.empty()) {
    auto const* lf = static_cast<char const*>(std::memchr(cursor, '\n', static_cast<std::size_t>(end - cursor)));
    return lf ? lf + 1 : nullptr;
  }
  char const* q = cursor + 1;
  while ((q = static_cast<char const*>(std::memchr(q, delimiter.front(), static_cast<std::size_t>(end - q)))) &&
         q[-1] != '\n')
    ++q;
  return q;
}

// A delimiter line was found: its part ends at range_end.
char const* found(char const* range_end, bool missing_newline, quern::error::handler_t* problems) {
  if (missing_newline && problems)
    problems->push_back(code_t::multipart_missing_newline, {{"context", "delimiter"}});
  return range_end;
}

// No delimiter line: the part runs to the end.
char const* not_found(char const* end, std::string const& delimiter, char const*& after, bool& close,
                      quern::error::handler_t* problems) {
  close = false;
  if (problems)
    problems->push_back(code_t::multipart_no_closing_boundary, {{"context", delimiter}});
  after = end;
  return end;
}

} // namespace

char const* find_boundary(char const* begin, char const* end, std::string const& delimiter, bool at_line_start,
                          char const*& after, bool* is_close, quern::error::handler_t* problems,
                          delimiter_index_t const* index) {
  bool close_unused = false;
  bool& close = is_close ? *is_close : close_unused;
  bool missing_newline = false;
  if (index && index->covers(begin, end)) {
    close = false;
    if (at_line_start && is_delimiter_line(begin, end, delimiter, after, close, missing_newline))
      return found(begin, missing_newline, problems);
    if (char const* line = find_indexed(index->lines_, begin, end, delimiter, after, close, missing_newline))
      return found(line - 1, missing_newline, problems);
    return not_found(end, delimiter, after, close, problems);
  }
  char const* cursor = begin;
  bool candidate_at_cursor = at_line_start;
  while (cursor != end) {
    close = false;
    char const* range_end = cursor;
    if (!candidate_at_cursor) {
      char const* const q = next_candidate(cursor, end, delimiter);
      if (!q)
        break;
      range_end = q - 1;
      cursor = q;
    }
    candidate_at_cursor = false;
    missing_newline = false;
    if (is_delimiter_line(cursor, end, delimiter, after, close, missing_newline))
      return found(range_end, missing_newline, problems);
  }
  return not_found(end, delimiter, after, close, problems);
}

std::vector<byte_range_t> parse_subparts(char const* begin, char const* end, std::string const& boundary,
                                         bool first_part_only, quern::error::handler_t* problems,
                                         delimiter_index_t const* index, reading_t reading) {
  std::vector<byte_range_t> ranges;
  if (begin == end || boundary.empty())
    return ranges;

  std::string const delimiter = "--" + boundary;
  char const* cursor = begin;
  bool at_line_start = true;
  for (;;) {
    char const* after = end;
    bool is_close = false;
    char const* const range_end =
        find_boundary(cursor, end, delimiter, at_line_start, after, &is_close, problems, index);
    at_line_start = reading == reading_t::full;
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
