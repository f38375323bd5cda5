// SPDX-License-Identifier: MIT
#include "email/headers.h"

#include <gtest/gtest.h>

#include "importer/import.h"
#include "support.h"

namespace {

using email::header_map_t;

using scan_t = std::pair<header_map_t, std::string>; // fields, the body after them

scan_t scan(std::string_view message, email::reading_t reading = email::reading_t::desktop) {
  test::exact_buffer_t const buffer(message);
  char const* first = buffer.begin();
  header_map_t map = email::quick_parse_headers(first, buffer.end(), importer::wanted_headers(), reading);
  return {std::move(map), std::string(first, buffer.end())};
}

TEST(scanner, stores_cleaned_values) {
  std::tuple<std::string, char const*, std::string> const cases[] = {
      // message, key ("": the body after the scan), value
      {"Subject: x\n\nline 1\nline 2\n", "", "line 1\nline 2\n"},
      {"\nSubject: x\n", "", "Subject: x\n"},
      {"Subject:\t Hi\n\n", "subject", "\t Hi"}, // only spaces after the colon are skipped
      {"Subject : Hi\n\n", "subject", "<absent>"},
      // A fold is one space, or none after a blank; a CR breaks like an LF.
      {"Subject: a \n\tb\r\n   c \r\n d \t\r\n\n", "subject", "a b   c  d"},
      {std::string("Subject: a\0b\n\n", 14), "subject", "ab"},
      {"Subject: one\nSUBJECT: two\n\n", "subject", "two"},
      {"Subject: one\nsubject\n\n", "subject", ""}, // no colon: an empty value
      {"X-Thing: 1\n\n", "x-thing", "<absent>"},
      {"Subject: a\r\n\r\nFrom: body line\r\n", "from", "body line"}, // a CR LF block never ends
      {"Content-Type: text/plain;\n name=\"=?utf-8?q?x?=\"\n\n", "content-type", "text/plain; name=\"=?utf-8?q?x?=\""},
      // "date" and "received" hold UTC; "received" is the first readable one before Date.
      {"Date: whenever\nReceived: by b; 1 Jul 2003 10:00 +0000\n\n", "received", "<absent>"},
      {"Date: whenever\n\n", "date", "<absent>"},
      {"Received: a (x; y); 1 Jul 2003 10:00 +0000\nReceived: b; 1 Jul 2003 09:00 +0000\n\n", "received",
       "2003-07-01 10:00:00"},
      {"Received: a\nReceived: a; not a date\nReceived: c; 1 Jul 2003 09:00 EST\n\n", "received",
       "2003-07-01 14:00:00"},
  };
  for (auto const& [message, key, expected] : cases) {
    auto const [map, body] = scan(message);
    std::string const value = !*key ? body : map.contains(key) ? map.at(key) : "<absent>";
    EXPECT_EQ(value, expected) << testing::PrintToString(message);
  }
}

// The full reading takes a field with blanks before its colon; a line with
// no colon still names no field but its own.
TEST(scanner, full_reading_takes_blanks_before_the_colon) {
  std::tuple<std::string, char const*, std::string> const cases[] = {
      {"Subject : Hi\n\n", "subject", "Hi"},
      {"Date \t : 1 Jul 2003 10:00 +0000\n\n", "date", "2003-07-01 10:00:00"},
      {"From  :a@b\nTo: c@d\n\n", "from", "a@b"},
      {"Subject: x\nSubject \n\n", "subject", "x"},
  };
  for (auto const& [message, key, expected] : cases) {
    header_map_t const map = scan(message, email::reading_t::full).first;
    EXPECT_EQ(map.contains(key) ? map.at(key) : "<absent>", expected) << testing::PrintToString(message);
  }
}

// A boundary behind an empty parameter or in RFC 2231 sections is found by
// the full reading; a plain one found first stands.
TEST(scanner, full_reading_finds_every_boundary) {
  std::tuple<std::string, std::string, std::string> const cases[] = {
      // Content-Type, desktop boundary, full boundary
      {"multipart/mixed;; boundary=\"foo\"", "", "foo"},
      {"multipart/mixed; ;\t; boundary=foo", "", "foo"},
      {"multipart/mixed; boundary*=\"us-ascii'en'a%20b\"", "", "a b"},
      {"multipart/mixed; boundary*0=\"ab\"; boundary*1=cd", "", "abcd"},
      {"multipart/mixed; boundary=x; boundary*=utf-8''y", "x", "x"},
  };
  for (auto const& [type, desktop, full] : cases) {
    std::string const block = "Content-Type: " + type + "\n\n";
    EXPECT_EQ(scan(block).first.at("#boundary"), desktop) << type;
    EXPECT_EQ(scan(block, email::reading_t::full).first.at("#boundary"), full) << type;
  }
}

TEST(scanner, derives_content_keys) {
  std::pair<std::string, std::string> const cases[] = {
      // fields, "type/subtype charset [boundary] encoding disposition"
      {"", "text/plain us-ascii [] 7bit inline"},
      {"Content-Type: text / plain ; charset=\"ISO-8859-1\"\n", "text/plain iso-8859-1 [] 7bit inline"},
      {"Content-Type: multipart/Mixed; boundary=\"AbC\"; charset=x\n", "multipart/mixed us-ascii [AbC] 7bit inline"},
      {"Content-Transfer-Encoding: Quoted- Printable\n", "text/plain us-ascii [] quoted-printable inline"},
  };
  for (auto const& [fields, expected] : cases) {
    auto const m = scan(fields + "\n").first;
    EXPECT_EQ(m.at("#type") + "/" + m.at("#subtype") + " " + m.at("#charset") + " [" + m.at("#boundary") + "] " +
                  m.at("#encoding") + " " + m.at("#disposition"),
              expected);
  }
  // Wanted names that sort among or before the derived ones: a field named
  // like a derived key is replaced by it, and the map stays in key order.
  test::exact_buffer_t const buffer("!x: 1\n#type: raw\nContent-Type: text/html\n\n");
  char const* first = buffer.begin();
  email::header_set_t const wanted{"!x", "#type", "content-type", "content-disposition"};
  header_map_t const m = email::quick_parse_headers(first, buffer.end(), wanted);
  std::string keys;
  for (auto const& [key, value] : m)
    keys += key + "=" + value + " ";
  EXPECT_EQ(keys, "!x=1 #boundary= #charset=us-ascii #disposition=inline #subtype=html #type=text "
                  "content-type=text/html ");
}

// The body walker reads its parts' blocks into content fields; they must say
// what the map of the same block says, and leave the body in the same place.
TEST(scanner, content_fields_match_the_map) {
  std::string const long_name(70, 'c');
  std::string const blocks[] = {
      "",
      "\n",
      "Content-Type: text/plain\n\nx\n",
      "CONTENT-TYPE: Multipart/Alternative; boundary=\"b b\"\ncontent-transfer-encoding: BASE64\n\n--b b\n",
      "Content-Type: text/html\nContent-Type: text/plain; charset=KOI8-R\n\n", // the last wins
      "Content-Type:\nContent-Disposition: attachment;\n filename=\"a.txt\"\n\n",
      "Content-Disposition:  Inline ; x=1\nContent-Transfer-Encoding: quoted- printable \n\n",
      "Content-Type: text/plain\r\n\r\nbody\r\n", // CR LF: the block never ends
      "Content-Type : text/html\nX-Other: 1\n\tfolded\n\n",
      long_name + ": x\nContent-Type: message/rfc822\n\n",
      std::string("Content-Type: text/pl\0ain\n\n", 27),
      "Content-Type: text/plain", // no LF at all
  };
  email::header_set_t const wanted{"content-type", "content-transfer-encoding", "content-disposition"};
  for (auto const reading : {email::reading_t::desktop, email::reading_t::full})
    for (std::string const& block : blocks) {
      test::exact_buffer_t const buffer(block);
      char const* map_end = buffer.begin();
      header_map_t const m = email::quick_parse_headers(map_end, buffer.end(), wanted, reading);
      char const* fields_end = buffer.begin();
      email::content_fields_t const f = email::quick_parse_content_fields(fields_end, buffer.end(), reading);
      auto const at = [&](char const* key) { return m.contains(key) ? m.at(key) : std::string(); };
      std::string const from_map = at("#type") + "/" + at("#subtype") + " " + at("#charset") + " [" + at("#boundary") +
                                   "] " + at("#encoding") + " " + at("#disposition") + " | " + at("content-type") +
                                   " | " + at("content-disposition");
      std::string const from_fields = f.type + "/" + f.subtype + " " + f.charset + " [" + f.boundary + "] " +
                                      f.encoding + " " + f.disposition + " | " + f.content_type + " | " +
                                      f.content_disposition;
      EXPECT_EQ(from_fields, from_map) << testing::PrintToString(block);
      EXPECT_EQ(fields_end, map_end) << testing::PrintToString(block);
    }
}

// A prefix of a message gives prefixes of its field values and, once the
// blank line is in, a prefix of its body; no scan reads past its range.
TEST(scanner, every_prefix_gives_prefixes_of_values_and_body) {
  std::string const message = "Subject: a\n b\nTo: x\nContent-Type: text/plain; charset=\"q\\\"\"\n\nbody";
  std::size_t const body = message.find("\n\n") + 2;
  auto const whole = scan(message);
  for (std::size_t n = 0; n <= message.size(); ++n) {
    auto const [fields, rest] = scan(std::string_view(message).substr(0, n));
    for (char const* key : {"subject", "to", "content-type"}) {
      auto const value = fields.find(key);
      EXPECT_TRUE(value == fields.end() || whole.first.at(key).starts_with(value->second)) << n << " " << key;
    }
    EXPECT_EQ(rest, n < body ? "" : whole.second.substr(0, n - body)) << n;
  }
}

} // namespace
