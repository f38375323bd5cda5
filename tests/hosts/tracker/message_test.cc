// SPDX-License-Identifier: MIT
// Reading a message file the Tracker way: the full reading, one contact per mailbox.
#include "hosts/tracker/message.h"

#include <regex>
#include <string>

#include <gtest/gtest.h>

namespace tracker_host {
void PrintTo(contact_t const& c, std::ostream* os) {
  *os << '{' << c.name << ", " << c.address << '}';
}
} // namespace tracker_host

namespace {

using namespace std::chrono_literals;
using contacts_t = std::vector<tracker_host::contact_t>;

std::string const sample = "Received: from relay.example.net by mx.example.org; Mon, 6 Oct 2025 18:04:12 +0000\n"
                           "Date: Mon, 06 Oct 2025 20:03:55 +0200\n"
                           "From: \"Kowalska, Marta\" <marta@example.com>\n"
                           "To: Bob Marsh <bob@example.org>\n"
                           "Cc: desk@example.org\n"
                           "Bcc: ann@x, =?utf-8?q?Bob_=22B=22?= <bob@y>, Bob Marsh <bob@example.org>\n"
                           "Subject: =?iso-8859-1?Q?Pr=EAt?=\n"
                           "Content-Type: text/plain; charset=iso-8859-1\n"
                           "Content-Transfer-Encoding: quoted-printable\n"
                           "\n"
                           "Le phare est pr=EAt.\r La lanterne doit =\n"
                           "=EAtre repeinte.\n";

TEST(tracker_message, reads_every_field_with_lf_and_with_crlf_line_ends) {
  std::string const crlf = std::regex_replace(sample, std::regex("\n"), "\r\n");
  auto const day = std::chrono::sys_days(std::chrono::year(2025) / 10 / 6);
  for (std::string const& bytes : {sample, crlf}) {
    SCOPED_TRACE(bytes == crlf ? "CR LF" : "LF");
    auto const message = tracker_host::read_message(bytes.data(), bytes.data() + bytes.size());
    EXPECT_EQ(message.subject, "Pr\xC3\xAAt");
    // The soft line break joins the lines; the lone CR is content and stays.
    EXPECT_EQ(message.text, "Le phare est pr\xC3\xAAt.\r La lanterne doit \xC3\xAAtre repeinte.\n");
    EXPECT_EQ(message.sent, importer::instant_t(day + 18h + 3min + 55s));
    EXPECT_EQ(message.received, importer::instant_t(day + 18h + 4min + 12s));
    EXPECT_EQ(message.authors, (contacts_t{{"Kowalska, Marta", "marta@example.com"}}));
    // Every mailbox, its name decoded on its own; the repeated one once.
    EXPECT_EQ(message.recipients,
              (contacts_t{
                  {"Bob Marsh", "bob@example.org"}, {"", "desk@example.org"}, {"", "ann@x"}, {"Bob \"B\"", "bob@y"}}));
  }
}

} // namespace
