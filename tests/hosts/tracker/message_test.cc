// SPDX-License-Identifier: MIT
// A message file read the way the module reads it, turned into its resource:
// CR LF or LF line ends alike, one contact per mailbox with an address.
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "hosts/tracker/resource.h"

namespace {

using strings_t = std::vector<std::string>;

std::string const sample = "Received: from relay.example.net by mx.example.org; Mon, 6 Oct 2025 18:04:12 +0000\n"
                           "Date: Mon, 06 Oct 2025 20:03:55 +0200\n"
                           "From: \"Kowalska, Marta\" <marta@example.com>\n"
                           "To: Bob Marsh <bob@example.org>, Only A Name:;\n"
                           "Cc: desk@example.org\n"
                           "Bcc: ann@x, =?utf-8?q?Bob_=22B=22?= <bob@y>, Bob Marsh <bob@example.org>\n"
                           "Subject: =?iso-8859-1?Q?Pr=EAt?=\n"
                           "Content-Type: text/plain; charset=iso-8859-1\n"
                           "Content-Transfer-Encoding: quoted-printable\n"
                           "\n"
                           "Le phare est pr=EAt.\r La lanterne doit =\n"
                           "=EAtre repeinte.\n";

// "name <address>" of every contact under property, in order.
strings_t contacts(TrackerResource* resource, char const* property) {
  strings_t result;
  for (GList* item = tracker_resource_get_values(resource, property); item; item = item->next) {
    auto* contact = static_cast<TrackerResource*>(g_value_get_object(static_cast<GValue*>(item->data)));
    char const* name = tracker_resource_get_first_string(contact, "nco:fullname");
    TrackerResource* email = tracker_resource_get_first_relation(contact, "nco:hasEmailAddress");
    char const* address = email ? tracker_resource_get_first_string(email, "nco:emailAddress") : nullptr;
    result.push_back(std::string(name ? name : "") + " <" + (address ? address : "") + ">");
  }
  return result;
}

TEST(tracker_message, every_field_with_lf_and_with_crlf_line_ends) {
  std::string const crlf = std::regex_replace(sample, std::regex("\n"), "\r\n");
  for (std::string const& bytes : {sample, crlf}) {
    SCOPED_TRACE(bytes == crlf ? "CR LF" : "LF");
    g_autoptr(TrackerResource) resource =
        tracker_host::to_resource(tidewell::parse(bytes, tracker_host::read_options()), "urn:test:m", 1024);
    EXPECT_STREQ(tracker_resource_get_first_string(resource, "nie:title"), "Pr\xC3\xAAt");
    // The soft line break joins the lines; the lone CR is content and stays.
    EXPECT_STREQ(tracker_resource_get_first_string(resource, "nie:plainTextContent"),
                 "Le phare est pr\xC3\xAAt.\r La lanterne doit \xC3\xAAtre repeinte.\n");
    EXPECT_STREQ(tracker_resource_get_first_string(resource, "nie:contentCreated"), "2025-10-06T18:03:55Z");
    EXPECT_STREQ(tracker_resource_get_first_string(resource, "nie:informationElementDate"), "2025-10-06T18:04:12Z");
    EXPECT_EQ(contacts(resource, "nco:creator"), strings_t{"Kowalska, Marta <marta@example.com>"});
    // To, Cc, then Bcc, each name decoded on its own; Bob Marsh, in To and
    // in Bcc, once; the group without mailboxes gives none.
    EXPECT_EQ(contacts(resource, "nco:contributor"),
              (strings_t{"Bob Marsh <bob@example.org>", " <desk@example.org>", " <ann@x>", "Bob \"B\" <bob@y>"}));
  }
}

} // namespace
