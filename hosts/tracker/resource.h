// SPDX-License-Identifier: MIT
// A message as a Tracker resource.
//
// Tracker 3 has no mail-message vocabulary any more, so a message is written
// as a text document in the terms its ontology still has: the subject is the
// document's nie:title and nie:subject, the readable text its
// nie:plainTextContent (cut to the extractor's text-size setting at a
// character boundary), the Date header its nie:contentCreated. The received
// date goes to nie:informationElementDate, the only date property whose
// meaning (any event in the element's lifecycle) covers arrival; the other
// dates would claim an edit or an access, or belong to the file, which the
// file miner describes.
//
// Each From mailbox is an nco:creator and each To, Cc and Bcc mailbox (in
// that order, a mailbox named in two of them once) an nco:contributor: each
// an nco:Contact with its display name as nco:fullname when it has one and
// its address as an nco:EmailAddress; a mailbox without an address gives no
// contact. nco:emailAddress is inverse-functional, so one address must
// always be the same resource; it is named by its mailto: IRI, which also
// lets every message from one person share it. Characters that cannot
// stand in an IRI are percent-encoded, "%" included, so distinct addresses
// keep distinct names.
//
// Each attachment name becomes an nfo:Attachment with that nfo:fileName,
// joined to the message by nie:hasPart. The ontology's own comments on
// nie:hasPart name exactly this case (a message with an nfo:Attachment as a
// physical part), nfo:fileName is full-text indexed with a high weight, and
// Tracker's file-name searches already look at it; a literal on the message
// itself (nie:keyword, say) would mix file names with words the sender chose.
//
// One message's share of the store is bounded (see the limits below): every
// contact and attachment is a resource of its own, and Tracker serialises a
// resource tree in time that grows with the square of its size, in
// tracker-extract and again in the file miner. Mailboxes past the contact
// bound are still findable: they go into the text, as "Name <address>" lines
// ahead of the body.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <libtracker-sparql/tracker-sparql.h>

#include "importer/message.h"

namespace tracker_host {

// Beyond this, the rest of a message file is not read.
inline constexpr std::uint64_t max_message_bytes = std::uint64_t(64) << 20;

// How a message file is read: the full reading, made for hosts like this one
// (CR LF line ends read as LF, every mailbox of a list with its own name,
// HTML text where there is no plain text, attachments, U+FFFD where a value
// is not well-formed UTF-8), without the thread identifiers nothing here
// stores, and bounded so that one huge file cannot take the extractor's time
// and memory. Headers and the first text come first in a message, so a cut
// one still gives its subject, contacts, dates and opening text.
constexpr tidewell::options_t read_options() {
  tidewell::options_t options;
  options.thread_ids = false;
  options.max_bytes = max_message_bytes;
  return options;
}

// The rdf:type given to every message.
inline constexpr char document_type[] = "nfo:TextDocument";

// At most this many contacts per message, From first, then To, Cc and Bcc.
// Tracker serialises a resource's relations in quadratic time: 30,000
// recipients took tracker-extract 6 s and 100,000 over its 30 s deadline,
// then kept the file miner busy for minutes. A thousand takes milliseconds
// and is more people than any real message names.
inline constexpr std::size_t max_contacts = 1000;

// At most this many nfo:Attachment resources per message, for the same
// reason; a multipart of 100,000 tiny parts fits in the read bound.
inline constexpr std::size_t max_attachments = 1000;

// nie:title and nie:subject are cut to this many bytes, at a character
// boundary. Both hold the subject, so a subject as long as the read bound
// would be stored twice; no one reads or searches a subject this long.
inline constexpr std::size_t max_subject_bytes = std::size_t(64) << 10;

// Tracker's own default for the text size setting.
inline constexpr std::size_t default_max_text_bytes = 1048576;

// A new resource named identifier (null for a blank node) describing message,
// with at most max_text_bytes bytes of text (mailboxes past max_contacts and
// the body together). The caller owns the reference.
TrackerResource* to_resource(tidewell::message_t const& message, char const* identifier, std::size_t max_text_bytes);

// "mailto:" and the address, with bytes an IRI cannot hold percent-encoded.
std::string mailto_iri(std::string_view address);

} // namespace tracker_host
