// SPDX-License-Identifier: MIT
#include "hosts/tracker/resource.h"

#include <algorithm>
#include <chrono>
#include <initializer_list>
#include <optional>
#include <set>
#include <span>
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

using mailboxes_t = std::vector<tidewell::mailbox_t>;

// The size of a mailbox's line in the text: "Name <address>" or the address.
std::size_t line_size(tidewell::mailbox_t const& mailbox) {
  return mailbox.name.size() + (mailbox.name.empty() ? 0 : 3) + mailbox.address.size() + 1;
}

// The mailboxes past the contact bound, and the size of their lines.
struct overflow_t {
  std::vector<tidewell::mailbox_t const*> mailboxes;
  std::size_t bytes = 0;
};

// Adds one contact per mailbox with an address under property, in the order
// of the fields, while contacts lasts (and takes what it adds from it); a
// mailbox that stands in more than one of them (To and Cc, say) is one
// contact, added where it first stands. The mailboxes past the bound go to
// overflow, in order, until their lines alone would fill max_text_bytes: a
// list of millions within the read bound is then not even looked at.
void add_contacts(TrackerResource* resource, char const* property, std::initializer_list<mailboxes_t const*> fields,
                  std::size_t& contacts, overflow_t& overflow, std::size_t max_text_bytes) {
  std::set<std::pair<std::string_view, std::string_view>> seen;
  for (auto const* field : fields)
    for (tidewell::mailbox_t const& mailbox : *field) {
      if (contacts == 0 && overflow.bytes >= max_text_bytes)
        return;
      if (mailbox.address.empty() || !seen.emplace(mailbox.name, mailbox.address).second)
        continue;
      if (contacts == 0) {
        overflow.mailboxes.push_back(&mailbox);
        overflow.bytes += line_size(mailbox);
        continue;
      }
      tracker_resource_add_take_relation(resource, property, contact_resource(mailbox));
      --contacts;
    }
}

// The mailboxes as "Name <address>" lines (the address alone when there is no
// name), whole lines only, at most max_bytes bytes in all.
std::string mailbox_lines(std::vector<tidewell::mailbox_t const*> const& mailboxes, std::size_t max_bytes) {
  std::string lines;
  for (tidewell::mailbox_t const* mailbox : mailboxes) {
    if (line_size(*mailbox) > max_bytes - lines.size())
      break;
    if (mailbox->name.empty())
      lines.append(mailbox->address);
    else
      lines.append(mailbox->name).append(" <").append(mailbox->address).append(">");
    lines += '\n';
  }
  return lines;
}

// The plain text: the mailboxes past the contact bound, a blank line, then
// the body, max_bytes in all. The list comes first, so the cut at the end of
// the text only ever shortens the body and a long body cannot push the list
// out; the list in turn takes only what the body leaves, and never more than
// half, so a long list cannot push the body out either.
std::optional<std::string> plain_text(std::vector<tidewell::mailbox_t const*> const& overflow,
                                      std::optional<std::string> const& body, std::size_t max_bytes) {
  if (overflow.empty())
    return body ? std::optional(std::string(text::cut(*body, max_bytes))) : std::nullopt;
  std::size_t const body_share = body ? std::min(body->size() + 1, max_bytes / 2) : 0;
  std::string text = mailbox_lines(overflow, max_bytes - body_share);
  if (body) {
    if (!text.empty() && text.size() < max_bytes)
      text += '\n';
    text.append(text::cut(*body, max_bytes - text.size()));
  }
  return text;
}

} // namespace

TrackerResource* to_resource(tidewell::message_t const& message, char const* identifier, std::size_t max_text_bytes) {
  TrackerResource* resource = tracker_resource_new(identifier);
  tracker_resource_set_uri(resource, "rdf:type", document_type);
  if (message.subject && !message.subject->empty()) {
    std::string const subject = c_text(text::cut(*message.subject, max_subject_bytes));
    tracker_resource_set_string(resource, "nie:title", subject.c_str());
    tracker_resource_set_string(resource, "nie:subject", subject.c_str());
  }
  if (message.date)
    set_date(resource, "nie:contentCreated", message.date->instant);
  if (message.received)
    set_date(resource, "nie:informationElementDate", message.received->instant);
  std::size_t contacts = max_contacts;
  overflow_t overflow;
  add_contacts(resource, "nco:creator", {&message.from}, contacts, overflow, max_text_bytes);
  add_contacts(resource, "nco:contributor", {&message.to, &message.cc, &message.bcc}, contacts, overflow,
               max_text_bytes);
  if (std::optional<std::string> const text = plain_text(overflow.mailboxes, message.text, max_text_bytes))
    tracker_resource_set_string(resource, "nie:plainTextContent", c_text(*text).c_str());
  std::size_t const attachments = std::min(message.attachments.size(), max_attachments);
  for (tidewell::attachment_t const& part : std::span(message.attachments).first(attachments)) {
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
