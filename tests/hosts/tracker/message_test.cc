// Reading a message file the Tracker way: CR LF line ends, per-field contacts.
//
// The tests in the *_after_merge suites need address parsing, dates and
// decoding from the core. Each first asks the core (through the desktop
// host's import) whether that piece is there and skips when it is not, so
// they start checking by themselves once it is.
#include "hosts/tracker/message.h"

#include <string>

#include <gtest/gtest.h>

#include "importer/import.h"

namespace tracker_host {
void PrintTo(contact_t const& c, std::ostream* os) {
  *os << '{' << c.name << ", " << c.address << '}';
}
} // namespace tracker_host

namespace {

using namespace std::chrono_literals;
using tracker_host::contact_t;
using tracker_host::message_t;

message_t read(std::string const& bytes) {
  return tracker_host::read_message(bytes.data(), bytes.data() + bytes.size());
}

std::string crlf(std::string const& lf) {
  std::string out;
  for (char c : lf) {
    if (c == '\n')
      out += '\r';
    out += c;
  }
  return out;
}

// Whether the core's own import of probe sets attribute (to expected, if given).
bool core_gives(std::string const& probe, std::string_view attribute, std::string const& expected = {}) {
  importer::attribute_set_t attributes;
  importer::import_bytes(probe.data(), probe.data() + probe.size(), attributes);
  auto const* value = attributes.find(attribute);
  if (!value)
    return false;
  auto const* text = std::get_if<std::string>(value);
  return expected.empty() || (text && *text == expected);
}

#define SKIP_UNLESS_CORE_GIVES(...)                                                                                    \
  if (!core_gives(__VA_ARGS__))                                                                                        \
  GTEST_SKIP() << "the core does not give this yet"

std::string const sample = "Received: from relay.example.net by mx.example.org; Mon, 6 Oct 2025 18:04:12 +0000\n"
                           "Date: Mon, 06 Oct 2025 20:03:55 +0200\n"
                           "From: \"Kowalska, Marta\" <marta@example.com>\n"
                           "To: Bob Marsh <bob@example.org>\n"
                           "Cc: desk@example.org\n"
                           "Bcc: ann@x, bob@y\n"
                           "Subject: Harbour permits\n"
                           "\n"
                           "Collect the permits\r from reception.\n";

TEST(tracker_message, crlf_line_ends_read_as_lf) {
  message_t const lf = read(sample);
  message_t const from_crlf = read(crlf(sample));
  EXPECT_EQ(lf.subject, "Harbour permits");
  EXPECT_EQ(from_crlf.subject, "Harbour permits");
  // The lone CR inside the body is content and survives.
  EXPECT_EQ(from_crlf.text, lf.text);
  ASSERT_TRUE(from_crlf.text);
  EXPECT_NE(from_crlf.text->find("permits\r from reception."), std::string::npos);
  EXPECT_EQ(from_crlf.authors, lf.authors);
  EXPECT_EQ(from_crlf.recipients, lf.recipients);
  EXPECT_EQ(from_crlf.sent, lf.sent);
}

TEST(tracker_message, empty_input_gives_nothing) {
  message_t const message = tracker_host::read_message(nullptr, nullptr);
  EXPECT_FALSE(message.subject);
  EXPECT_FALSE(message.text);
  EXPECT_FALSE(message.sent);
  EXPECT_TRUE(message.authors.empty());
  EXPECT_TRUE(message.recipients.empty());
}

TEST(tracker_message_after_merge, one_contact_per_field_pairs_name_and_address) {
  SKIP_UNLESS_CORE_GIVES("From: Ann <a@x>\n\n", importer::attribute::authors);
  message_t const message = read(crlf(sample));
  EXPECT_EQ(message.authors, (std::vector<contact_t>{{"Kowalska, Marta", "marta@example.com"}}));
  // Each field is one mailbox, as the core reads it: the Bcc list gives the
  // last address and the rest as its name.
  EXPECT_EQ(message.recipients,
            (std::vector<contact_t>{{"Bob Marsh", "bob@example.org"}, {"", "desk@example.org"}, {"ann@x,", "bob@y"}}));
}

TEST(tracker_message_after_merge, dates_are_utc_instants) {
  SKIP_UNLESS_CORE_GIVES("Date: Mon, 06 Oct 2025 20:03:55 +0200\n\n", importer::attribute::content_creation_date);
  message_t const message = read(crlf(sample));
  auto const day = std::chrono::sys_days(std::chrono::year(2025) / 10 / 6);
  EXPECT_EQ(message.sent, importer::instant_t(day + 18h + 3min + 55s));
  EXPECT_EQ(message.received, importer::instant_t(day + 18h + 4min + 12s));
}

TEST(tracker_message_after_merge, encoded_subject_and_quoted_printable_body_are_decoded) {
  SKIP_UNLESS_CORE_GIVES("Subject: =?UTF-8?Q?R=C3=A9sum=C3=A9?=\n\n", importer::attribute::subject,
                         "R\xC3\xA9sum\xC3\xA9");
  SKIP_UNLESS_CORE_GIVES("Content-Type: text/plain; charset=iso-8859-1\n"
                         "Content-Transfer-Encoding: quoted-printable\n\ncaf=E9\n",
                         importer::attribute::text_content, "caf\xC3\xA9\n");
  message_t const message = read(crlf("Subject: =?iso-8859-1?Q?Pr=EAt?=\n"
                                      "Content-Type: text/plain; charset=iso-8859-1\n"
                                      "Content-Transfer-Encoding: quoted-printable\n"
                                      "\n"
                                      "Le phare est pr=EAt. La lanterne doit =\n"
                                      "=EAtre repeinte.\n"));
  EXPECT_EQ(message.subject, "Pr\xC3\xAAt");
  ASSERT_TRUE(message.text);
  EXPECT_NE(message.text->find("Le phare est pr\xC3\xAAt. La lanterne doit \xC3\xAAtre repeinte."), std::string::npos)
      << *message.text;
}

} // namespace
