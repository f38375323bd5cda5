// SPDX-License-Identifier: MIT
// The header block scanner.
//
// quick_parse_headers reads the header block at the start of a message or of
// a body part in one forward pass over the caller's bytes. Each field is
// located by its line structure alone (name up to ':' or LF; the value runs on
// while the next line starts with SP or TAB). Only fields whose lower-cased
// name is in the caller's wanted set are copied out; everything else is
// skipped without copying or decoding. Kept values are decoded (unstructured
// fields only), unfolded and trimmed, and then the derived keys are computed:
// "#type", "#subtype", "#charset", "#boundary" from Content-Type,
// "#encoding" from Content-Transfer-Encoding and "#disposition" from
// Content-Disposition, each with its MIME default. "date" and the date of the
// first readable "received" field become canonical UTC text.
//
// Only an LF starts the empty line that ends the block: a CR LF file has no
// such line, so its whole content is read as header fields. That is the
// behaviour the desktop-search host has always had and hosts that want CR LF
// files indexed normalise line ends before calling in.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include <boost/container/flat_map.hpp>
#include <boost/container/flat_set.hpp>

#include "date/rfc822_date.h"
#include "email/reading.h"
#include "error/handler.h"

namespace email {

// Lower-case header names and derived "#" keys to cleaned UTF-8 values,
// ordered byte-wise. Transparent comparison lets callers look up with
// string_view or literals without building a string.
using header_map_t = boost::container::flat_map<std::string, std::string, std::less<>>;

// Lower-case header names, searched by binary search with exact bytes.
using header_set_t = boost::container::flat_set<std::string, std::less<>>;

// Scans the header block starting at first; on return first is the first
// byte of the body (just past the empty line, or last). When problems is
// given, the date parser and the encoded-word decoder describe what they
// repaired there; the map is the same either way.
header_map_t quick_parse_headers(char const*& first, char const* last, header_set_t const& wanted,
                                 quern::error::handler_t* problems = nullptr);

// The same scan in a chosen reading. The full reading takes a field whose
// name has blanks before its colon ("Subject :"), reads dates with whole
// month names and explicit zones first, and keeps the address fields
// (From, To, Cc, Bcc) as written, only unfolded: encoded words there are
// decoded per mailbox after the list is split, so that a decoded comma or
// quote cannot change where one mailbox ends. (A field holding raw ISO-2022
// escapes is still converted whole, since its escapes hold '(' and '$'.)
// Repeated address fields are all kept, their values in order and joined by
// an LF (which no unfolded value holds); other fields keep the last.
// When dates is given it also receives the Date and Received dates as read,
// with the zones they were written in, so that a caller after typed values
// need not read the canonical text back.
// The full reading also stores, under raw_charset_key, the charset the raw
// 8-bit text of the block's values was found in, when an address field (kept
// raw) holds such text and the detector was sure: the mailboxes are decoded
// with it after the list is split.
inline constexpr std::string_view raw_charset_key = "#raw-charset";
struct header_dates_t {
  std::optional<date::zoned_t> date, received;
};
header_map_t quick_parse_headers(char const*& first, char const* last, header_set_t const& wanted, reading_t reading,
                                 quern::error::handler_t* problems = nullptr, header_dates_t* dates = nullptr);

// What the body walker needs of a body part's header block: the keys derived
// from its content fields (as quick_parse_headers stores them under "#type",
// "#subtype", "#charset", "#boundary", "#encoding" and "#disposition") and
// the two fields file names come from, unfolded.
struct content_fields_t {
  std::string type, subtype, charset, boundary, encoding, disposition;
  std::string content_type, content_disposition;
  // Content-ID, unfolded; read only for body parts.
  std::string content_id;
};

// Scans a body part's header block as quick_parse_headers does with only the
// content fields wanted, into fields rather than a map: a message of many
// small parts would otherwise spend most of its time building maps. On
// return first is the first byte of the part's body.
content_fields_t quick_parse_content_fields(char const*& first, char const* last,
                                            reading_t reading = reading_t::desktop);

// Whether the full reading keeps this (lower-case) field as written: the
// fields that hold mailboxes.
bool is_address_field(std::string_view name);

// Unfolds line breaks, removes NUL bytes and trims trailing white space.
void cleanup_header_body(std::string& value);

} // namespace email
