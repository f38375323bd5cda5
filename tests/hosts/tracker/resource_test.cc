// The message-to-resource mapping, checked on the resource itself and by
// storing what it prints into a real Tracker store built from the Nepomuk
// ontology Tracker ships: a mapping that names a property wrongly, breaks a
// cardinality or gives one address two resources fails there.
#include "hosts/tracker/resource.h"

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using tracker_host::contact_t;
using tracker_host::message_t;

struct unref_t {
  void operator()(gpointer p) const { g_object_unref(p); }
};
using resource_ptr = std::unique_ptr<TrackerResource, unref_t>;

resource_ptr resource_of(message_t const& message, std::size_t max_text = tracker_host::default_max_text_bytes) {
  return resource_ptr(tracker_host::to_resource(message, "urn:test:message", max_text));
}

std::string string_of(TrackerResource* resource, char const* property) {
  char const* value = tracker_resource_get_first_string(resource, property);
  return value ? value : "<absent>";
}

std::string date_of(TrackerResource* resource, char const* property) {
  char const* text = tracker_resource_get_first_string(resource, property);
  return text ? text : "<absent>";
}

// "fullname <address-iri address>" for every contact under property.
std::vector<std::string> contacts_of(TrackerResource* resource, char const* property) {
  std::vector<std::string> contacts;
  GList* values = tracker_resource_get_values(resource, property);
  for (GList* l = values; l; l = l->next) {
    auto* contact = static_cast<TrackerResource*>(g_value_get_object(static_cast<GValue*>(l->data)));
    std::string line = string_of(contact, "nco:fullname");
    if (TrackerResource* email = tracker_resource_get_first_relation(contact, "nco:hasEmailAddress"))
      line +=
          std::string(" <") + tracker_resource_get_identifier(email) + " " + string_of(email, "nco:emailAddress") + ">";
    contacts.push_back(line);
  }
  g_list_free(values);
  return contacts;
}

message_t full_message() {
  message_t message;
  message.subject = "Harbour permits";
  message.text = "Collect the permits from reception.\n";
  message.sent = importer::instant_t(std::chrono::sys_days(std::chrono::year(2025) / 10 / 6) + 18h + 3min + 55s);
  message.received = importer::instant_t(std::chrono::sys_days(std::chrono::year(2025) / 10 / 6) + 18h + 4min + 12s);
  message.authors = {{"Marta Kowalska", "marta@example.com"}};
  message.recipients = {{"Bob Marsh", "bob@example.org"}, {"", "desk@example.org"}, {"Nameless Only", ""}};
  return message;
}

TEST(tracker_resource, maps_every_field) {
  auto const resource = resource_of(full_message());
  EXPECT_STREQ(tracker_resource_get_identifier(resource.get()), "urn:test:message");
  EXPECT_STREQ(tracker_resource_get_first_uri(resource.get(), "rdf:type"), "nfo:TextDocument");
  EXPECT_EQ(string_of(resource.get(), "nie:title"), "Harbour permits");
  EXPECT_EQ(string_of(resource.get(), "nie:subject"), "Harbour permits");
  EXPECT_EQ(string_of(resource.get(), "nie:plainTextContent"), "Collect the permits from reception.\n");
  EXPECT_EQ(date_of(resource.get(), "nie:contentCreated"), "2025-10-06T18:03:55Z");
  EXPECT_EQ(date_of(resource.get(), "nie:informationElementDate"), "2025-10-06T18:04:12Z");
  EXPECT_EQ(contacts_of(resource.get(), "nco:creator"),
            std::vector<std::string>{"Marta Kowalska <mailto:marta@example.com marta@example.com>"});
  EXPECT_EQ(contacts_of(resource.get(), "nco:contributor"),
            (std::vector<std::string>{"Bob Marsh <mailto:bob@example.org bob@example.org>",
                                      "<absent> <mailto:desk@example.org desk@example.org>", "Nameless Only"}));
}

TEST(tracker_resource, absent_and_empty_values_set_nothing) {
  message_t message;
  message.subject = "";
  auto const resource = resource_of(message);
  for (char const* property : {"nie:title", "nie:subject", "nie:plainTextContent"})
    EXPECT_EQ(string_of(resource.get(), property), "<absent>") << property;
  EXPECT_EQ(date_of(resource.get(), "nie:contentCreated"), "<absent>");
  EXPECT_TRUE(contacts_of(resource.get(), "nco:creator").empty());
  message.text = "";
  EXPECT_EQ(string_of(resource_of(message).get(), "nie:plainTextContent"), "") << "empty text is still text";
}

TEST(tracker_resource, text_is_cut_to_the_size_setting_and_keeps_nul_free) {
  message_t message;
  message.text = std::string("caf\xC3\xA9 au lait\0x", 15);
  EXPECT_EQ(string_of(resource_of(message, 4).get(), "nie:plainTextContent"), "caf");
  EXPECT_EQ(string_of(resource_of(message, 5).get(), "nie:plainTextContent"), "caf\xC3\xA9");
  EXPECT_EQ(string_of(resource_of(message).get(), "nie:plainTextContent"), "caf\xC3\xA9 au lait x");
}

TEST(tracker_resource, utf8_prefix_never_splits_a_character) {
  struct row_t {
    std::string_view text;
    std::size_t max;
    std::string_view expected;
  };
  for (auto const& row : std::vector<row_t>{{"abc", 5, "abc"},
                                            {"abc", 0, ""},
                                            {"a\xE2\x82\xAC", 1, "a"},
                                            {"a\xE2\x82\xAC", 2, "a"},
                                            {"a\xE2\x82\xAC", 3, "a"},
                                            {"a\xE2\x82\xAC", 4, "a\xE2\x82\xAC"},
                                            {"\xF0\x9F\x93\xA7!", 3, ""}})
    EXPECT_EQ(tracker_host::utf8_prefix(row.text, row.max), row.expected) << row.text << " " << row.max;
}

TEST(tracker_resource, mailto_iris_escape_what_an_iri_cannot_hold) {
  struct row_t {
    std::string_view address;
    std::string_view iri;
  };
  for (auto const& row : std::vector<row_t>{
           {"ann@example.com", "mailto:ann@example.com"},
           {"\"ann lee\"@example.com", "mailto:%22ann%20lee%22@example.com"},
           {"a<b>{c}|d\\e^f`g@x", "mailto:a%3Cb%3E%7Bc%7D%7Cd%5Ce%5Ef%60g@x"},
           {"100%41@x", "mailto:100%2541@x"},
           {"tab\there\x7F@x", "mailto:tab%09here%7F@x"},
           {"j\xC3\xBCrgen@example.de", "mailto:j\xC3\xBCrgen@example.de"},
       })
    EXPECT_EQ(tracker_host::mailto_iri(row.address), row.iri) << row.address;
}

// A private in-memory store with Tracker's own ontology.
class store_t {
public:
  store_t() {
    GFile* ontology = tracker_sparql_get_ontology_nepomuk();
    GError* error = nullptr;
    connection_ =
        tracker_sparql_connection_new(TRACKER_SPARQL_CONNECTION_FLAGS_NONE, nullptr, ontology, nullptr, &error);
    g_object_unref(ontology);
    EXPECT_EQ(error, nullptr) << error->message;
  }
  ~store_t() {
    if (connection_)
      g_object_unref(connection_);
  }
  bool insert(TrackerResource* resource) {
    gchar* sparql = tracker_resource_print_sparql_update(resource, nullptr, "tracker:Documents");
    GError* error = nullptr;
    tracker_sparql_connection_update(connection_, sparql, nullptr, &error);
    g_free(sparql);
    if (error) {
      ADD_FAILURE() << error->message;
      g_error_free(error);
      return false;
    }
    return true;
  }
  std::vector<std::string> column(std::string const& query) {
    std::vector<std::string> values;
    GError* error = nullptr;
    TrackerSparqlCursor* cursor = tracker_sparql_connection_query(connection_, query.c_str(), nullptr, &error);
    if (error) {
      ADD_FAILURE() << error->message;
      g_error_free(error);
      return values;
    }
    while (tracker_sparql_cursor_next(cursor, nullptr, nullptr)) {
      char const* value = tracker_sparql_cursor_get_string(cursor, 0, nullptr);
      values.emplace_back(value ? value : "");
    }
    g_object_unref(cursor);
    return values;
  }

private:
  TrackerSparqlConnection* connection_ = nullptr;
};

TEST(tracker_resource, stores_into_tracker_and_is_found_by_text_and_address) {
  store_t store;
  if (!store.column("SELECT 1 {}").size())
    GTEST_SKIP() << "no Tracker store";
  message_t first = full_message();
  message_t second;
  second.subject = "Re: \"permits\" <draft>";
  second.text = "Thanks!";
  second.authors = {{"Bob Marsh", "bob@example.org"}};
  second.recipients = {{"M. K.", "marta@example.com"}, {"odd", "a \"b\" <c>%41@x"}};
  auto const a = resource_ptr(tracker_host::to_resource(first, "urn:test:a", 1024));
  auto const b = resource_ptr(tracker_host::to_resource(second, "urn:test:b", 1024));
  ASSERT_TRUE(store.insert(a.get()));
  ASSERT_TRUE(store.insert(b.get()));
  ASSERT_TRUE(store.insert(a.get())) << "extracting a file again must not clash";

  EXPECT_EQ(store.column("SELECT ?m { GRAPH tracker:Documents { ?m fts:match 'reception' } }"),
            std::vector<std::string>{"urn:test:a"});
  EXPECT_EQ(store.column("SELECT ?m { ?m nco:creator/nco:hasEmailAddress/nco:emailAddress 'bob@example.org' }"),
            std::vector<std::string>{"urn:test:b"});
  // nco:creator is a sub-property of nco:contributor: the sender counts too.
  EXPECT_EQ(store.column("SELECT ?m { ?m nco:contributor/nco:hasEmailAddress <mailto:marta@example.com> } "
                         "ORDER BY ?m"),
            (std::vector<std::string>{"urn:test:a", "urn:test:b"}));
  EXPECT_EQ(store.column("SELECT ?m { ?m nco:contributor/nco:hasEmailAddress ?e . ?e nco:emailAddress "
                         "'a \"b\" <c>%41@x' }"),
            std::vector<std::string>{"urn:test:b"});
  EXPECT_EQ(store.column("SELECT (COUNT(?e) AS ?n) { ?e a nco:EmailAddress }"), std::vector<std::string>{"4"});
  EXPECT_EQ(store.column("SELECT ?d { <urn:test:a> nie:contentCreated ?d }"),
            std::vector<std::string>{"2025-10-06T18:03:55Z"});
}

} // namespace
