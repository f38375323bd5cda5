// SPDX-License-Identifier: MIT
// The few fixed warning lines the desktop-search host's importer has always
// written to standard error (a uuencoded text given up on, a conversion
// descriptor that would not close) and its one deliberate abort (asking to
// read back a name in display form).
//
// Those lines belong to that host alone. A Linux host or a program using the
// library has no use for text on a standard error it does not own, and a
// library must never end its caller's process, so by default nothing is
// written and nothing aborts. The desktop import entries switch them on for
// the work they do on the calling thread, with a desktop_scope_t.
#pragma once

namespace quern::error {

// Whether the desktop host's warnings are on for this thread.
bool desktop_warnings();

// Writes line to standard error when the desktop host's warnings are on.
void warn(char const* line);

// Switches the desktop host's warnings on for this thread while it lives.
class desktop_scope_t {
public:
  desktop_scope_t();
  ~desktop_scope_t();
  desktop_scope_t(desktop_scope_t const&) = delete;
  desktop_scope_t& operator=(desktop_scope_t const&) = delete;

private:
  bool previous_;
};

} // namespace quern::error
