// SPDX-License-Identifier: MIT
// Base64 decoding that never fails.
//
// A body part labelled base64 is often not (entirely) base64: signatures or
// mailing-list footers get appended as plain text, lines end in CR LF, or an
// encoder wraps a group across lines. The decoder therefore works line by
// line in "line mode": letters are collected as 6-bit values, and at white
// space or '=' it checks that only blanks follow up to the LF. A group whose
// length (letters plus '=' padding) is a multiple of four is repacked into
// bytes; a shorter one stays pending and continues on the next line. A line
// that breaks these rules is copied to the output unchanged, pending values
// and all, and its bytes are counted for one problem record per call. Only LF
// ends a line: a CR before it is a byte that breaks the rules, so CR LF base64
// is passed through as text, consistent with the rest of the parser's view
// of line ends.
//
// "Free mode" serves encoded words, which have no lines: every white space or
// '=' run ends a group, which is repacked at once.
//
// Every input byte is classified by one table look-up; the blank scans and
// the pass-through search only move forward, so the decoder is linear.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "error/handler.h"

namespace email {

// Classes that decode_base_64_function gives besides the letter values 0-63.
inline constexpr unsigned char kBase64IllegalCharacter = 64;
inline constexpr unsigned char kBase64WhitespaceCharacter = 65; // tab, LF, CR, space
inline constexpr unsigned char kBase64EqualCharacter = 66;

// The value of a base64 letter, or one of the class constants above.
unsigned char decode_base_64_function(unsigned char c);

// Decodes [begin, end). In line mode, groups may span lines and undecodable
// lines are passed through; in free mode every blank or '=' ends a group.
std::vector<char> decode_base_64_data(char const* begin, char const* end, bool line_mode,
                                      quern::error::handler_t* problems);

// decode_base_64_data appending to result instead of returning a new vector.
// With blank_lines_empty, a line of white space between groups gives nothing
// and a stray CR counts as a blank (white space carries no data); otherwise
// such a line is passed through as text, and so is a line with a CR, which
// is how the desktop reading has always read them.
void decode_base_64_append(char const* begin, char const* end, bool line_mode, std::vector<char>& result,
                           quern::error::handler_t* problems, bool blank_lines_empty = false);

// The size decode_base_64_append gives (in line mode, blank lines empty) for
// a body that is nothing but lines of letters and, at its very end, the
// padding after a letter: what nearly every mail program writes. Counted,
// not decoded, as an attachment's size needs only that. Nothing for any
// other body, whose size only decoding tells.
std::optional<std::uint64_t> plain_base64_size(char const* begin, char const* end);

// decode_base_64_data in free mode, as a string. context names the caller's
// input for diagnostics and does not affect the result.
std::string decode_base_64(char const* begin, char const* end, quern::error::handler_t* problems,
                           std::string const& context);

} // namespace email
