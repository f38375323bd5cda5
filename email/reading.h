// SPDX-License-Identifier: MIT
// The two readings of a message.
//
// desktop is the desktop-search host's reading, kept byte for byte: LF-only
// line ends, one mailbox per address field, text only from text/plain, three
// letters of a month name, ill-formed UTF-8 dropping the whole value. full is
// the reading the Linux hosts use: CR LF read as LF, every mailbox of a list,
// HTML text where a message has no plain text, attachment names, whole month
// names, and U+FFFD for ill-formed UTF-8. The parsers below the importer see
// only this value; the importer owns the rest of the options.
#pragma once

namespace email {

enum class reading_t { desktop, full };

} // namespace email
