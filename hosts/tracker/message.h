// SPDX-License-Identifier: MIT
// One message file, read the way the Tracker host indexes it.
//
// The host imports in the core's full reading, which is made for it: CR LF
// line ends read as LF (mail saved on Linux and Windows often has them),
// every mailbox of an address list with its own display name, HTML text
// where a message has no plain text, the attachments' file names, whole
// month names, and U+FFFD where a value is not well-formed UTF-8. The host
// takes the core's attribute set, the one row walk every host goes through,
// and only regroups it: the full reading's name and address lists are
// parallel, so each address is paired with its own name into one contact.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "importer/attributes.h"

namespace tracker_host {

struct contact_t {
  std::string name;    // empty when the mailbox has none
  std::string address; // never empty
  bool operator==(contact_t const&) const = default;
};

struct message_t {
  std::optional<std::string> subject;
  std::optional<std::string> text; // absent when the body gave no text
  std::optional<importer::instant_t> sent;
  std::optional<importer::instant_t> received;
  std::vector<contact_t> authors;    // From
  std::vector<contact_t> recipients; // To, then Cc, then Bcc
  std::vector<std::string> attachment_names;
};

// Reads the message held in [first, last), CR LF line ends included.
message_t read_message(char const* first, char const* last);

// Regroups an attribute set of the full reading.
message_t from_attributes(importer::attribute_set_t const& attributes);

} // namespace tracker_host
