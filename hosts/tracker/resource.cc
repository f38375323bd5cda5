// SPDX-License-Identifier: MIT
#include "hosts/tracker/resource.h"

#include <algorithm>
#include <chrono>

#include "text/format.h"

namespace tracker_host {
namespace {

// Tracker takes C strings; a NUL inside a value would silently end it there,
// so it becomes a space instead.
std::string c_text(std::string_view value) {
  std::string text(value);
  std::replace(text.begin(), text.end(), '\0', ' ');
  return text;
}

GDateTime* utc_date_time(importer::instant_t instant) {
  return g_date_time_new_from_unix_utc(instant.time_since_epoch().count());
}

// Dates go in as ISO 8601 text, as Tracker's own extractors write them:
// tracker-extract's JSON-LD output cannot serialise a GDateTime value, and
// the store reads the text as xsd:dateTime either way.
void set_date(TrackerResource* resource, char const* property, importer::instant_t instant) {
  if (GDateTime* date = utc_date_time(instant)) {
    if (gchar* text = g_date_time_format_iso8601(date)) {
      tracker_resource_set_string(resource, property, text);
      g_free(text);
    }
    g_date_time_unref(date);
  }
}

TrackerResource* contact_resource(contact_t const& contact) {
  TrackerResource* resource = tracker_resource_new(nullptr);
  tracker_resource_set_uri(resource, "rdf:type", "nco:Contact");
  if (!contact.name.empty())
    tracker_resource_set_string(resource, "nco:fullname", c_text(contact.name).c_str());
  if (!contact.address.empty()) {
    std::string const address = c_text(contact.address);
    TrackerResource* email = tracker_resource_new(mailto_iri(address).c_str());
    tracker_resource_set_uri(email, "rdf:type", "nco:EmailAddress");
    tracker_resource_set_string(email, "nco:emailAddress", address.c_str());
    tracker_resource_add_take_relation(resource, "nco:hasEmailAddress", email);
  }
  return resource;
}

} // namespace

TrackerResource* to_resource(message_t const& message, char const* identifier, std::size_t max_text_bytes) {
  TrackerResource* resource = tracker_resource_new(identifier);
  tracker_resource_set_uri(resource, "rdf:type", document_type);
  if (message.subject && !message.subject->empty()) {
    std::string const subject = c_text(*message.subject);
    tracker_resource_set_string(resource, "nie:title", subject.c_str());
    tracker_resource_set_string(resource, "nie:subject", subject.c_str());
  }
  if (message.text)
    tracker_resource_set_string(resource, "nie:plainTextContent",
                                c_text(utf8_prefix(*message.text, max_text_bytes)).c_str());
  if (message.sent)
    set_date(resource, "nie:contentCreated", *message.sent);
  if (message.received)
    set_date(resource, "nie:informationElementDate", *message.received);
  for (contact_t const& author : message.authors)
    tracker_resource_add_take_relation(resource, "nco:creator", contact_resource(author));
  for (contact_t const& recipient : message.recipients)
    tracker_resource_add_take_relation(resource, "nco:contributor", contact_resource(recipient));
  for (std::string const& name : message.attachment_names) {
    TrackerResource* attachment = tracker_resource_new(nullptr);
    tracker_resource_set_uri(attachment, "rdf:type", "nfo:Attachment");
    tracker_resource_set_string(attachment, "nfo:fileName", c_text(name).c_str());
    tracker_resource_add_take_relation(resource, "nie:hasPart", attachment);
  }
  return resource;
}

std::string mailto_iri(std::string_view address) {
  // Outside the IRI grammar: controls, space, DEL and <>"{}|\^`; "%" is
  // encoded too so that an address that already holds "%41" stays distinct
  // from one that holds "A".
  constexpr std::string_view unsafe = "<>\"{}|\\^`%";
  std::string iri = "mailto:";
  iri.reserve(iri.size() + address.size());
  for (char const c : address) {
    auto const byte = static_cast<unsigned char>(c);
    if (byte <= 0x20 || byte == 0x7F || unsafe.find(c) != std::string_view::npos)
      iri += text::format("%%%02X", byte);
    else
      iri += c;
  }
  return iri;
}

std::string_view utf8_prefix(std::string_view text, std::size_t max_bytes) {
  if (text.size() <= max_bytes)
    return text;
  std::size_t end = max_bytes;
  // Step back over continuation bytes to the start of the character that
  // would be cut; that character is left out whole.
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
    --end;
  return text.substr(0, end);
}

} // namespace tracker_host
