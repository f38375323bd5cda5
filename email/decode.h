// SPDX-License-Identifier: MIT
// One body part from transfer-encoded bytes to canonical UTF-8 text.
//
// decode checks the Content-Transfer-Encoding against the part's media type
// and repairs what senders get wrong: a second word after the encoding, a
// charset name where the encoding belongs, an unknown encoding (binary data
// for leaf types, 7bit for containers). Multiparts, and (in the desktop
// reading) a message at the top level, are never decoded: their structure is
// read as it stands. Message
// types other than rfc822 are opaque data. mime_decode then runs the right
// decoder. decode_text converts the decoded bytes to UTF-8 and canonicalises
// the text by subtype.
#pragma once

#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "charset/convert.h"
#include "email/reading.h"
#include "error/handler.h"

namespace email {

// True when out now holds the decoded body; false when the raw bytes are to
// be used as they are. type and subtype may be rewritten to
// application/octet-stream. The full reading takes a blank line inside
// base64 for the white space it is; the desktop reading keeps it as text.
bool decode(char const* begin, char const* end, bool top_level, std::string& type, std::string& subtype,
            std::string const& encoding, std::string const& charset, std::vector<char>& out,
            quern::error::handler_t* problems, reading_t reading = reading_t::desktop);

// Runs the decoder for a known encoding name; false for 7bit, 8bit, binary
// and anything unknown.
bool mime_decode(char const* first, char const* last, std::back_insert_iterator<std::vector<char>> out,
                 std::string const& encoding, quern::error::handler_t* problems, bool binary,
                 reading_t reading = reading_t::desktop);

// Converts the decoded bytes (buffer, or [begin, end) when buffer is empty)
// to UTF-8 under policy and leaves the canonical text in buffer.
void decode_text(char const* begin, char const* end, std::vector<char>& buffer, std::string const& subtype, bool flowed,
                 bool delsp, std::string const& charset, std::function<std::string()> const& fallback,
                 quern::error::handler_t* problems, charset::policy_t policy = charset::policy_t::labelled);

void decode_to_canonical_format(char const* begin, char const* end, std::string const& subtype, bool flowed, bool delsp,
                                std::back_insert_iterator<std::vector<char>> out, quern::error::handler_t* problems);

} // namespace email
