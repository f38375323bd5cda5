// SPDX-License-Identifier: MIT
// The iCalendar reader: physical lines are gathered into one content line at
// a time in a buffer that is reused, and each finished content line is looked
// at once. BEGIN and END move the depth of components open inside the
// current event; at the event's own level the three wanted properties are
// kept until its END (or the end of the input) writes them out.
#include "email/calendar.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "text/ascii.h"

namespace email {
namespace {

// The property name of a content line and its value: what follows the first
// ':' that is not inside a quoted parameter value. False when there is no
// such ':'.
bool split_line(std::string_view line, std::string_view& name, std::string_view& value) {
  std::size_t i = 0;
  while (i < line.size() && line[i] != ':' && line[i] != ';')
    ++i;
  name = line.substr(0, i);
  bool quoted = false;
  for (; i < line.size(); ++i) {
    if (line[i] == '"') {
      quoted = !quoted;
    } else if (line[i] == ':' && !quoted) {
      value = line.substr(i + 1);
      return true;
    }
  }
  return false;
}

// The text of a value without its escapes, trimmed.
std::string unescape(std::string_view value) {
  std::string out;
  out.reserve(value.size());
  for (std::size_t i = 0; i < value.size(); ++i) {
    char const c = value[i];
    if (c == '\\' && i + 1 < value.size()) {
      char const next = value[i + 1];
      if (next == 'n' || next == 'N' || next == ',' || next == ';' || next == '\\') {
        out.push_back(next == 'n' || next == 'N' ? '\n' : next);
        ++i;
        continue;
      }
    }
    out.push_back(c);
  }
  std::size_t const first =
      static_cast<std::size_t>(std::find_if_not(out.begin(), out.end(), text::is_space) - out.begin());
  while (out.size() > first && text::is_space(out.back()))
    out.pop_back();
  out.erase(0, first);
  return out;
}

std::string_view trimmed(std::string_view s) {
  while (!s.empty() && text::is_space(s.front()))
    s.remove_prefix(1);
  while (!s.empty() && text::is_space(s.back()))
    s.remove_suffix(1);
  return s;
}

class reader_t {
public:
  void read(std::string_view line) {
    std::string_view name, value;
    if (!split_line(line, name, value))
      return;
    if (text::equals_lower(name, "begin")) {
      if (depth_ != 0 || text::equals_lower(trimmed(value), "vevent"))
        ++depth_;
    } else if (text::equals_lower(name, "end")) {
      if (depth_ != 0 && --depth_ == 0)
        end_event();
    } else if (depth_ == 1) {
      for (std::size_t field = 0; field != names_.size(); ++field)
        if (event_[field].empty() && text::equals_lower(name, names_[field]))
          event_[field] = unescape(value);
    }
  }

  // The text, with an event the input left open.
  std::string take() {
    end_event();
    return std::move(text_);
  }

private:
  void end_event() {
    for (std::string& value : event_) {
      if (!value.empty())
        text_.append(value).push_back('\n');
      value.clear();
    }
    depth_ = 0;
  }

  // In the order they are written out.
  static constexpr std::array<std::string_view, 3> names_{"summary", "location", "description"};
  std::size_t depth_ = 0; // components open from the current event down; 0 outside events
  std::array<std::string, 3> event_;
  std::string text_;
};

} // namespace

std::string calendar_text(char const* begin, char const* end) {
  reader_t reader;
  std::string line;
  bool open = false; // whether line holds a content line not yet read
  for (char const* p = begin; p != end;) {
    auto const* lf = static_cast<char const*>(std::memchr(p, '\n', static_cast<std::size_t>(end - p)));
    char const* stop = lf ? lf : end;
    char const* const next = lf ? lf + 1 : end;
    if (stop != p && stop[-1] == '\r')
      --stop;
    if (open && stop != p && text::is_blank(*p)) {
      line.append(p + 1, stop);
    } else {
      if (open)
        reader.read(line);
      line.assign(p, stop);
      open = true;
    }
    p = next;
  }
  if (open)
    reader.read(line);
  return reader.take();
}

} // namespace email
