// SPDX-License-Identifier: MIT
// Public suffixes through libpsl's built-in list.
//
// The suffix is grown leftwards one label at a time, asking libpsl about
// each candidate, until a candidate is no longer a public suffix; the list's
// wildcard and exception rules are libpsl's business. The candidate keeps its
// leading dot (".co.uk"), which libpsl ignores. One libpsl context serves the
// whole process: the built-in one, fetched once under the thread-safe
// initialisation of a function-local static and never freed.
#include "header/public_suffix.h"

#include <algorithm>
#include <string>

#include <libpsl.h>

namespace header {
namespace {

psl_ctx_t const* context() {
  static psl_ctx_t const* const builtin = psl_builtin();
  return builtin;
}

// The dot that begins the label ending just before the dot at label_dot, or
// first when that label is the first of the name.
char const* previous_dot(char const* first, char const* label_dot) {
  auto const found = std::find(std::make_reverse_iterator(label_dot), std::make_reverse_iterator(first), '.');
  return found.base() == first ? first : found.base() - 1;
}

// The label before the one starting at label_start: empty when label_start
// is the start of the name or is not preceded by a dot.
match_t label_before(char const* first, char const* label_start) {
  if (label_start == first || label_start[-1] != '.')
    return {};
  char const* const dot = label_start - 1;
  char const* const begin = previous_dot(first, dot);
  char const* const label_first = begin == first && *begin != '.' ? first : begin + 1;
  return label_first == dot ? match_t{} : match_t{label_first, dot};
}

} // namespace

char const* get_public_suffix(char const*& first, char const* end) {
  psl_ctx_t const* const psl = context();
  char const* suffix = end;
  if (!psl || first == end)
    return suffix;
  std::string candidate;
  char const* label_end = end; // one past the label to add next
  for (;;) {
    char const* const start = previous_dot(first, label_end);
    candidate.assign(start, end);
    if (!psl_is_public_suffix(psl, candidate.c_str()))
      break;
    suffix = start == first && *start != '.' ? first : start + 1;
    if (start == first)
      break;
    label_end = start;
  }
  return suffix;
}

match_t psl_top_level_function(char const*& position, char const* end) {
  char const* first = position;
  position = end;
  char const* const suffix = get_public_suffix(first, end);
  return suffix == end ? match_t{} : match_t{suffix, end};
}

match_t psl_second_level_function(char const*& position, char const* end) {
  char const* first = position;
  position = end;
  return label_before(first, get_public_suffix(first, end));
}

match_t psl_third_level_function(char const*& position, char const* end) {
  char const* first = position;
  position = end;
  match_t const second = label_before(first, get_public_suffix(first, end));
  return second.found() ? label_before(first, second.first) : match_t{};
}

} // namespace header
