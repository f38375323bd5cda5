// SPDX-License-Identifier: MIT
#include "hosts/cli/console.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <mutex>
#include <pthread.h>
#include <unistd.h>

namespace cli {
namespace {

// Lock-free, so the handler may store to it.
std::atomic<int> stop_requested{0};
static_assert(std::atomic<int>::is_always_lock_free);

void on_stop_signal(int signal) {
  stop_requested.store(signal, std::memory_order_relaxed);
}

std::mutex stderr_lock;
bool progress_shown = false;

// Carriage return, then erase to the end of the line.
constexpr char wipe[] = "\r\033[K";

void wipe_locked() {
  if (progress_shown) {
    std::fputs(wipe, stderr);
    progress_shown = false;
  }
}

constexpr std::size_t flush_at = 1 << 16;

} // namespace

void with_stderr(std::function<void()> const& print) {
  std::lock_guard const lock(stderr_lock);
  wipe_locked();
  std::fflush(stderr);
  print();
  std::fflush(stderr);
}

void report_locked(std::string_view path, std::string_view reason) {
  std::fprintf(stderr, "tidewell-import: %.*s: %.*s\n", int(path.size()), path.data(), int(reason.size()),
               reason.data());
}

void report(std::string_view path, std::string_view reason) {
  with_stderr([&] { report_locked(path, reason); });
}

void show_progress(std::string_view text) {
  std::lock_guard const lock(stderr_lock);
  std::fprintf(stderr, "\r%.*s\033[K", int(text.size()), text.data());
  std::fflush(stderr);
  progress_shown = true;
}

void clear_progress() {
  std::lock_guard const lock(stderr_lock);
  wipe_locked();
  std::fflush(stderr);
}

void catch_stop_signals() {
  struct sigaction action {};
  action.sa_handler = on_stop_signal;
  sigemptyset(&action.sa_mask);
  // No SA_RESTART: a read of a terminal or an idle pipe must come back
  // (with EINTR) for the run to see the flag. SA_RESETHAND: the second
  // signal has its default effect.
  action.sa_flags = SA_RESETHAND;
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

void block_stop_signals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

int stop_signal() {
  return stop_requested.load(std::memory_order_relaxed);
}

bool stdout_t::write(std::string_view bytes) {
  if (error_)
    return false;
  if (buffer_.size() + bytes.size() < flush_at) {
    buffer_.append(bytes);
    return true;
  }
  // A large piece goes out as it is rather than through a copy.
  if (!flush())
    return false;
  if (bytes.size() < flush_at) {
    buffer_.append(bytes);
    return true;
  }
  return write_all(bytes);
}

bool stdout_t::flush() {
  write_all(buffer_);
  buffer_.clear();
  return !error_;
}

bool stdout_t::write_all(std::string_view bytes) {
  std::size_t done = 0;
  while (!error_ && done < bytes.size()) {
    ssize_t const n = ::write(fd_, bytes.data() + done, bytes.size() - done);
    if (n > 0)
      done += static_cast<std::size_t>(n);
    else if (n == 0)
      error_ = EIO;
    else if (errno != EINTR)
      error_ = errno;
  }
  return !error_;
}

} // namespace cli
