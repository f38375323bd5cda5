// SPDX-License-Identifier: MIT
// One message file handed to KFileMetaData, for KDE's file search (Baloo).
//
// The core imports the message in its full reading into an attribute set, and
// fill() turns that set into what an ExtractionResult takes. KFileMetaData has
// no vocabulary for mail, so a message becomes a document in the terms it
// has: the subject is the Title (shown by Dolphin) and the Subject, each
// sender one Author entry ("Name <address>", or whichever of the two the
// message gives), the Date header the CreationDate. Baloo indexes Title and
// Author as plain words as well as under their property names, so a search
// for a sender's name or address finds the message without "author:".
//
// Recipients and attachment names have no property, and the received date
// has none either: recipients and attachment names go into the text (before
// the body, so a long body never pushes them out), the received date is left
// out. Properties are only given when the result asks for metadata and text
// only when it asks for plain text; the type, Document, always.
//
// Baloo leaves text files of 10 MiB or more out of its index as too big to
// handle, so the text given here stays below that in all, cut at a space near
// the end where there is one (a half word would be indexed as a word) and
// never inside a character. Reading the file is bounded too: at most
// max_message_bytes of it, read rather than mapped so that a file truncated
// while it is read cannot take the indexer down.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include <KFileMetaData/ExtractionResult>

#include "importer/attributes.h"

namespace kde_host {

// Beyond this, the rest of a file is not read.
inline constexpr std::size_t max_message_bytes = std::size_t(64) << 20;

// All the text handed to one result stays below this many UTF-8 bytes.
inline constexpr std::size_t max_text_bytes = std::size_t(10) << 20;

// The first max_bytes bytes of the regular file at path, or nothing when it
// is not a regular file or cannot be read.
std::optional<std::string> read_file_prefix(char const* path, std::size_t max_bytes);

// Hands attributes to result as described above.
void fill(importer::attribute_set_t const& attributes, KFileMetaData::ExtractionResult& result);

// The longest prefix of text of at most max_bytes bytes that does not end
// inside a UTF-8 character, shortened to end before a space when one lies
// within the last 64 bytes of it.
std::string_view cut_text(std::string_view text, std::size_t max_bytes);

} // namespace kde_host
