// SPDX-License-Identifier: MIT
// Canonical plain text and format=flowed joining.
//
// format_deflow rewrites text one LF-ended line at a time. Its default mode
// brings the quoting of plain text into one shape so that the same quoted
// text indexes the same way whichever mailer wrote it: a quote prefix of '>'
// markers (however spaced or space-stuffed) becomes the markers followed by
// one space, and trailing spaces go, except on the signature separator "-- ".
// Tabs and CRs are content and stay; only LF ends a line.
//
// Flowed mode joins the soft-broken lines of "format=flowed" text (a line
// ending in a space continues on the next line of the same quote depth) into
// one line per paragraph, undoing space-stuffing, and with delsp also drops
// the space that marked each soft break. keep_edges keeps the stuffing space
// of unquoted lines and the last byte of the input, and makes unquoted lines
// hard, for callers that reflow only quoted text.
//
// Both modes look at every byte a bounded number of times, so they are linear.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

#include "charset/sink.h"
#include "text/ascii.h"

namespace email {

namespace detail {

// std::copy, but a back-inserting output gets the whole range in one insert
// instead of growing byte by byte.
template <typename OutputIt> OutputIt append_range(char const* first, char const* last, OutputIt out) {
  if constexpr (charset::detail::is_back_inserter<OutputIt>::value) {
    using container_t = typename charset::detail::is_back_inserter<OutputIt>::container_t;
    auto& container = charset::detail::container_access_t<container_t>::of(out);
    container.insert(container.end(), first, last);
    return out;
  } else {
    return std::copy(first, last, out);
  }
}

// Writes one line of non-flowed text, without its line end.
template <typename OutputIt> OutputIt canonical_line(char const* first, char const* last, OutputIt out) {
  // A space before the quote marker is stuffing, not indentation.
  if (last - first >= 2 && first[0] == ' ' && first[1] == '>')
    ++first;

  // Markers may be separated by one space, or by two when a marker follows.
  std::size_t depth = 0;
  char const* p = first;
  while (p != last && *p == '>') {
    ++depth;
    ++p;
    if (last - p >= 2 && p[0] == ' ' && p[1] == '>')
      p += 1;
    else if (last - p >= 3 && p[0] == ' ' && p[1] == ' ' && p[2] == '>')
      p += 2;
  }

  char const* content = p;
  char const* content_end = last;
  char const* signature_check = depth > 0 && content != last && *content == ' ' ? content + 1 : content;
  if (std::string_view(signature_check, static_cast<std::size_t>(last - signature_check)) != "-- ") {
    while (content_end != content && content_end[-1] == ' ')
      --content_end;
  }

  if (depth > 0) {
    out = std::fill_n(out, depth, '>');
    if (content != content_end && *content != ' ')
      *out++ = ' ';
  }
  return append_range(content, content_end, out);
}

// Every line of [first, last) through canonical_line, line ends kept.
template <typename OutputIt> OutputIt canonical_lines(char const* first, char const* last, OutputIt out) {
  for (char const* line = first; line != last;) {
    char const* const line_end = std::find(line, last, '\n');
    out = canonical_line(line, line_end, out);
    if (line_end == last)
      break;
    *out++ = '\n';
    line = line_end + 1;
  }
  return out;
}

// Where the text of a flowed line starts: after its quote markers (counted
// in depth) and the space-stuffing after them, or at an unquoted line the
// stuffing space unless it stands before a '>'. keep_edges keeps the
// stuffing of unquoted lines and a space that is the input's last byte.
inline char const* flowed_content(char const* line, char const* line_end, char const* last, bool keep_edges,
                                  std::size_t& depth) {
  depth = static_cast<std::size_t>(std::find_if(line, line_end, [](char c) { return c != '>'; }) - line);
  char const* content = line + depth;
  if (depth > 0 && content != line_end && *content == ' ' && !(keep_edges && content + 1 == last))
    ++content;
  if (depth == 0 && !keep_edges && content != line_end && *content == ' ') {
    char const* const after_spaces = std::find_if(content, line_end, [](char c) { return c != ' '; });
    if (after_spaces == line_end || *after_spaces != '>')
      ++content;
  }
  return content;
}

// Whether a flowed line breaks softly: its text ends in a space and is not a
// signature separator; with keep_edges unquoted lines are always hard.
inline bool is_soft_break(char const* content, char const* line_end, std::size_t depth, bool keep_edges) {
  std::string_view const text(content, static_cast<std::size_t>(line_end - content));
  bool const signature =
      text == "-- " || (depth > 0 && text.ends_with("-- ") && std::all_of(content, line_end - 3, text::is_blank));
  return !text.empty() && text.back() == ' ' && !signature && !(keep_edges && depth == 0);
}

} // namespace detail

// Appends the canonical form of [first, last) to out: non-flowed
// canonicalisation, or with flowed the joining of soft line breaks (delsp:
// the space before a soft break is removed).
template <typename OutputIt>
OutputIt format_deflow(char const* first, char const* last, OutputIt out, bool flowed, bool delsp, bool keep_edges) {
  if (!flowed)
    return detail::canonical_lines(first, last, out);
  bool previous_soft = false;
  std::size_t previous_depth = 0;
  for (char const* line = first; line != last;) {
    char const* const line_end = std::find(line, last, '\n');
    bool const has_lf = line_end != last;
    std::size_t depth = 0;
    char const* const content = detail::flowed_content(line, line_end, last, keep_edges, depth);
    if (previous_soft && depth != previous_depth) {
      *out++ = '\n';
      previous_soft = false;
    }
    if (!previous_soft && depth > 0) {
      out = std::fill_n(out, depth, '>');
      if (!std::all_of(content, line_end, [](char c) { return c == ' '; }))
        *out++ = ' ';
    }
    bool const soft = detail::is_soft_break(content, line_end, depth, keep_edges);
    out = detail::append_range(content, soft && delsp ? line_end - 1 : line_end, out);
    if (!soft && has_lf)
      *out++ = '\n';
    previous_soft = soft && has_lf;
    previous_depth = depth;
    line = has_lf ? line_end + 1 : last;
  }
  // A paragraph still open at the end was ended by the input's last LF.
  if (previous_soft)
    *out++ = '\n';
  return out;
}

// The non-flowed canonical form of a whole text, with CR and U+2028 LINE
// SEPARATOR turned into LF and NUL bytes removed.
std::string canonicalize_plain_text(std::string const& text);

} // namespace email
