// SPDX-License-Identifier: MIT
// Token scanning, list splitting and quoting for structured header values.
//
// Character classes come from the ASCII table of text/ascii.h, so every test
// is a single load. The token scanner keeps its nesting as a
// counter: a value of a million '(' costs a linear scan and no stack. The
// splitters are single forward passes with a few flags; the quoting helpers
// build their result in one pass as well.
#include "header/token.h"
#include "text/ascii.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace header {
namespace {

using text::has_class;

// Membership in a C-string set the way strchr tests it: NUL is a member.
bool in_set(char const* set, char c) {
  return std::strchr(set, c) != nullptr;
}

// A terminator set as two 64-bit masks over ASCII, built once per scan:
// strchr for every byte cost more than the rest of a long scan. NUL is
// never a terminator (strchr would find the set's own end).
class terminator_set_t {
public:
  explicit terminator_set_t(char const* terminators) {
    for (char const* t = terminators; *t; ++t) {
      auto const c = static_cast<unsigned char>(*t);
      if (c < 64)
        low_ |= std::uint64_t{1} << c;
      else if (c < 128)
        high_ |= std::uint64_t{1} << (c - 64);
      else
        other_ = terminators;
    }
  }

  bool contains(char c) const {
    auto const u = static_cast<unsigned char>(c);
    if (u < 64)
      return u != 0 && ((low_ >> u) & 1) != 0;
    if (u < 128)
      return ((high_ >> (u - 64)) & 1) != 0;
    return other_ && in_set(other_, c);
  }

private:
  std::uint64_t low_ = 0, high_ = 0;
  char const* other_ = nullptr; // the set, when it holds bytes above ASCII
};

// A byte that ends the token: NUL never does.
bool is_terminator(terminator_set_t const& terminators, char const* p, char const* end) {
  char const c = *p;
  if (!terminators.contains(c))
    return false;
  if (c == '<' && p + 1 != end && special_check(p, end))
    return false;
  return true;
}

using text::skip_blanks;

char const* trim_blanks_back(char const* first, char const* last) {
  while (last != first && is_blank(last[-1]))
    --last;
  return last;
}

// Past the double-quoted string whose opening quote is at p; end if it is
// not closed.
char const* skip_quoted(char const* p, char const* end) {
  for (++p; p != end; ++p) {
    if (*p == '\\') {
      if (++p == end)
        return end;
    } else if (*p == '"') {
      return p + 1;
    }
  }
  return end;
}

} // namespace

bool is_tspecial(char c) {
  return has_class(c, text::ascii_tspecial);
}
bool is_attribute_char(char c) {
  return has_class(c, text::ascii_attribute);
}
bool is_blank(char c) {
  return text::is_blank(c);
}

bool special_check(char const* first, char const* end) {
  char const* p = first + 1;
  if (p != end && *p == '<')
    ++p;
  for (; p != end; ++p) {
    if (*p == '>')
      return false;
    if (*p == '<')
      return true;
  }
  return false;
}

char const* scan_token_stop(char const* start, char const* end, char opener, char const* terminators, bool escapes) {
  terminator_set_t const set(terminators);
  std::size_t depth = 1;
  char const* p = start;
  while (p != end) {
    if (is_terminator(set, p, end)) {
      if (depth == 1)
        return p;
      --depth;
    } else if (escapes && *p == '\\') {
      if (++p == end)
        return end;
    } else if (opener != '\0' && *p == opener) {
      ++depth;
    }
    ++p;
  }
  return end;
}

bool finish_token(char const*& position, char const* stop, char const* end, char opener, char const* terminators,
                  bool required, match_t& result) {
  char const* const start = position;
  if ((required && stop == end) || stop == start)
    return false;
  char const* first = skip_blanks(start, stop);
  position = first;
  char const* last = trim_blanks_back(first, stop);
  if (last - first >= 2 && *first == '\'' && last[-1] == '\'') {
    ++first;
    --last;
  }
  while (last - first >= 2 && *first == opener && in_set(terminators, last[-1])) {
    ++first;
    --last;
  }
  while (last - first >= 2 && last[-1] == '\0')
    --last;
  while (last - first > 1 && *first == '\0')
    ++first;
  if (first == last)
    return false;
  result.first = first;
  result.last = last;
  position = required ? stop + 1 : stop;
  return true;
}

bool parse_token_until(char const*& position, char const* end, char opener, char const* terminators, bool required,
                       bool escapes, match_t& result) {
  char const* const stop = scan_token_stop(position, end, opener, terminators, escapes);
  return finish_token(position, stop, end, opener, terminators, required, result);
}

match_t address_split_function(char const*& position, char const* end) {
  position = skip_blanks(position, end);
  if (position == end)
    return {end, end};
  char const* const start = position;
  bool seen_at = false, in_group = false, seen_colon = false;
  char const* p = start;
  while (p != end) {
    char const c = *p;
    if (c == ',' && (seen_at || in_group))
      break;
    if (c == '"') {
      p = skip_quoted(p, end);
      continue;
    }
    if (c == ':')
      seen_colon = true;
    else if (c == ';')
      in_group = in_group || seen_colon;
    else if (c == '@')
      seen_at = true;
    else if (!is_blank(c))
      in_group = seen_colon;
    ++p;
  }
  position = p == end ? end : p + 1;
  return {start, trim_blanks_back(start, p)};
}

match_t parameter_split_function(char const*& position, char const* end) {
  if (position == end)
    return {};
  position = skip_blanks(position, end);
  if (position == end || *position != ';')
    return {};
  position = skip_blanks(position + 1, end);
  while (position != end && *position == ';')
    position = skip_blanks(position + 1, end);
  if (position == end)
    return {};
  char const* const name = position;
  char const* const equals = std::find(name, end, '=');
  if (equals == end)
    return {};
  char const* p = skip_blanks(equals + 1, end);
  if (p != end && *p == '"')
    p = skip_blanks(skip_quoted(p, end), end);
  else
    p = std::find(p, end, ';');
  position = p;
  return {name, trim_blanks_back(name, p)};
}

std::string dequote_string(char const* first, char const* end) {
  std::string out;
  out.reserve(static_cast<std::size_t>(end - first));
  bool quoted = false;
  for (char const* p = first; p != end; ++p) {
    char const c = *p;
    if (c == '"') {
      quoted = !quoted;
    } else if (c == '\\' && quoted) {
      if (++p == end)
        break;
      out += *p;
    } else if (c == ' ' && !quoted) {
      if (p == first || p[-1] != ' ')
        out += ' ';
    } else {
      out += c;
    }
  }
  return out;
}

bool dequote_string_if_needed(char const*& first, char const*& end, std::string& out) {
  char const* const quote = std::find(first, end, '"');
  if (quote == end)
    return false;
  if (end - first >= 2 && *first == '"' && end[-1] == '"' && std::find(first, end, '\\') == end &&
      std::find(first + 1, end - 1, '"') == end - 1) {
    ++first;
    --end;
    return false;
  }
  out = dequote_string(first, end);
  return true;
}

char const* sanitize_quotes(char const*& first, char const*& end) {
  if (end - first >= 2 && *first == '\'' && end[-1] == '\'') {
    ++first;
    --end;
  }
  return first;
}

std::string quote_string(std::string const& text, char const* extra) {
  bool const plain = std::all_of(text.begin(), text.end(),
                                 [extra](char c) { return has_class(c, text::ascii_alnum) || in_set(extra, c); });
  if (plain)
    return text;
  std::string out;
  out.reserve(text.size() + 2);
  out += '"';
  for (char c : text) {
    if (c == '\\' || c == '"')
      out += '\\';
    out += c;
  }
  out += '"';
  return out;
}

std::string quote_name_string(std::string const& text) {
  return quote_string(text, "\\-_ ");
}

std::string percent_encoded_string(std::string const& text, bool printable) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    if (has_class(c, printable ? text::ascii_print : text::ascii_attribute)) {
      out += c;
    } else {
      char hex[4];
      std::snprintf(hex, sizeof hex, "%%%02x", static_cast<unsigned char>(c));
      out += hex;
    }
  }
  return out;
}

char const* skip_level(char const*& first, char const* end) {
  for (char const* p = end; p != first; --p)
    if (p[-1] == '.')
      return p;
  return first;
}

} // namespace header
