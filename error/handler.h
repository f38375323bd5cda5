// SPDX-License-Identifier: MIT
// The problem collector.
//
// Parsers in this library never reject input: they repair or pass through
// what they cannot read and describe what they did in a problem record. A
// caller that wants those descriptions hands the parser a handler_t; a null
// pointer means nobody is listening, and producers must test for null before
// they spend any time building a record.
//
// Context records are a stack: while one is pushed, every problem stored
// receives its keys, without overwriting. The record's own keys always win;
// among contexts the outermost one wins, so a caller high up can label a whole
// subtree of work ("while decoding part 3") and inner callers cannot relabel it.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace quern::error {

// One problem: "description" is always present; "context", "from_charset",
// "to_charset", "delimiter" and "#priority" appear where they apply.
using record_t = std::map<std::string, std::string>;

class handler_t {
public:
  void push_context(record_t const& context);
  // Must pair with push_context; popping an empty stack is a caller bug.
  void pop_context();

  void push_back(record_t const& problem);
  std::size_t size() const { return errors_.size(); }

  // Appends copies of every problem to out, then merges extra into the last
  // copied record only (and nowhere when nothing was copied).
  void get_errors(record_t const& extra, std::vector<record_t>& out) const;

  // Prints every problem, one line each, to standard error.
  void dump() const;

private:
  std::vector<record_t> contexts_;
  std::vector<record_t> errors_;
};

// "{ key : value }, { key : value }" in key order; nothing is escaped.
std::string to_s(record_t const& record);

} // namespace quern::error
