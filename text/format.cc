// SPDX-License-Identifier: MIT
#include "text/format.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace text {

std::string format(char const* format, ...) {
  va_list args;
  va_start(args, format);
  char* buffer = nullptr;
  int const length = vasprintf(&buffer, format, args);
  va_end(args);
  // vasprintf leaves the buffer undefined on failure; treat that as an empty
  // result rather than reading through it.
  if (length < 0)
    return {};
  std::string result(buffer, static_cast<std::size_t>(length));
  std::free(buffer);
  return result;
}

} // namespace text
