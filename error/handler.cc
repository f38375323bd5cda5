// SPDX-License-Identifier: MIT
#include "error/handler.h"

#include <cassert>
#include <cstdio>
#include <string_view>

namespace quern::error {

void handler_t::push_context(record_t const& context) {
  contexts_.push_back(context);
}

void handler_t::pop_context() {
  assert(!contexts_.empty());
  if (!contexts_.empty())
    contexts_.pop_back();
}

namespace {

// Whether a record's description fits code: a default one must not be a
// pattern left unfilled; one the caller wrote must begin with the code's text,
// up to the pattern's first % where the first filled-in part begins.
[[maybe_unused]] bool fits(std::string_view description, bool defaulted, code_t code) {
  std::string_view text = text_of(code);
  std::size_t percent = text.find('%');
  if (defaulted)
    return percent == std::string_view::npos;
  return description.starts_with(text.substr(0, percent));
}

} // namespace

void handler_t::push_back(code_t code, record_t const& problem) {
  record_t merged = problem;
  auto [description, added] = merged.try_emplace("description", text_of(code));
  assert(fits(description->second, added, code));
  (void)description;
  // map::insert never overwrites, so visiting outermost first lets the
  // record's own keys win, then the outermost context's.
  for (record_t const& context : contexts_)
    merged.insert(context.begin(), context.end());
  entries_.push_back({code, offset_, std::move(merged)});
}

void handler_t::get_errors(record_t const& extra, std::vector<record_t>& out) const {
  for (entry_t const& entry : entries_)
    out.push_back(entry.record);
  if (!out.empty())
    out.back().insert(extra.begin(), extra.end());
}

void handler_t::dump() const {
  for (entry_t const& entry : entries_)
    std::fprintf(stderr, "%s\n", to_s(entry.record).c_str());
}

std::string to_s(record_t const& record) {
  std::string result;
  for (auto const& [key, value] : record) {
    result += result.empty() ? "{ " : ", { ";
    result += key;
    result += " : ";
    result += value;
    result += " }";
  }
  return result;
}

} // namespace quern::error
