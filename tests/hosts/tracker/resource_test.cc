// SPDX-License-Identifier: MIT
// The message-to-resource mapping, checked by storing what it prints into a
// real in-memory Tracker store built from the Nepomuk ontology Tracker ships:
// a mapping that names a property wrongly, breaks a cardinality or gives one
// address two resources fails there.
#include "hosts/tracker/resource.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using tidewell::message_t;
using rows_t = std::vector<std::string>;

std::string first_string(message_t const& message, char const* property, std::size_t max_text = 1024) {
  g_autoptr(TrackerResource) resource = tracker_host::to_resource(message, "urn:test:a", max_text);
  char const* value = tracker_resource_get_first_string(resource, property);
  return value ? value : "<absent>";
}

// What the store says to taking resource: empty when it took it.
std::string insert(TrackerSparqlConnection* store, message_t const& message, char const* identifier) {
  g_autoptr(TrackerResource) resource = tracker_host::to_resource(message, identifier, 1024);
  g_autofree gchar* sparql = tracker_resource_print_sparql_update(resource, nullptr, "tracker:Documents");
  g_autoptr(GError) error = nullptr;
  tracker_sparql_connection_update(store, sparql, nullptr, &error);
  return error ? error->message : "";
}

// The rows of the answer to query, each its columns joined by "|".
rows_t rows(TrackerSparqlConnection* store, char const* query) {
  g_autoptr(GError) error = nullptr;
  g_autoptr(TrackerSparqlCursor) cursor = tracker_sparql_connection_query(store, query, nullptr, &error);
  rows_t rows;
  while (cursor && tracker_sparql_cursor_next(cursor, nullptr, &error)) {
    rows.emplace_back();
    for (int i = 0; i < tracker_sparql_cursor_get_n_columns(cursor); ++i) {
      char const* value = tracker_sparql_cursor_get_string(cursor, i, nullptr);
      rows.back() += (i ? "|" : "") + std::string(value ? value : "");
    }
  }
  return error ? rows_t{error->message} : rows;
}

TEST(tracker_resource, stores_every_field_and_is_found_by_text_and_address) {
  g_autoptr(GFile) ontology = tracker_sparql_get_ontology_nepomuk();
  g_autoptr(GError) error = nullptr;
  g_autoptr(TrackerSparqlConnection) store =
      tracker_sparql_connection_new(TRACKER_SPARQL_CONNECTION_FLAGS_NONE, nullptr, ontology, nullptr, &error);
  ASSERT_TRUE(store) << error->message;
  auto const day = std::chrono::sys_days(std::chrono::year(2025) / 10 / 6);
  message_t a;
  a.subject = "Harbour permits";
  a.from = {{"Marta Kowalska", "marta@example.com"}};
  a.to = {{"Bob Marsh", "bob@example.org"}, {"", "desk@example.org"}};
  a.cc = {{"Nameless Only", ""}, {"Bob Marsh", "bob@example.org"}};
  a.date = tidewell::date_t{tidewell::instant_t(day + 18h + 3min + 55s), 2h};
  a.received = tidewell::date_t{tidewell::instant_t(day + 18h + 4min + 12s)};
  a.text = "Collect the permits from reception.\n";
  a.attachments.resize(2);
  a.attachments[0].file_name = "permit form.pdf";
  a.attachments[1].file_name = "map.png";
  message_t b;
  b.subject = "Re: \"permits\" <draft>";
  b.from = {{"Bob Marsh", "bob@example.org"}};
  b.to = {{"M. K.", "marta@example.com"}};
  b.bcc = {{"odd", "a \"b\" <c>%41@x"}};
  ASSERT_EQ(insert(store, a, "urn:test:a"), "");
  ASSERT_EQ(insert(store, b, "urn:test:b"), "");
  ASSERT_EQ(insert(store, a, "urn:test:a"), "") << "extracting a file again must not clash";

  // nie:contentCreated is a sub-property of nie:informationElementDate, as
  // nco:creator is of nco:contributor.
  EXPECT_EQ(rows(store, "SELECT ?t ?s ?x ?c ?r { <urn:test:a> nie:title ?t ; nie:subject ?s ; nie:plainTextContent ?x "
                        "; nie:contentCreated ?c ; nie:informationElementDate ?r FILTER (?r != ?c) }"),
            rows_t{"Harbour permits|Harbour permits|Collect the permits from reception.\n|2025-10-06T18:03:55Z|"
                   "2025-10-06T18:04:12Z"});
  EXPECT_EQ(rows(store, "SELECT DISTINCT ?n ?e { <urn:test:a> nco:contributor ?c OPTIONAL { ?c nco:fullname ?n } "
                        "OPTIONAL { ?c nco:hasEmailAddress ?e } } ORDER BY ?e"),
            (rows_t{"Bob Marsh|mailto:bob@example.org", "|mailto:desk@example.org",
                    "Marta Kowalska|mailto:marta@example.com"}));
  // A mailbox without an address gives no contact, one in To and Cc gives one.
  EXPECT_EQ(rows(store, "SELECT (COUNT(?c) AS ?n) { <urn:test:a> nco:contributor ?c "
                        "FILTER NOT EXISTS { <urn:test:a> nco:creator ?c } }"),
            rows_t{"2"});
  EXPECT_EQ(rows(store, "SELECT DISTINCT ?m ?n { ?m nco:creator ?c . ?c nco:fullname ?n ; "
                        "nco:hasEmailAddress/nco:emailAddress 'bob@example.org' }"),
            rows_t{"urn:test:b|Bob Marsh"});
  EXPECT_EQ(rows(store, "SELECT ?e { ?m nco:contributor/nco:hasEmailAddress ?e . ?e nco:emailAddress "
                        "'a \"b\" <c>%41@x' }"),
            rows_t{"mailto:a%20%22b%22%20%3Cc%3E%2541@x"});
  EXPECT_EQ(rows(store, "SELECT ?m { GRAPH tracker:Documents { ?m fts:match 'reception' } }"), rows_t{"urn:test:a"});
  EXPECT_EQ(rows(store, "SELECT ?m { ?m nie:hasPart/nfo:fileName 'permit form.pdf' }"), rows_t{"urn:test:a"});
  EXPECT_EQ(
      rows(store, "SELECT ?n { <urn:test:a> nie:hasPart ?a . ?a a nfo:Attachment ; nfo:fileName ?n } ORDER BY ?n"),
      (rows_t{"map.png", "permit form.pdf"}));
  // One resource per address, however many messages name it.
  EXPECT_EQ(rows(store, "SELECT (COUNT(?e) AS ?n) { ?e a nco:EmailAddress }"), rows_t{"4"});
}

TEST(tracker_resource, text_is_cut_before_a_character_it_would_split) {
  message_t message;
  message.subject = "";
  EXPECT_EQ(first_string(message, "nie:title"), "<absent>");
  EXPECT_EQ(first_string(message, "nie:plainTextContent"), "<absent>");
  message.text = "";
  EXPECT_EQ(first_string(message, "nie:plainTextContent"), "") << "empty text is still text";
  message.text = std::string("caf\xC3\xA9 au lait\0x", 15);
  EXPECT_EQ(first_string(message, "nie:plainTextContent", 4), "caf");
  EXPECT_EQ(first_string(message, "nie:plainTextContent"), "caf\xC3\xA9 au lait x") << "a NUL becomes a space";
}

std::size_t count(TrackerResource* resource, char const* property) {
  return g_list_length(tracker_resource_get_values(resource, property));
}

std::vector<tidewell::mailbox_t> readers(std::size_t from, std::size_t to) {
  std::vector<tidewell::mailbox_t> mailboxes;
  for (std::size_t i = from; i < to; ++i)
    mailboxes.push_back({"Reader " + std::to_string(i), "reader" + std::to_string(i) + "@x"});
  return mailboxes;
}

// One message gives at most max_contacts contacts, From first; the mailboxes
// past that are lines of the text ahead of the body, which keeps its share.
TEST(tracker_resource, contacts_past_the_bound_go_into_the_text) {
  static_assert(tracker_host::max_contacts == 1000);
  message_t message;
  message.from = {{"Desk", "desk@x"}};
  message.to = readers(0, 1500);
  message.cc = readers(998, 1000); // already named in To: neither a contact nor a line again
  message.text = "Short body.";
  {
    g_autoptr(TrackerResource) resource = tracker_host::to_resource(message, nullptr, 100);
    EXPECT_EQ(count(resource, "nco:creator"), 1u);
    EXPECT_EQ(count(resource, "nco:contributor"), 999u);
    auto* last = static_cast<TrackerResource*>(g_value_get_object(
        static_cast<GValue*>(g_list_last(tracker_resource_get_values(resource, "nco:contributor"))->data)));
    EXPECT_STREQ(tracker_resource_get_first_string(last, "nco:fullname"), "Reader 998");
    // Whole lines only: 100 bytes less the body's 12 hold three, of 25, 27 and 27.
    EXPECT_STREQ(tracker_resource_get_first_string(resource, "nie:plainTextContent"),
                 "Reader 999 <reader999@x>\nReader 1000 <reader1000@x>\nReader 1001 <reader1001@x>\n\nShort body.");
  }
  // A long body leaves the list half of the text; a list and no body, all of it.
  message.text = std::string(500, 'b');
  EXPECT_EQ(first_string(message, "nie:plainTextContent", 100), "Reader 999 <reader999@x>\n\n" + std::string(74, 'b'));
  message.text.reset();
  message.to[999].name.clear();
  EXPECT_EQ(first_string(message, "nie:plainTextContent", 60), "reader999@x\nReader 1000 <reader1000@x>\n");
  EXPECT_EQ(first_string(message, "nie:plainTextContent", 5), "") << "not even one whole line";
  // From alone can fill the bound; its rest is text too.
  message.from = readers(0, 1001);
  message.to.clear();
  message.cc.clear();
  g_autoptr(TrackerResource) resource = tracker_host::to_resource(message, nullptr, 1024);
  EXPECT_EQ(count(resource, "nco:creator"), 1000u);
  EXPECT_EQ(count(resource, "nco:contributor"), 0u);
  EXPECT_STREQ(tracker_resource_get_first_string(resource, "nie:plainTextContent"), "Reader 1000 <reader1000@x>\n");
}

TEST(tracker_resource, attachments_and_subject_are_bounded) {
  message_t message;
  message.attachments.resize(tracker_host::max_attachments + 1);
  for (std::size_t i = 0; i < message.attachments.size(); ++i)
    message.attachments[i].file_name = "part-" + std::to_string(i);
  // The cut comes before the two-byte character the bound would split.
  message.subject = std::string(tracker_host::max_subject_bytes - 1, 's') + "\xC3\xA9";
  g_autoptr(TrackerResource) resource = tracker_host::to_resource(message, nullptr, 1024);
  EXPECT_EQ(count(resource, "nie:hasPart"), 1000u);
  auto* last = static_cast<TrackerResource*>(g_value_get_object(
      static_cast<GValue*>(g_list_last(tracker_resource_get_values(resource, "nie:hasPart"))->data)));
  EXPECT_STREQ(tracker_resource_get_first_string(last, "nfo:fileName"), "part-999");
  std::string const cut(tracker_host::max_subject_bytes - 1, 's');
  EXPECT_EQ(tracker_resource_get_first_string(resource, "nie:title"), cut);
  EXPECT_EQ(tracker_resource_get_first_string(resource, "nie:subject"), cut);
}

TEST(tracker_resource, mailto_iris_escape_what_an_iri_cannot_hold) {
  EXPECT_EQ(tracker_host::mailto_iri("\" <>{}|\\^`%41\t\x7F@x"), "mailto:%22%20%3C%3E%7B%7D%7C%5C%5E%60%2541%09%7F@x");
  EXPECT_EQ(tracker_host::mailto_iri("!~j\xC3\xBCrgen@x"), "mailto:!~j\xC3\xBCrgen@x");
}

} // namespace
