// SPDX-License-Identifier: MIT
#include "error/handler.h"

#include <cassert>
#include <cstdio>

namespace quern::error {

void handler_t::push_context(record_t const& context) {
  contexts_.push_back(context);
}

void handler_t::pop_context() {
  assert(!contexts_.empty());
  if (!contexts_.empty())
    contexts_.pop_back();
}

void handler_t::push_back(record_t const& problem) {
  record_t merged = problem;
  // map::insert never overwrites, so visiting outermost first lets the
  // record's own keys win, then the outermost context's.
  for (record_t const& context : contexts_)
    merged.insert(context.begin(), context.end());
  errors_.push_back(std::move(merged));
}

void handler_t::get_errors(record_t const& extra, std::vector<record_t>& out) const {
  out.insert(out.end(), errors_.begin(), errors_.end());
  if (!out.empty())
    out.back().insert(extra.begin(), extra.end());
}

void handler_t::dump() const {
  for (record_t const& problem : errors_)
    std::fprintf(stderr, "%s\n", to_s(problem).c_str());
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
