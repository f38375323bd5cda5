// SPDX-License-Identifier: MIT
#include "email/body.h"

#include <gtest/gtest.h>

#include "email/decode.h"
#include "importer/import.h"
#include "support.h"
#include "text/format.h"

namespace {

using quern::error::code_t, quern::error::pattern_of;

std::string const marker = email::no_text_marker;

// The top-level text of a whole message, as parse_email computes it.
std::string text_of(std::string const& message) {
  char const* cursor = message.data();
  char const* const end = cursor + message.size();
  auto headers = email::quick_parse_headers(cursor, end, importer::wanted_headers());
  return email::parse_body(cursor, end, headers, true);
}

std::string multipart(std::string const& subtype, std::vector<std::string> const& parts, bool close = true) {
  std::string body = "Content-Type: multipart/" + subtype + "; boundary=\"b\"\n\npreamble\n";
  for (auto const& part : parts)
    body += "--b\n" + part + "\n";
  return body + (close ? "--b--\nepilogue\n" : "");
}

std::string const plain_a = "Content-Type: text/plain\n\nA";
std::string const plain_b = "Content-Type: text/plain\n\nB";
std::string const qp_message =
    "Content-Type: message/rfc822\nContent-Transfer-Encoding: quoted-printable\n\nSubject: s\n\nx=3Dy";

// Which entity yields the text, and the deliberate asymmetries of that choice
// (with each reading's choice beside the other's: full_reading_test).
TEST(walker, selects_the_text) {
  std::pair<std::string, std::string> const cases[] = {
      {multipart("mixed", {plain_a, plain_b}, false), "AB\n"}, // no close: the last part runs to the end
      {"Content-Type: multipart/mixed\n\n--b\n" + plain_a + "\n--b--\n", marker},
      {"Content-Type: multipart/mixed; boundary=b\n\n--b\r\n" + plain_a + "\r\n--b--\r\n", marker},
      {"Content-Transfer-Encoding: base64\n\n\n\n", marker},
      // A multipart is split as it stands; an enclosed message is decoded, the top-level one not.
      {"Content-Type: multipart/mixed; boundary=b\nContent-Transfer-Encoding: base64\n\n--b\n" + plain_a + "\n--b--\n",
       "A"},
      {multipart("mixed", {qp_message}), "x=y"},
      {qp_message, "x=3Dy"},
  };
  for (auto const& [message, expected] : cases)
    EXPECT_EQ(text_of(message), expected) << message;
}

// Enclosed messages are decoded while all that decoding stays within twice
// the input and 16 MiB, so a deep chain of encoded messages cannot make a
// copy of itself per level: past the bound it yields no text.
TEST(walker, decoding_containers_is_bounded) {
  std::string filler;
  while (filler.size() < (4u << 20))
    filler += std::string(75, 'y') + "\n";
  auto const chain = [&filler](int levels) {
    std::string message = "Subject: chain\n";
    for (int i = 0; i < levels; ++i)
      message += "Content-Type: message/rfc822\nContent-Transfer-Encoding: quoted-printable\n\n";
    return message + "Content-Type: text/plain\n\nT" + filler;
  };
  EXPECT_EQ(text_of(chain(3)).substr(0, 4), "Tyyy");
  EXPECT_EQ(text_of(chain(12)), marker);
}

TEST(walker, big_mixed_bodies_keep_their_first_part) {
  std::string const big = "Content-Type: application/octet-stream\n\n" + std::string(20'000'000, 'x');
  EXPECT_EQ(text_of(multipart("mixed", {plain_a, big, plain_b})), "A");
}

TEST(decode, repairs_the_transfer_encoding) {
  struct {
    std::string type, subtype, encoding;
    bool top_level, decoded;
    std::string out_type, problems;
  } const cases[] = {
      {"text", "plain", "base64 foo", true, true, "text/plain",
       text::format(pattern_of<code_t::encoding_multiple_words>, "base64 foo")},
      {"text", "plain", "utf-8", true, false, "text/plain",
       text::format(pattern_of<code_t::encoding_is_charset>, "utf-8")},
      {"image", "png", "x-gzip", true, false, "application/octet-stream",
       text::format(pattern_of<code_t::encoding_unknown>, "x-gzip")},
      {"multipart", "mixed", "x-gzip", true, false, "multipart/mixed",
       text::format(pattern_of<code_t::encoding_unknown_in_container>, "x-gzip", "multipart", "mixed")},
      {"message", "rfc822", "base64", false, true, "message/rfc822",
       text::format(pattern_of<code_t::encoding_allowed_anyway>, "base64", "message")},
      {"message", "delivery-status", "base64", false, true, "application/octet-stream", ""},
      {"multipart", "mixed", "quoted-printable", false, false, "multipart/mixed",
       text::format(pattern_of<code_t::encoding_not_allowed>, "quoted-printable", "multipart")},
      {"text", "plain", "x-uuencode", true, true, "text/plain",
       std::string(text_of(code_t::encoding_uuencode)) + " [x-uuencode]"},
  };
  std::string const body = "QUJD\n";
  for (auto const& c : cases) {
    std::string type = c.type, subtype = c.subtype;
    std::vector<char> out;
    quern::error::handler_t problems;
    bool const decoded = email::decode(body.data(), body.data() + body.size(), c.top_level, type, subtype, c.encoding,
                                       "utf-8", out, &problems);
    EXPECT_EQ(decoded, c.decoded) << c.encoding;
    EXPECT_EQ(type + "/" + subtype, c.out_type) << c.encoding;
    EXPECT_EQ(test::problems_of(problems), c.problems) << c.encoding;
  }
}

} // namespace
