// SPDX-License-Identifier: MIT
#include "importer/mbox.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace tidewell {
namespace {

constexpr std::size_t chunk = 1 << 20;
constexpr std::size_t envelope_reach = 1024;

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

bool is_blank_line(std::string_view line) {
  return line == "\n" || line == "\r\n";
}

bool is_alpha(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

bool is_blank(char c) {
  return c == ' ' || c == '\t';
}

// The parts of an envelope line below each take their part off the front of
// text when it is there and leave text as it was when not. None looks back,
// and the two orders a date comes in are each tried once, so a line costs at
// most two passes over its first envelope_reach bytes.

bool skip_blanks(std::string_view& text) {
  std::size_t n = 0;
  while (n < text.size() && is_blank(text[n]))
    ++n;
  text.remove_prefix(n);
  return n > 0;
}

// Where a part ends: a blank or the end of the line, so "2025." is no year and
// "14:03:09x" no time.
bool ends_here(std::string_view text) {
  return text.empty() || is_blank(text.front());
}

// A number of min_digits to max_digits digits, not part of a longer one,
// from least to most.
bool take_number(std::string_view& text, std::size_t min_digits, std::size_t max_digits, int least, int most) {
  std::size_t n = 0;
  int value = 0;
  for (; n < text.size() && is_digit(text[n]); ++n) {
    if (n == max_digits)
      return false;
    value = value * 10 + (text[n] - '0');
  }
  if (n < min_digits || value < least || value > most)
    return false;
  text.remove_prefix(n);
  return true;
}

// One of the three-letter names, in any case, as a word of its own (a comma
// may follow a weekday).
bool take_name(std::string_view& text, std::string_view names) {
  if (text.size() < 3 || (text.size() > 3 && is_alpha(text[3])))
    return false;
  for (std::size_t i = 0; i < names.size(); i += 3) {
    std::size_t k = 0;
    while (k < 3 && (text[k] | 0x20) == (names[i + k] | 0x20))
      ++k;
    if (k == 3) {
      text.remove_prefix(3);
      return true;
    }
  }
  return false;
}

constexpr std::string_view weekdays = "MonTueWedThuFriSatSun";
constexpr std::string_view months = "JanFebMarAprMayJunJulAugSepOctNovDec";

// hh:mm or hh:mm:ss, the hour in one digit or two.
bool take_time(std::string_view& text) {
  std::string_view rest = text;
  if (!take_number(rest, 1, 2, 0, 23) || !rest.starts_with(':'))
    return false;
  rest.remove_prefix(1);
  if (!take_number(rest, 2, 2, 0, 59))
    return false;
  if (rest.starts_with(':')) {
    rest.remove_prefix(1);
    if (!take_number(rest, 2, 2, 0, 60))
      return false;
  }
  if (!ends_here(rest))
    return false;
  text = rest;
  return true;
}

bool take_year(std::string_view& text) {
  std::string_view rest = text;
  if (!take_number(rest, 4, 4, 0, 9999) || !ends_here(rest))
    return false;
  text = rest;
  return true;
}

// +hhmm, -hhmm or a zone's letters (PDT, GMT, CEST).
bool take_zone(std::string_view& text) {
  std::size_t n = 0;
  if (text.starts_with('+') || text.starts_with('-')) {
    for (n = 1; n < text.size() && n <= 5 && is_digit(text[n]);)
      ++n;
    if (n != 5)
      return false;
  } else {
    while (n < text.size() && n <= 5 && is_alpha(text[n]))
      ++n;
    if (n == 0 || n > 5)
      return false;
  }
  if (!ends_here(text.substr(n)))
    return false;
  text.remove_prefix(n);
  return true;
}

// asctime's order: "Oct  2 14:03:09 2025", with one or two zone words
// ("+0000", "PDT") between the time and the year or none.
bool is_asctime_date(std::string_view text) {
  if (!take_name(text, months) || !skip_blanks(text) || !take_number(text, 1, 2, 1, 31) || !skip_blanks(text) ||
      !take_time(text) || !skip_blanks(text))
    return false;
  for (int zones = 0; zones < 2 && !take_year(text); ++zones)
    if (!take_zone(text) || !skip_blanks(text))
      return false;
  return true;
}

// RFC 2822's order: "2 Oct 2025 14:03:09".
bool is_rfc2822_date(std::string_view text) {
  return take_number(text, 1, 2, 1, 31) && skip_blanks(text) && take_name(text, months) && skip_blanks(text) &&
         take_year(text) && skip_blanks(text) && take_time(text);
}

// "From ", the sender (an address, MAILER-DAEMON, "-"; a quoted local part
// may hold blanks) and the date in an order some writer uses, a weekday in
// front or not. Anything may follow the date (a zone, "remote from host").
bool is_envelope_shape(std::string_view text) {
  std::size_t n = 0;
  if (text.starts_with('"')) {
    n = text.find('"', 1);
    if (n == std::string_view::npos)
      return false;
  }
  while (n < text.size() && !is_blank(text[n]))
    ++n;
  text.remove_prefix(n);
  if (n == 0 || !skip_blanks(text))
    return false;
  if (take_name(text, weekdays)) {
    if (text.starts_with(','))
      text.remove_prefix(1);
    if (!skip_blanks(text))
      return false;
  }
  return is_asctime_date(text) || is_rfc2822_date(text);
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
  // An envelope line is short; a long line is looked at no further than
  // a sender and a date reach, so that reading it stays cheap.
  line = line.substr(0, envelope_reach);
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r'))
    line.remove_suffix(1);
  return is_envelope_shape(line);
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
    while (n < 0 && errno == EINTR && !(stop_ && stop_()));
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

} // namespace tidewell
