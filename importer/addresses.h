// SPDX-License-Identifier: MIT
// Address fields to flat lists of display names and e-mail addresses.
//
// The whole value of a From, To, Cc or Bcc field is read as one mailbox, so
// each call adds at most one name and at most one address. A list such as
// "ann@x, bob@y" therefore yields the address "bob@y" and the name "ann@x,":
// that is what the desktop index has always stored for such fields, and
// header::address_split_function is deliberately not used here.
#pragma once

#include <string>
#include <vector>

namespace importer {

// Appends the dequoted display name (when one is found) to names and the
// e-mail bytes as written (when found) to emails. The two lists are
// independent: the i-th name need not belong to the i-th address. Neither
// list is cleared.
void parse_addresses(std::string const& value, std::vector<std::string>& names, std::vector<std::string>& emails);

// The full reading of an address field, given as written (encoded words not
// yet decoded): every mailbox of the list, in order, each adding one entry to
// names and one to emails, so the two lists stay parallel. A mailbox without
// a display name adds an empty name; a name without an address ("John Doe",
// "MAILER-DAEMON <>") adds an empty address; a lone word is a local address
// ("postmaster"), named by a comment after it; a comment alone adds nothing.
// An LF separates the values of repeated fields, each read on its own. The
// list is cut with header::address_split_function, and an item it cut inside
// a comment or angle brackets is joined with what follows until they close;
// other commas end a mailbox too, except in "Doe, John <j@x>". Group syntax
// is read: "Team: a@x, b@y;" gives a and b, "undisclosed-recipients:;"
// nothing. Comments and folding white space inside an address are taken out
// ("pete(his account)@silly . test" is pete@silly.test). Each item is read
// with the single-mailbox extractor, and only then are its name and address
// decoded (RFC 2047 words, undeclared 8-bit text), so that a decoded comma or
// quote stays inside its mailbox. Linear in the value. The full reading's:
// texts are read past missing and wrong charset labels, raw 8-bit text in
// raw_charset when it is not empty (the charset the header block's raw text
// was found in).
void parse_mailboxes(std::string const& value, std::vector<std::string>& names, std::vector<std::string>& emails,
                     std::string const& raw_charset = std::string());

} // namespace importer
