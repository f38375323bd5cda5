// SPDX-License-Identifier: MIT
// One message file handed to KFileMetaData, for KDE's file search (Baloo).
//
// The core reads the message in its full reading into a tidewell::message_t,
// and fill() turns that into what an ExtractionResult takes. KFileMetaData has
// no vocabulary for mail, so a message becomes a document in the terms it
// has: the subject is the Title (shown by Dolphin) and the Subject (cut to
// max_subject_bytes), each of the first max_authors From mailboxes one Author
// entry ("Name <address>", or whichever of the two the mailbox has), the
// Date header the CreationDate. Baloo indexes Title and
// Author as plain words as well as under their property names, so a search
// for a sender's name or address finds the message without "author:".
//
// Recipients and attachment names have no property, and the received date
// has none either: senders past the Author bound, recipients (To, Cc, then
// Bcc, a mailbox named in two of them once) and attachment names go into the
// text (before the body, so a long body never pushes them out), the received
// date is left out. Properties are only given when the result asks for
// metadata and text only when it asks for plain text; the type, Document,
// always.
//
// Baloo leaves text files of 10 MiB or more out of its index as too big to
// handle, so the text given here stays below that in all, cut at a space near
// the end where there is one (a half word would be indexed as a word) and
// never inside a character. Reading the file is bounded too: at most
// max_message_bytes of it, read rather than mapped so that a file truncated
// while it is read cannot take the indexer down.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include <KFileMetaData/ExtractionResult>

#include "importer/message.h"

namespace kde_host {

// Beyond this, the rest of a file is not read.
inline constexpr std::uint64_t max_message_bytes = std::uint64_t(64) << 20;

// At most this many From mailboxes become Author entries; the rest go into
// the text ahead of the recipients. Baloo keeps every property value of a
// file in its document data and as terms, and a From list can name
// millions within the read bound; no real message has a thousand senders.
inline constexpr std::size_t max_authors = 1000;

// Title and Subject are cut to this many bytes, at a character boundary:
// both hold the subject, so one as long as the read bound would be stored
// twice, and no one reads or searches a subject this long.
inline constexpr std::size_t max_subject_bytes = std::size_t(64) << 10;

// All the text handed to one result stays below this many UTF-8 bytes.
inline constexpr std::size_t max_text_bytes = std::size_t(10) << 20;

// How a message file is read: the full reading, without the thread
// identifiers nothing here uses, and at most max_message_bytes of it.
constexpr tidewell::options_t read_options() {
  tidewell::options_t options;
  options.thread_ids = false;
  options.max_bytes = max_message_bytes;
  return options;
}

// Hands message to result as described above.
void fill(tidewell::message_t const& message, KFileMetaData::ExtractionResult& result);

// The longest prefix of text of at most max_bytes bytes that does not end
// inside a UTF-8 character, shortened to end before a space when one lies
// within the last 64 bytes of it.
std::string_view cut_text(std::string_view text, std::size_t max_bytes);

} // namespace kde_host
