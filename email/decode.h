// SPDX-License-Identifier: MIT
// One body part from transfer-encoded bytes to canonical UTF-8 text.
//
// decode checks the Content-Transfer-Encoding against the part's media type
// and repairs what senders get wrong: a second word after the encoding, a
// charset name where the encoding belongs, an unknown encoding (binary data
// for leaf types, 7bit for containers). Multiparts, and a message at the top
// level, are never decoded: their structure is read as it stands. Message
// types other than rfc822 are opaque data. mime_decode then runs the right
// decoder. decode_text converts the decoded bytes to UTF-8 and canonicalises
// the text by subtype.
#pragma once

#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "error/handler.h"

namespace email {

// Problem texts (printf forms: the encoding, then the type and subtype).
inline constexpr char problem_multiple_words[] =
    "Encoding '%s' contains multiple words (ignoring anything but the first word)";
inline constexpr char problem_encoding_is_charset[] =
    "Encoding '%s' is unknown, but seems to be the charset of the message (7bit encoding assumed instead)";
inline constexpr char problem_unknown_encoding[] =
    "Encoding '%s' is unknown. Now treated as application/octet-stream with a binary encoding";
inline constexpr char problem_unknown_container_encoding[] =
    "Encoding '%s' is unknown, but it's a '%s/%s' (7bit encoding assumed instead)";
inline constexpr char problem_encoding_allowed_anyway[] =
    "Encoding '%s' not allowed for body parts of type '%s' (allowing it anyway)";
inline constexpr char problem_encoding_not_allowed[] =
    "Encoding '%s' not allowed for body parts of type '%s' (7bit assumed)";
inline constexpr char problem_uuencode[] =
    "Deprecated Content-Transfer-Encoding (x-uuencode), but Tidewell can handle it.";
inline constexpr char problem_delsp_without_flowed[] = "Ignoring 'delsp=yes' since 'format!=flowed";
inline constexpr char problem_flowed_html[] = "Ignoring 'format=flowed' which should not be used for text/html";
inline constexpr char problem_delsp_html[] = "Ignoring 'delsp=yes' which should not be used for text/html";

// True when out now holds the decoded body; false when the raw bytes are to
// be used as they are. type and subtype may be rewritten to
// application/octet-stream.
bool decode(char const* begin, char const* end, bool top_level, std::string& type, std::string& subtype,
            std::string const& encoding, std::string const& charset, std::vector<char>& out,
            quern::error::handler_t* problems);

// Runs the decoder for a known encoding name; false for 7bit, 8bit, binary
// and anything unknown.
bool mime_decode(char const* first, char const* last, std::back_insert_iterator<std::vector<char>> out,
                 std::string const& encoding, quern::error::handler_t* problems, bool binary);

// Converts the decoded bytes (buffer, or [begin, end) when buffer is empty)
// to UTF-8 and leaves the canonical text in buffer.
void decode_text(char const* begin, char const* end, std::vector<char>& buffer, std::string const& subtype, bool flowed,
                 bool delsp, std::string const& charset, std::function<std::string()> const& fallback,
                 quern::error::handler_t* problems);

void decode_to_canonical_format(char const* begin, char const* end, std::string const& subtype, bool flowed, bool delsp,
                                std::back_insert_iterator<std::vector<char>> out, quern::error::handler_t* problems);

} // namespace email
