// SPDX-License-Identifier: MIT
#include "error/diagnostics.h"

#include <cstdio>

namespace quern::error {
namespace {

thread_local bool desktop = false;

} // namespace

bool desktop_warnings() {
  return desktop;
}

void warn(char const* line) {
  if (desktop)
    std::fputs(line, stderr);
}

desktop_scope_t::desktop_scope_t() : previous_(desktop) {
  desktop = true;
}

desktop_scope_t::~desktop_scope_t() {
  desktop = previous_;
}

} // namespace quern::error
