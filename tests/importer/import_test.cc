// SPDX-License-Identifier: MIT
#include "importer/import.h"
#include "importer/message.h"

#include <boost/algorithm/string/join.hpp>
#include <boost/locale/utf.hpp>
#include <gtest/gtest.h>

#include "tests/support/temp_file.h"

namespace {

using importer::attribute_set_t;
using test_support::temp_file_t;
namespace attribute = importer::attribute;
using namespace std::chrono;

// Imports the message from a file; the same bytes in memory must import the
// same.
attribute_set_t import(std::string const& message) {
  temp_file_t const file(message);
  attribute_set_t attributes, from_bytes;
  EXPECT_TRUE(importer::import_file(file.path(), attributes));
  EXPECT_TRUE(importer::import_bytes(message.data(), message.data() + message.size(), from_bytes));
  EXPECT_TRUE(std::equal(attributes.begin(), attributes.end(), from_bytes.begin(), from_bytes.end())) << message;
  return attributes;
}

// One attribute as text: lists joined with '|'.
std::string shown(attribute_set_t const& attributes, std::string_view name) {
  auto const* value = attributes.find(name);
  if (!value)
    return "<absent>";
  if (auto const* list = std::get_if<std::vector<std::string>>(value))
    return boost::algorithm::join(*list, "|");
  auto const* text = std::get_if<std::string>(value);
  return text ? *text : "<instant>";
}

TEST(import, attributes_from_headers_and_body) {
  // What the corpus, whose attributes the golden digests pin, does not show:
  // a lone encoded surrogate is the one ill-formed sequence that survives the
  // conversion to UTF-8 (it is left for the surrogate repair, which needs a
  // pair), and the platform would make no string of it; recipients collect
  // To, Cc and Bcc in header-map order, whatever the message's order.
  using namespace importer::attribute;
  struct {
    std::string message;
    std::vector<std::pair<std::string_view, std::string>> expected;
  } const cases[] = {
      {"Subject: a=?utf-8?q?=ED=B0=80?=z\n\nbody\n",
       {{subject, "<absent>"}, {display_name, "<absent>"}, {text_content, "body\n"}}},
      {"From: Ann <ann@x>\nBcc: bob@y\nTo: Bob <bob@y>\nCc: carol@z (Carol)\n\nbody\n",
       {{authors, "Ann"}, {recipients, "Bob|Carol"}, {recipient_email_addresses, "bob@y|carol@z|bob@y"}}},
  };
  for (auto const& c : cases) {
    auto const attributes = import(c.message);
    for (auto const& [name, expected] : c.expected)
      EXPECT_EQ(shown(attributes, name), expected) << c.message << name;
  }
}

// The full reading's typed message beside the desktop attributes, as the
// desktop attribute it stands for: the subject, the text, or From's names or
// addresses for the authors.
std::string shown(tidewell::message_t const& message, std::string_view name) {
  using namespace importer::attribute;
  if (name == subject || name == text_content)
    return (name == subject ? message.subject : message.text).value_or("<absent>");
  std::vector<std::string> parts;
  for (tidewell::mailbox_t const& mailbox : message.from)
    parts.push_back(name == authors ? mailbox.name : mailbox.address);
  return parts.empty() ? "<absent>" : boost::algorithm::join(parts, "|");
}

// The same messages in both readings: where they differ in repairing what is
// not UTF-8 (how each lists mailboxes: message_test, addresses_test).
TEST(import, full_reading_against_desktop_reading) {
  using namespace importer::attribute;
  std::string const fffd = "\xEF\xBF\xBD";
  struct {
    std::string message;
    std::vector<std::tuple<std::string_view, std::string, std::string>> expected; // attribute, desktop, full
  } const cases[] = {
      // One lone surrogate erases the desktop value; the full reading marks it.
      {"Subject: a\xED\xA0\xBDz\n\nbody \xED\xB0\x80 text\n",
       {{subject, "<absent>", "a" + fffd + "z"}, {text_content, "<absent>", "body " + fffd + " text\n"}}},
      {"From: Ann <ann@x>, =?utf-8?q?B=ED=B0=80?= <b@x>\n\nb\n",
       {{authors, "<absent>", "Ann|B" + fffd}, {author_email_addresses, "b@x", "ann@x|b@x"}}},
  };
  for (auto const& c : cases) {
    auto const desktop = import(c.message);
    auto const full = tidewell::parse(c.message);
    for (auto const& [name, in_desktop, in_full] : c.expected) {
      EXPECT_EQ(shown(desktop, name), in_desktop) << c.message << name;
      EXPECT_EQ(shown(full, name), in_full) << c.message << name;
    }
  }
}

TEST(import, only_the_exact_mail_type_is_imported) {
  temp_file_t const file("Subject: x\n\n");
  for (std::string_view type : {"com.apple.mail.email", "public.email-message", "com.apple.mail.email ", ""}) {
    attribute_set_t attributes;
    attributes.set("keep", std::string("me"));
    bool const mail = type == importer::mail_content_type;
    EXPECT_EQ(importer::get_metadata_for_file(attributes, type, file.path()), mail) << type;
    EXPECT_EQ(shown(attributes, mail ? attribute::subject : "keep"), mail ? "x" : "me") << type;
    EXPECT_EQ(attributes.size(), mail ? 3u : 1u) << type;
  }
}

// The desktop rows over header maps no message yields, into a set that
// already holds values: a string that cannot be made removes the value, a
// date never does; list elements that cannot be made are skipped, and no
// list is made of them alone; the text is taken out of the map, the subject
// only by the last of its two rows.
TEST(apply_rows, replaces_removes_and_keeps_as_the_platform_does) {
  sys_seconds const earlier = sys_days(2001y / 9 / 9);
  auto const applied = [&](email::header_map_t& headers) {
    attribute_set_t attributes;
    for (std::string_view name : {attribute::subject, attribute::display_name, attribute::text_content})
      attributes.set(name, std::string("old"));
    attributes.set(attribute::content_creation_date, earlier);
    importer::attribute_sink_t sink(attributes);
    importer::apply_rows(headers, sink);
    return attributes;
  };
  auto const date = [](attribute_set_t const& attributes, std::string_view name) {
    auto const* value = attributes.find(name);
    return value ? std::optional(*value) : std::nullopt;
  };

  std::string const text(100, 't');
  email::header_map_t headers{{"subject", "Caf\xC3\xA9"},
                              {"#text", text},
                              {"date", "2024-02-30 00:00:00"},
                              {"received", "2024-02-29 23:59:59"},
                              {"from", "\xFF <ann@x>"},
                              {"to", "Bob <bob@y>"},
                              {"cc", "carol@z"},
                              {"bcc", "Dan <d\xFF@z>"}};
  attribute_set_t attributes = applied(headers);
  EXPECT_EQ(shown(attributes, attribute::subject), "Caf\xC3\xA9");
  EXPECT_EQ(shown(attributes, attribute::display_name), "Caf\xC3\xA9");
  EXPECT_EQ(shown(attributes, attribute::text_content), text);
  EXPECT_TRUE(headers.at("#text").empty()) << "the text is copied rather than taken";
  EXPECT_EQ(date(attributes, attribute::content_creation_date), importer::attribute_value_t(earlier));
  EXPECT_EQ(date(attributes, attribute::date_received),
            importer::attribute_value_t(sys_days(2024y / 2 / 29) + 23h + 59min + 59s));
  EXPECT_EQ(shown(attributes, attribute::authors), "<absent>");
  EXPECT_EQ(shown(attributes, attribute::author_email_addresses), "ann@x");
  EXPECT_EQ(shown(attributes, attribute::recipients), "Bob|Dan");
  EXPECT_EQ(shown(attributes, attribute::recipient_email_addresses), "bob@y|carol@z");

  headers = {{"subject", "\xED\xA0\x80"}, {"#text", email::no_text_marker}, {"date", "2024-02-29 23:59:5"}};
  attributes = applied(headers);
  EXPECT_EQ(shown(attributes, attribute::subject), "<absent>");
  EXPECT_EQ(shown(attributes, attribute::display_name), "<absent>");
  EXPECT_EQ(shown(attributes, attribute::text_content), "old");
  EXPECT_EQ(date(attributes, attribute::content_creation_date), importer::attribute_value_t(earlier));
  EXPECT_EQ(attributes.size(), 2u);
}

// Every sequence of up to four bytes drawn from the edges of the byte
// ranges, alone and after seven ASCII bytes (so that it straddles the
// eight-byte ASCII skip), agrees with Boost.Locale's strict decoder.
TEST(well_formed_utf8, agrees_with_a_strict_decoder) {
  auto const reference = [](std::string_view text) {
    using traits = boost::locale::utf::utf_traits<char>;
    char const* p = text.data();
    char const* const end = p + text.size();
    while (p != end) {
      auto const c = traits::decode(p, end);
      if (c == boost::locale::utf::illegal || c == boost::locale::utf::incomplete)
        return false;
    }
    return true;
  };
  unsigned char const edges[] = {0x00, 0x41, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0, 0xC1, 0xC2, 0xDF,
                                 0xE0, 0xE1, 0xEC, 0xED, 0xEE, 0xEF, 0xF0, 0xF1, 0xF3, 0xF4, 0xF5, 0xFF};
  std::string bytes;
  auto const check = [&] {
    for (std::string const& text : {bytes, "1234567" + bytes})
      ASSERT_EQ(importer::is_well_formed_utf8(text), reference(text)) << testing::PrintToString(text);
  };
  for (unsigned char a : edges)
    for (unsigned char b : edges)
      for (unsigned char c : edges) {
        bytes = {char(a), char(b), char(c)};
        check();
        for (unsigned char d : edges) {
          bytes = {char(a), char(b), char(c), char(d)};
          check();
        }
      }
}

} // namespace
