// SPDX-License-Identifier: MIT
// Lexical tools for structured header values: tokens, list splitting, quoting.
//
// Everything here works on raw byte ranges [first, end) of a header value and
// never copies while scanning: a token is a pair of pointers into the caller's
// text. The one general scanner, parse_token_until, reads up to a terminator
// with optional nesting (a depth counter, never recursion) and optional
// backslash escapes; quoted strings, comments and angle addresses are all
// read with it. It is split into two halves, scan_token_stop (where does the
// token end?) and finish_token (trim and store it), so that a caller that can
// predict a failed scan does not have to pay for it.
//
// The quoting helpers are the only functions that allocate.
#pragma once

#include <string>

namespace header {

// One token found in a scanned text. Null pointers mean nothing was found.
struct match_t {
  char const* first = nullptr;
  char const* last = nullptr;
  bool angle = false;   // read from between '<' and '>'
  bool comment = false; // read from between '(' and ')'

  bool found() const { return first != nullptr; }
  bool empty() const { return first == last; }
  std::size_t size() const { return static_cast<std::size_t>(last - first); }
};

// The RFC 2045 tspecials ()<>@,;:\"/[]?= plus NUL: the set has always been
// tested with strchr, which finds its terminating NUL, and callers rely on
// NUL counting as special.
bool is_tspecial(char c);
// RFC 2231 attribute-char: ASCII, no control, space, '%', '\'', '*' or tspecial.
bool is_attribute_char(char c);
// Space or horizontal tab.
bool is_blank(char c);

// True when the '<' at first does not open a plausible angle address: after
// it (a second '<' right behind it is ignored) another '<' comes before any
// '>' and before the end.
bool special_check(char const* first, char const* end);

// Reads one token from position up to a byte of terminators (a C string; NUL
// never terminates). opener (0 for none) raises the nesting depth, a
// terminator met deeper lowers it. A '<' among the terminators only ends the
// token where it plausibly opens an angle address (see special_check). With
// escapes a backslash protects the next byte. When required, a token that
// reaches the end of the range is no token. The token is trimmed of blanks,
// of one pair of enclosing single quotes, of opener/terminator pairs and of
// outer NULs. On success the range is stored in result (flags untouched) and
// position moves to the terminator, or past it when required.
bool parse_token_until(char const*& position, char const* end, char opener, char const* terminators, bool required,
                       bool escapes, match_t& result);

// The first half of parse_token_until: where the scan from start stops (a
// terminator at depth one, or end).
char const* scan_token_stop(char const* start, char const* end, char opener, char const* terminators, bool escapes);

// The second half: given the stop found by scan_token_stop for a scan that
// began at position, trims and stores the token exactly as parse_token_until.
bool finish_token(char const*& position, char const* stop, char const* end, char opener, char const* terminators,
                  bool required, match_t& result);

// The next item of a comma-separated address list. A comma ends an item only
// after an '@' or inside group syntax, so "Doe, John <j@x>" stays whole.
// Quoted strings are skipped. Returns an empty match at end when the list is
// exhausted; position moves past the comma.
match_t address_split_function(char const*& position, char const* end);

// The next "; name = value" parameter, value quotes kept; an empty match when
// there is none. Empty parameters (";;") are passed over: a stray ';' must
// not hide the parameter after it. position is left on the following ';'
// (or end).
match_t parameter_split_function(char const*& position, char const* end);

// The text without double quotes and backslash escapes (escapes count only
// inside quotes); outside quotes runs of spaces become one space.
std::string dequote_string(char const* first, char const* end);

// Avoids the copy for the common "plain" quoted string: without a quote,
// false; a simple "..." is narrowed in place, false; otherwise out holds the
// dequoted text and the result is true.
bool dequote_string_if_needed(char const*& first, char const*& end, std::string& out);

// Removes one pair of enclosing single quotes; returns the new first.
char const* sanitize_quotes(char const*& first, char const*& end);

// text unchanged when it holds only ASCII letters, digits and bytes of extra;
// otherwise double-quoted with backslash before '\\' and '"'.
std::string quote_string(std::string const& text, char const* extra);

// quote_string allowing backslash, hyphen, underscore and space.
std::string quote_name_string(std::string const& text);

// Bytes that are not attribute chars (or, in printable mode, not printable)
// become "%xx" with lower-case hex digits.
std::string percent_encoded_string(std::string const& text, bool printable);

// The first byte of the last dot-separated label of [first, end).
char const* skip_level(char const*& first, char const* end);

} // namespace header
