// SPDX-License-Identifier: MIT
#include "email/parameter.h"

#include "text/ascii.h"
#include <algorithm>

namespace email {
namespace {

using text::skip_blanks;

// The candidate name with every SP removed, compared case-insensitively.
bool name_matches(char const* first, char const* last, std::string const& name) {
  std::size_t i = 0;
  for (; first != last; ++first) {
    if (*first == ' ')
      continue;
    if (i == name.size() || text::to_lower(*first) != name[i])
      return false;
    ++i;
  }
  return i == name.size();
}

} // namespace

void parse_parameter(char const* begin, char const* end, std::string const& name, std::string& value) {
  while (begin != end && *begin == ';') {
    char const* name_first = skip_blanks(begin + 1, end);
    char const* equals = std::find(name_first, end, '=');
    if (equals != end && name_matches(name_first, equals, name)) {
      char const* p = skip_blanks(equals + 1, end);
      if (p == end || parse_quoted_string(p, end, value))
        return;
      parse_string(p, end, value);
      return;
    }
    begin = std::find(equals, end, ';');
  }
}

bool parse_quoted_string(char const* begin, char const* end, std::string& value) {
  if (begin == end || *begin != '"')
    return false;
  std::string collected;
  for (char const* p = begin + 1; p != end; ++p) {
    if (*p == '\\') {
      if (++p == end)
        return false;
      collected.push_back(*p);
    } else if (*p == '"') {
      value.swap(collected);
      return true;
    } else {
      collected.push_back(*p);
    }
  }
  return false;
}

bool parse_string(char const* begin, char const* end, std::string& value) {
  value.append(begin, std::find_if(begin, end, [](char c) { return c == ' ' || c == ';'; }));
  return true;
}

} // namespace email
