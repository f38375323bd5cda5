// SPDX-License-Identifier: MIT
#include "hosts/tracker/resource.h"

#include <algorithm>
#include <chrono>
#include <initializer_list>
#include <set>
#include <utility>
#include <vector>

#include "text/format.h"
#include "text/utf8.h"

namespace tracker_host {
namespace {

// Tracker takes C strings; a NUL inside a value would silently end it there,
// so it becomes a space instead.
std::string c_text(std::string_view value) {
  std::string text(value);
  std::replace(text.begin(), text.end(), '\0', ' ');
  return text;
}

GDateTime* utc_date_time(tidewell::instant_t instant) {
  return g_date_time_new_from_unix_utc(instant.time_since_epoch().count());
}

// Dates go in as ISO 8601 text, as Tracker's own extractors write them:
// tracker-extract's JSON-LD output cannot serialise a GDateTime value, and
// the store reads the text as xsd:dateTime either way.
void set_date(TrackerResource* resource, char const* property, tidewell::instant_t instant) {
  if (GDateTime* date = utc_date_time(instant)) {
    if (gchar* text = g_date_time_format_iso8601(date)) {
      tracker_resource_set_string(resource, property, text);
      g_free(text);
    }
    g_date_time_unref(date);
  }
}

// Only called for a mailbox with an address.
TrackerResource* contact_resource(tidewell::mailbox_t const& mailbox) {
  TrackerResource* resource = tracker_resource_new(nullptr);
  tracker_resource_set_uri(resource, "rdf:type", "nco:Contact");
  if (!mailbox.name.empty())
    tracker_resource_set_string(resource, "nco:fullname", c_text(mailbox.name).c_str());
  std::string const address = c_text(mailbox.address);
  TrackerResource* email = tracker_resource_new(mailto_iri(address).c_str());
  tracker_resource_set_uri(email, "rdf:type", "nco:EmailAddress");
  tracker_resource_set_string(email, "nco:emailAddress", address.c_str());
  tracker_resource_add_take_relation(resource, "nco:hasEmailAddress", email);
  return resource;
}

// Adds one contact per mailbox with an address under property, in the order
// of the fields; a mailbox that stands in more than one of them (To and Cc,
// say) is one contact, added where it first stands.
void add_contacts(TrackerResource* resource, char const* property,
                  std::initializer_list<std::vector<tidewell::mailbox_t> const*> fields) {
  std::set<std::pair<std::string_view, std::string_view>> seen;
  for (auto const* field : fields)
    for (tidewell::mailbox_t const& mailbox : *field)
      if (!mailbox.address.empty() && seen.emplace(mailbox.name, mailbox.address).second)
        tracker_resource_add_take_relation(resource, property, contact_resource(mailbox));
}

} // namespace

TrackerResource* to_resource(tidewell::message_t const& message, char const* identifier, std::size_t max_text_bytes) {
  TrackerResource* resource = tracker_resource_new(identifier);
  tracker_resource_set_uri(resource, "rdf:type", document_type);
  if (message.subject && !message.subject->empty()) {
    std::string const subject = c_text(*message.subject);
    tracker_resource_set_string(resource, "nie:title", subject.c_str());
    tracker_resource_set_string(resource, "nie:subject", subject.c_str());
  }
  if (message.text)
    tracker_resource_set_string(resource, "nie:plainTextContent",
                                c_text(text::cut(*message.text, max_text_bytes)).c_str());
  if (message.date)
    set_date(resource, "nie:contentCreated", message.date->instant);
  if (message.received)
    set_date(resource, "nie:informationElementDate", message.received->instant);
  add_contacts(resource, "nco:creator", {&message.from});
  add_contacts(resource, "nco:contributor", {&message.to, &message.cc, &message.bcc});
  for (tidewell::attachment_t const& part : message.attachments) {
    TrackerResource* attachment = tracker_resource_new(nullptr);
    tracker_resource_set_uri(attachment, "rdf:type", "nfo:Attachment");
    tracker_resource_set_string(attachment, "nfo:fileName", c_text(part.file_name).c_str());
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

} // namespace tracker_host
