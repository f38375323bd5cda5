#include "hosts/tracker/message.h"

#include <array>
#include <iterator>
#include <string_view>

#include "email/body.h"
#include "importer/addresses.h"
#include "importer/import.h"

namespace tracker_host {
namespace {

std::optional<std::string> text_of(email::header_map_t const& headers, std::string_view key) {
  auto const found = headers.find(key);
  if (found == headers.end() || found->second == email::no_text_marker || !importer::is_well_formed_utf8(found->second))
    return std::nullopt;
  return found->second;
}

std::optional<importer::instant_t> date_of(email::header_map_t const& headers, std::string_view key) {
  auto const text = text_of(headers, key);
  return text ? importer::parse_canonical_date(*text) : std::nullopt;
}

std::string well_formed_or_empty(std::string&& value) {
  return importer::is_well_formed_utf8(value) ? std::move(value) : std::string();
}

// The contacts one address field gives. The core reads a field as one mailbox,
// so this is at most one contact; should it ever give several names and
// addresses in step, they pair up by position, and unmatched ones stand alone.
void append_contacts(email::header_map_t const& headers, std::string_view key, std::vector<contact_t>& contacts) {
  auto const found = headers.find(key);
  if (found == headers.end())
    return;
  std::vector<std::string> names, addresses;
  importer::parse_addresses(found->second, names, addresses);
  auto add = [&](std::string name, std::string address) {
    name = well_formed_or_empty(std::move(name));
    address = well_formed_or_empty(std::move(address));
    if (!name.empty() || !address.empty())
      contacts.push_back({std::move(name), std::move(address)});
  };
  if (names.size() == addresses.size()) {
    for (std::size_t i = 0; i < names.size(); ++i)
      add(std::move(names[i]), std::move(addresses[i]));
    return;
  }
  for (std::string& name : names)
    add(std::move(name), {});
  for (std::string& address : addresses)
    add({}, std::move(address));
}

message_t from_headers(email::header_map_t const& headers) {
  message_t message;
  message.subject = text_of(headers, "subject");
  message.text = text_of(headers, "#text");
  message.sent = date_of(headers, "date");
  message.received = date_of(headers, "received");
  append_contacts(headers, "from", message.authors);
  for (std::string_view key : {"to", "cc", "bcc"})
    append_contacts(headers, key, message.recipients);
  return message;
}

} // namespace

message_t read_message(char const* first, char const* last) {
  return from_headers(
      importer::parse_email_bytes(first, last, importer::wanted_headers(), importer::line_ends_t::crlf_as_lf));
}

} // namespace tracker_host
