// Driving the single-address reader over a header value.
//
// The loop is written for a reader that stops after each address, but
// header::address_name_and_email_function consumes its whole range, so it
// runs once per value. Names are dequoted; addresses are copied unchanged.
#include "importer/addresses.h"

#include "header/address.h"

namespace importer {

void parse_addresses(std::string const& value, std::vector<std::string>& names, std::vector<std::string>& emails) {
  if (value.empty())
    return;
  char const* cursor = value.data();
  char const* const end = cursor + value.size();
  while (cursor != end) {
    auto const [name, email] = header::address_name_and_email_function(cursor, end);
    if (name.found())
      names.push_back(header::dequote_string(name.first, name.last));
    if (email.found())
      emails.emplace_back(email.first, email.last);
  }
}

} // namespace importer
