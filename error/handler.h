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
//
// Each stored problem also keeps its code (error/problems.h) and the offset
// that was current when it was pushed: the position in the message of the
// header field or body part being read, set by whoever walks the message.
// Parsers below that level never know where their input came from, so they
// need not pass positions around.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "error/problems.h"

namespace quern::error {

// One problem: "description" is always present; "context", "from_charset",
// "to_charset", "delimiter" and "#priority" appear where they apply.
using record_t = std::map<std::string, std::string>;

class handler_t {
public:
  void push_context(record_t const& context);
  // Must pair with push_context; popping an empty stack is a caller bug.
  void pop_context();

  // Stores problem under code. A record without a "description" gets
  // text_of(code), which must then not be a pattern; a description the caller
  // wrote must begin with that text, up to its first %. Debug builds check.
  void push_back(code_t code, record_t const& problem);
  std::size_t size() const { return entries_.size(); }

  // Where in the message the current work is: stamped on every problem pushed
  // until it is set again. Starts at 0.
  void set_offset(std::size_t offset) { offset_ = offset; }
  std::size_t offset() const { return offset_; }

  // One stored problem: its code, the offset current when it was pushed and
  // the record as stored (contexts merged in).
  struct entry_t {
    code_t code;
    std::size_t offset;
    record_t record;
  };
  // In the order pushed, the same order as get_errors and dump.
  std::vector<entry_t> const& entries() const { return entries_; }

  // Appends copies of every problem to out, then merges extra into the last
  // copied record only (and nowhere when nothing was copied).
  void get_errors(record_t const& extra, std::vector<record_t>& out) const;

  // Prints every problem, one line each, to standard error.
  void dump() const;

private:
  std::vector<record_t> contexts_;
  std::vector<entry_t> entries_;
  std::size_t offset_ = 0;
};

// Sets a handler's offset for a scope and puts the previous one back when the
// scope ends, so a nested walker (a message inside a part) cannot leave its
// own offset behind. A null handler makes it do nothing.
class offset_scope_t {
public:
  offset_scope_t(handler_t* handler, std::size_t offset) : handler_(handler) {
    if (handler_) {
      previous_ = handler_->offset();
      handler_->set_offset(offset);
    }
  }
  ~offset_scope_t() {
    if (handler_)
      handler_->set_offset(previous_);
  }
  offset_scope_t(offset_scope_t const&) = delete;
  offset_scope_t& operator=(offset_scope_t const&) = delete;

private:
  handler_t* handler_;
  std::size_t previous_ = 0;
};

// "{ key : value }, { key : value }" in key order; nothing is escaped.
std::string to_s(record_t const& record);

} // namespace quern::error
