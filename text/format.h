// SPDX-License-Identifier: MIT
// printf-style formatting into a std::string.
#pragma once

#include <string>

namespace text {

std::string format(char const* format, ...) __attribute__((format(printf, 1, 2)));

} // namespace text
