// SPDX-License-Identifier: MIT
#include "hosts/cli/mbox.h"

#include "hosts/cli/console.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace cli {
namespace {

constexpr std::size_t chunk = 1 << 20;

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

bool is_blank_line(std::string_view line) {
  return line == "\n" || line == "\r\n";
}

// "hh:mm" with one or two digits for the hour, not inside a longer number.
bool has_time(std::string_view text) {
  for (std::size_t colon = text.find(':'); colon != std::string_view::npos; colon = text.find(':', colon + 1)) {
    if (colon == 0 || !is_digit(text[colon - 1]) || colon + 2 >= text.size() || !is_digit(text[colon + 1]) ||
        !is_digit(text[colon + 2]))
      continue;
    return true;
  }
  return false;
}

// Four digits standing alone: a year.
bool has_year(std::string_view text) {
  std::size_t run = 0;
  for (std::size_t i = 0; i <= text.size(); ++i) {
    if (i < text.size() && is_digit(text[i])) {
      ++run;
    } else {
      if (run == 4)
        return true;
      run = 0;
    }
  }
  return false;
}

// ">From ", ">>From ", ...: one level of quoting to undo.
bool is_quoted_from(std::string_view line) {
  std::size_t const arrows = line.find_first_not_of('>');
  return arrows != 0 && arrows != std::string_view::npos && line.substr(arrows).starts_with("From ");
}

} // namespace

bool is_envelope_line(std::string_view line) {
  if (!line.starts_with("From "))
    return false;
  line.remove_prefix(5);
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r'))
    line.remove_suffix(1);
  if (line.starts_with("-"))
    return true;
  std::size_t const space = line.find(' ');
  if (line.empty() || space == 0 || space == std::string_view::npos)
    return false;
  std::string_view const date = line.substr(space + 1);
  return has_time(date) && has_year(date);
}

bool mbox_reader_t::next_line(std::string_view& line) {
  for (std::size_t scanned = position_;;) {
    if (void const* lf = std::memchr(buffer_.data() + scanned, '\n', buffer_.size() - scanned)) {
      std::size_t const end = static_cast<std::size_t>(static_cast<char const*>(lf) - buffer_.data()) + 1;
      line = std::string_view(buffer_).substr(position_, end - position_);
      position_ = end;
      return true;
    }
    scanned = buffer_.size();
    if (buffer_.size() - position_ >= chunk) {
      // A line this long goes on in pieces.
      line = std::string_view(buffer_).substr(position_);
      position_ = buffer_.size();
      return true;
    }
    if (eof_) {
      line = std::string_view(buffer_).substr(position_);
      position_ = buffer_.size();
      return !line.empty();
    }
    // Keep what is unread at the front, then read the next chunk behind it.
    buffer_.erase(0, position_);
    scanned -= position_;
    position_ = 0;
    std::size_t const had = buffer_.size();
    buffer_.resize(had + chunk);
    ssize_t n;
    do
      n = ::read(fd_, buffer_.data() + had, chunk);
    while (n < 0 && errno == EINTR && !stop_signal());
    buffer_.resize(had + static_cast<std::size_t>(n > 0 ? n : 0));
    if (n < 0)
      error_ = errno;
    eof_ = n <= 0;
  }
}

void mbox_reader_t::keep(std::string_view bytes) {
  message_.append(bytes.substr(0, keep_ - std::min(keep_, message_.size())));
}

bool mbox_reader_t::next(std::string& message) {
  std::string_view line;
  while (next_line(line)) {
    // Only a whole line, or the first piece of one, can be a separator, a
    // blank line or a quoted From.
    bool const line_start = at_line_start_;
    at_line_start_ = line.ends_with('\n');
    if (!line_start) {
      keep(line);
      continue;
    }
    if (is_envelope_line(line)) {
      held_blank_.clear();
      bool const had_message = started_;
      started_ = true;
      if (had_message) {
        message.swap(message_);
        message_.clear();
        return true;
      }
      continue;
    }
    keep(held_blank_);
    held_blank_.clear();
    if (is_blank_line(line)) {
      held_blank_ = line;
      continue;
    }
    started_ = true;
    if (is_quoted_from(line))
      line.remove_prefix(1);
    keep(line);
  }
  if (!started_ || error_)
    return false;
  started_ = false;
  held_blank_.clear();
  message.swap(message_);
  message_.clear();
  return true;
}

} // namespace cli
