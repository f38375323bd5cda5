// One message file, read the way the Tracker host indexes it.
//
// The importer core reads lines ended by LF and treats a CR as content, which
// suits the desktop host it was built for but leaves a file saved with CR LF
// line ends with one endless header block. Mail saved on Linux and Windows
// often has CR LF, so this host turns every CR LF into LF first (only when the
// file has one, so the common case is read in place) and then runs the core
// over the bytes.
//
// Unlike the core's attribute set, which flattens all names into one list and
// all addresses into another, the result keeps one contact per header field,
// so each address stays paired with its own display name. Each field is still
// read as a single mailbox, exactly as the core reads it. Values that are not
// well-formed UTF-8 are left out, as the core leaves them out.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "importer/attributes.h"

namespace tracker_host {

struct contact_t {
  std::string name;    // empty when the field gave none
  std::string address; // empty when the field gave none
  bool operator==(contact_t const&) const = default;
};

struct message_t {
  std::optional<std::string> subject;
  std::optional<std::string> text; // absent when the body gave no text
  std::optional<importer::instant_t> sent;
  std::optional<importer::instant_t> received;
  std::vector<contact_t> authors;    // From
  std::vector<contact_t> recipients; // To, then Cc, then Bcc
};

// Reads the message held in [first, last), CR LF line ends included.
message_t read_message(char const* first, char const* last);

} // namespace tracker_host
