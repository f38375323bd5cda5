// SPDX-License-Identifier: MIT
// Whether a message_t read in the desktop reading says what the desktop
// attribute rows of the same bytes say: the subject, the text, the two
// dates' instants, and the names and addresses of From and of To, Cc and Bcc
// together, each list in the rows' order. Used by a test over every message
// at hand and by a fuzz target.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "importer/import.h"
#include "importer/message.h"

namespace test_support {

namespace detail {

template <typename T> std::optional<T> row(importer::attribute_set_t const& attributes, std::string_view name) {
  auto const* value = attributes.find(name);
  auto const* typed = value ? std::get_if<T>(value) : nullptr;
  return typed ? std::optional<T>(*typed) : std::nullopt;
}

inline std::optional<importer::instant_t> instant(std::optional<tidewell::date_t> const& date) {
  return date ? std::optional(date->instant) : std::nullopt;
}

// The rows' two lists of a set of fields: each mailbox's name and address,
// whichever it has.
inline std::string flatten(std::initializer_list<std::vector<tidewell::mailbox_t> const*> fields, bool names) {
  std::string out;
  for (auto const* field : fields)
    for (tidewell::mailbox_t const& mailbox : *field)
      if (std::string const& part = names ? mailbox.name : mailbox.address; !part.empty())
        out += "[" + part + "]";
  return out;
}

// An empty element ("From: :; a@x" gives the name "") is no name a mailbox
// can carry, so it is passed over as the typed side passes it over.
inline std::string flatten(std::optional<std::vector<std::string>> const& list) {
  std::string out;
  for (std::string const& element : list.value_or(std::vector<std::string>()))
    if (!element.empty())
      out += "[" + element + "]";
  return out;
}

} // namespace detail

// The name of the first value that differs, or "" when they agree.
inline std::string desktop_difference(tidewell::message_t const& message, importer::attribute_set_t const& rows) {
  namespace attribute = importer::attribute;
  using detail::row;
  if (message.subject != row<std::string>(rows, attribute::subject))
    return "subject";
  if (message.text != row<std::string>(rows, attribute::text_content))
    return "text";
  if (detail::instant(message.date) != row<importer::instant_t>(rows, attribute::content_creation_date))
    return "date";
  if (detail::instant(message.received) != row<importer::instant_t>(rows, attribute::date_received))
    return "received";
  using list_t = std::vector<std::string>;
  if (detail::flatten({&message.from}, true) != detail::flatten(row<list_t>(rows, attribute::authors)) ||
      detail::flatten({&message.from}, false) != detail::flatten(row<list_t>(rows, attribute::author_email_addresses)))
    return "from";
  auto const recipients = {&message.to, &message.cc, &message.bcc};
  if (detail::flatten(recipients, true) != detail::flatten(row<list_t>(rows, attribute::recipients)) ||
      detail::flatten(recipients, false) != detail::flatten(row<list_t>(rows, attribute::recipient_email_addresses)))
    return "recipients";
  return "";
}

} // namespace test_support
