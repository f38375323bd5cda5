// SPDX-License-Identifier: MIT
#include "hosts/tracker/message.h"

#include <string_view>

#include "importer/import.h"

namespace tracker_host {
namespace {

template <typename T> T const* find(importer::attribute_set_t const& attributes, std::string_view name) {
  importer::attribute_value_t const* value = attributes.find(name);
  return value ? std::get_if<T>(value) : nullptr;
}

template <typename T> std::optional<T> optional(importer::attribute_set_t const& attributes, std::string_view name) {
  T const* value = find<T>(attributes, name);
  return value ? std::optional<T>(*value) : std::nullopt;
}

using list_t = std::vector<std::string>;

std::vector<contact_t> contacts(importer::attribute_set_t const& attributes, std::string_view names_attribute,
                                std::string_view addresses_attribute) {
  static list_t const none;
  list_t const* names = find<list_t>(attributes, names_attribute);
  list_t const* addresses = find<list_t>(attributes, addresses_attribute);
  if (!names)
    names = &none;
  if (!addresses)
    return {};
  // The full reading keeps the lists parallel; should one ever fall short,
  // the addresses past its end go unnamed.
  std::vector<contact_t> result;
  result.reserve(addresses->size());
  for (std::size_t i = 0; i < addresses->size(); ++i)
    if (!(*addresses)[i].empty())
      result.push_back({i < names->size() ? (*names)[i] : std::string(), (*addresses)[i]});
  return result;
}

} // namespace

message_t from_attributes(importer::attribute_set_t const& attributes) {
  namespace attribute = importer::attribute;
  message_t message;
  message.subject = optional<std::string>(attributes, attribute::subject);
  message.text = optional<std::string>(attributes, attribute::text_content);
  message.sent = optional<importer::instant_t>(attributes, attribute::content_creation_date);
  message.received = optional<importer::instant_t>(attributes, attribute::date_received);
  message.authors = contacts(attributes, attribute::authors, attribute::author_email_addresses);
  message.recipients = contacts(attributes, attribute::recipients, attribute::recipient_email_addresses);
  if (auto const* names = find<list_t>(attributes, importer::full_attribute::attachment_names))
    message.attachment_names = *names;
  return message;
}

message_t read_message(char const* first, char const* last) {
  importer::attribute_set_t attributes;
  importer::import_bytes(first, last, attributes, importer::options_t{importer::reading_t::full});
  return from_attributes(attributes);
}

} // namespace tracker_host
