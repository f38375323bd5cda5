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

} // namespace importer
