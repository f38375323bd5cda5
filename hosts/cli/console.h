// SPDX-License-Identifier: MIT
// Standard error and standard output of the command-line tool.
//
// Diagnostics come from worker threads while the main thread redraws the
// progress line, so every write to standard error goes through one lock that
// also knows whether a progress line is showing: a diagnostic first wipes it,
// and the next redraw puts it back. Standard output is written with write(2)
// from one buffer, so that a full disk or a closed pipe is noticed at the
// write that failed, with its errno, rather than lost in stdio.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace cli {

// SIGINT and SIGTERM stop a run cleanly rather than kill it mid-line: the
// first one only sets a flag, which the run checks between records, so that
// it takes no new work, writes no record after the one being written,
// flushes what is whole, prints its summary and exits with 128 + the
// signal's number. A second one ends the process at once. Threads started
// afterwards should call block_stop_signals, so that a signal reaches the
// main thread and interrupts a read of standard input.
void catch_stop_signals();
void block_stop_signals();

// The signal that asked the run to stop; 0 while none has.
int stop_signal();

// Runs print (which may write to stderr through stdio or perror) with the
// progress line wiped and no other diagnostic or redraw in between.
void with_stderr(std::function<void()> const& print);

// "tidewell-import: PATH: reason" on a line of its own.
void report(std::string_view path, std::string_view reason);

// The same line, for use inside with_stderr (which already holds the lock).
void report_locked(std::string_view path, std::string_view reason);

// Draws text as the progress line, replacing the one shown. Only call when
// standard error is a terminal.
void show_progress(std::string_view text);

// Wipes the progress line, if one is shown.
void clear_progress();

// Buffered standard output. After a failed write every later write is a
// no-op and error() holds the errno.
class stdout_t {
public:
  explicit stdout_t(int fd = 1) : fd_(fd) {}
  stdout_t(stdout_t const&) = delete;
  stdout_t& operator=(stdout_t const&) = delete;
  ~stdout_t() { flush(); }

  bool write(std::string_view bytes);
  bool flush();
  int error() const { return error_; }

private:
  bool write_all(std::string_view bytes);

  int fd_;
  int error_ = 0;
  std::string buffer_;
};

} // namespace cli
