// SPDX-License-Identifier: MIT
// The body walker: which text of a message gets indexed.
//
// parse_body reads the content keys the header scanner derived for an entity
// and picks its text. Only inline text/plain produces text; text/html never
// does. Of a multipart only the first part counts, except multipart/mixed
// below 20,000,000 bytes, whose parts are all walked and their texts joined
// without a separator. (multipart/alternative therefore yields its first
// alternative or nothing: an HTML-first alternative gives no text, on
// purpose.) An enclosed message/rfc822 is walked into; of nested header
// blocks only the three content fields are read, so a forwarded message's
// subject and addresses never reach the index.
//
// The full reading keeps that policy for plain text and adds to it. Where the
// desktop reading finds no text in an entity that is inline text/html (an
// html-only message, an inline html part of a mixed message), the HTML's
// text is taken. Every alternative is looked at: the first one that gives
// plain text wins, and only when none does, the first that gives HTML text,
// and after that the first calendar (its events' title, place and
// description). A mixed message's texts are joined with a line break where
// neither text has one at the join. Any disposition but an attachment's is
// read as inline. The root of a multipart/related is the part its start
// parameter names, else its first part that is not an attachment. Blank
// lines inside base64 give nothing. And every part that names a file is
// listed as an attachment, wherever it sits in the structure, including parts
// whose text is not wanted and the parts of messages enclosed in them.
//
// Nesting is bounded: an entity nested deeper than max_nesting_depth levels
// of multiparts and enclosed messages yields no text (and no attachments).
// That is deeper than any mail program nests, and the walk costs neither
// stack nor time per level beyond the level's own work, so a hostile file of
// a million nested parts is read in linear time on a small stack. Enclosed
// messages that are themselves encoded are decoded only while all that
// decoding stays within twice the input and 16 MiB; past that they yield no
// text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "email/headers.h"
#include "email/reading.h"
#include "error/handler.h"

namespace email {

// U+FFFF in UTF-8: what the walker returns when an entity yields no text, so
// that "no text" and "empty text" stay distinct.
inline constexpr char no_text_marker[] = "\xEF\xBF\xBF";

inline constexpr std::size_t max_nesting_depth = 1024;

// The UTF-8 text of the entity whose body is [begin, end) and whose content
// keys are in headers; the no-text marker when it yields none. top_level is
// true only for the message itself. When problems is given, the decoders on
// the way describe what they repaired there; the text is the same either way.
std::string parse_body(char const* begin, char const* end, header_map_t& headers, bool top_level,
                       quern::error::handler_t* problems = nullptr);

// A part that names a file, as the full reading lists it.
struct attachment_t {
  std::string file_name;
  std::string media_type;  // "type/subtype" as declared, lower case
  std::uint64_t size = 0;  // after transfer decoding
  std::string content_id;  // without angle brackets; empty when none
  std::string disposition; // lower case; "inline" when none is given
  bool operator==(attachment_t const&) const = default;
};

// What a walk gives: the text (absent when the message yields none, which is
// not the same as an empty text) and, when asked for, the parts that name a
// file, in the order they appear, nested ones included.
struct body_t {
  std::optional<std::string> text;
  std::vector<attachment_t> attachments;
};

// The walk of parse_body in a chosen reading, with the attachments listed
// when attachments is true (only the full reading lists them).
body_t read_body(char const* begin, char const* end, header_map_t& headers, bool top_level, reading_t reading,
                 bool attachments, quern::error::handler_t* problems = nullptr);

} // namespace email
