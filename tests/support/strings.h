// SPDX-License-Identifier: MIT
// Long and hostile inputs, and the CPU time they cost.
#pragma once

#include <time.h>

#include <string>

namespace test_support {

// part, times times over.
inline std::string repeat(std::string const& part, std::size_t times) {
  std::string out;
  out.reserve(part.size() * times);
  while (times-- > 0)
    out += part;
  return out;
}

// The calling thread's CPU time: time other processes take is not counted.
inline double thread_seconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

} // namespace test_support
