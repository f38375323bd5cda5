#include "email/body.h"

#include <gtest/gtest.h>

#include "email/decode.h"
#include "importer/import.h"

namespace {

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
std::string const html = "Content-Type: text/html\n\n<p>H</p>";

struct body_case_t {
  char const* name;
  std::string message;
  std::string expected;
};

class walker_test : public testing::TestWithParam<body_case_t> {};

TEST_P(walker_test, selects_the_text) { EXPECT_EQ(text_of(GetParam().message), GetParam().expected); }

INSTANTIATE_TEST_SUITE_P(
    walker, walker_test,
    testing::Values(
        body_case_t{"no_content_headers", "Subject: x\n\nhello  \nworld\n", "hello\nworld\n"},
        body_case_t{"attachment_disposition", "Content-Disposition: attachment\n\nA\n", marker},
        body_case_t{"top_level_html", "Content-Type: text/html\n\n<p>x</p>\n", marker},
        body_case_t{"other_text_subtype", "Content-Type: text/calendar\n\nBEGIN:VCALENDAR\n", marker},
        body_case_t{"empty_body", "Subject: x\n\n", marker},
        body_case_t{"alternative_plain_first", multipart("alternative", {plain_a, html}), "A"},
        body_case_t{"alternative_html_first", multipart("alternative", {html, plain_a}), marker},
        body_case_t{"mixed_joins_without_separator", multipart("mixed", {plain_a, plain_b}), "AB"},
        body_case_t{"mixed_skips_attachments",
                    multipart("mixed", {plain_a, "Content-Type: application/pdf\n\n%PDF", plain_b}), "AB"},
        body_case_t{"mixed_with_alternative_first",
                    multipart("mixed", {"Content-Type: multipart/alternative; boundary=c\n\n--c\n" + plain_a +
                                            "\n--c\n" + html + "\n--c--\n",
                                        "Content-Type: image/png\nContent-Disposition: attachment\n\nPNG"}),
                    "A"},
        body_case_t{"related_takes_first", multipart("related", {plain_a, plain_b}), "A"},
        body_case_t{"signed_takes_first", multipart("signed", {plain_a, "Content-Type: application/pgp-signature\n\nsig"}),
                    "A"},
        body_case_t{"missing_close_keeps_last_part", multipart("mixed", {plain_a, plain_b}, false), "AB\n"},
        body_case_t{"no_boundary", "Content-Type: multipart/mixed\n\n--b\n" + plain_a + "\n--b--\n", marker},
        body_case_t{"crlf_delimiters_do_not_split",
                    "Content-Type: multipart/mixed; boundary=b\n\n--b\r\n" + plain_a + "\r\n--b--\r\n", marker},
        body_case_t{"nested_message_body_only",
                    multipart("mixed", {plain_a, "Content-Type: message/rfc822\n\nSubject: inner\nFrom: x@y\n\nInner"}),
                    "AInner"},
        body_case_t{"base64_plain", "Content-Transfer-Encoding: base64\n\nSGVsbG8gd29ybGQ=\n", "Hello world"},
        body_case_t{"base64_empty_result", "Content-Transfer-Encoding: base64\n\n\n\n", marker},
        body_case_t{"qp_latin1",
                    "Content-Type: text/plain; charset=iso-8859-1\nContent-Transfer-Encoding: quoted-printable\n\n"
                    "Gr=FC=DFe, =\nJ=FCrgen\n",
                    "Gr\xC3\xBC\xC3\x9F" "e, J\xC3\xBCrgen\n"},
        body_case_t{"base64_multipart_split_as_is",
                    "Content-Type: multipart/mixed; boundary=b\nContent-Transfer-Encoding: base64\n\n--b\n" + plain_a +
                        "\n--b--\n",
                    "A"},
        body_case_t{"qp_nested_message_decoded",
                    multipart("mixed", {"Content-Type: message/rfc822\nContent-Transfer-Encoding: quoted-printable\n\n"
                                        "Subject: s\n\nx=3Dy"}),
                    "x=y"},
        body_case_t{"qp_top_level_message_not_decoded",
                    "Content-Type: message/rfc822\nContent-Transfer-Encoding: quoted-printable\n\nSubject: s\n\nx=3Dy",
                    "x=3Dy"},
        body_case_t{"windows_1252", "Content-Type: text/plain; charset=windows-1252\n\n\x93quoted\x94 \x80\n",
                    "\xE2\x80\x9Cquoted\xE2\x80\x9D \xE2\x82\xAC\n"}),
    [](auto const& info) { return std::string(info.param.name); });

TEST(walker, big_mixed_bodies_keep_their_first_part) {
  std::string const filler(20'000'000, 'x');
  std::string const message =
      multipart("mixed", {plain_a, "Content-Type: application/octet-stream\n\n" + filler, plain_b});
  EXPECT_EQ(text_of(message), "A");
}

TEST(decode, repairs_the_transfer_encoding) {
  struct {
    std::string type, subtype, encoding, charset;
    bool top_level;
    bool decoded;
    std::string out_type, out_subtype, description;
  } const cases[] = {
      {"text", "plain", "base64 foo", "us-ascii", true, true, "text", "plain",
       "Encoding 'base64 foo' contains multiple words (ignoring anything but the first word)"},
      {"text", "plain", "utf-8", "utf-8", true, false, "text", "plain",
       "Encoding 'utf-8' is unknown, but seems to be the charset of the message (7bit encoding assumed instead)"},
      {"image", "png", "x-gzip", "us-ascii", true, false, "application", "octet-stream",
       "Encoding 'x-gzip' is unknown. Now treated as application/octet-stream with a binary encoding"},
      {"multipart", "mixed", "x-gzip", "us-ascii", true, false, "multipart", "mixed",
       "Encoding 'x-gzip' is unknown, but it's a 'multipart/mixed' (7bit encoding assumed instead)"},
      {"message", "rfc822", "base64", "us-ascii", true, false, "message", "rfc822",
       "Encoding 'base64' not allowed for body parts of type 'message' (7bit assumed)"},
      {"message", "rfc822", "base64", "us-ascii", false, true, "message", "rfc822",
       "Encoding 'base64' not allowed for body parts of type 'message' (allowing it anyway)"},
      {"message", "delivery-status", "base64", "us-ascii", false, true, "application", "octet-stream", ""},
      {"multipart", "mixed", "quoted-printable", "us-ascii", false, false, "multipart", "mixed",
       "Encoding 'quoted-printable' not allowed for body parts of type 'multipart' (7bit assumed)"},
  };
  std::string const body = "QUJD\n";
  for (auto const& c : cases) {
    std::string type = c.type, subtype = c.subtype;
    std::vector<char> out;
    quern::error::handler_t problems;
    EXPECT_EQ(email::decode(body.data(), body.data() + body.size(), c.top_level, type, subtype, c.encoding, c.charset,
                            out, &problems),
              c.decoded)
        << c.encoding;
    EXPECT_EQ(type + "/" + subtype, c.out_type + "/" + c.out_subtype) << c.encoding;
    std::vector<quern::error::record_t> records;
    problems.get_errors({}, records);
    if (c.description.empty()) {
      EXPECT_TRUE(records.empty());
    } else {
      ASSERT_EQ(records.size(), 1u) << c.encoding;
      EXPECT_EQ(records[0].at("description"), c.description);
    }
  }
}

TEST(decode, uuencode_is_decoded_with_a_deprecation_note) {
  std::string const body = "begin 644 f\n#86)C\n`\nend\n";
  std::string type = "text", subtype = "plain";
  std::vector<char> out;
  quern::error::handler_t problems;
  EXPECT_TRUE(email::decode(body.data(), body.data() + body.size(), true, type, subtype, "x-uuencode", "us-ascii", out,
                            &problems));
  EXPECT_EQ(std::string(out.begin(), out.end()), "abc");
  std::vector<quern::error::record_t> records;
  problems.get_errors({}, records);
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].at("context"), "x-uuencode");
}

TEST(decode_to_canonical_format, reports_ignored_flow_parameters) {
  std::string const text = "a  \n> >b\n";
  struct {
    char const* subtype;
    bool flowed, delsp;
    std::string out;
    std::vector<std::string> descriptions;
  } const cases[] = {
      {"plain", false, false, "a\n>> b\n", {}},
      {"plain", false, true, "a\n>> b\n", {"Ignoring 'delsp=yes' since 'format!=flowed"}},
      {"html", true, true, text,
       {"Ignoring 'format=flowed' which should not be used for text/html",
        "Ignoring 'delsp=yes' which should not be used for text/html"}},
      {"enriched", true, false, text, {}},
  };
  for (auto const& c : cases) {
    std::vector<char> out;
    quern::error::handler_t problems;
    email::decode_to_canonical_format(text.data(), text.data() + text.size(), c.subtype, c.flowed, c.delsp,
                                      std::back_inserter(out), &problems);
    EXPECT_EQ(std::string(out.begin(), out.end()), c.out) << c.subtype;
    std::vector<quern::error::record_t> records;
    problems.get_errors({}, records);
    ASSERT_EQ(records.size(), c.descriptions.size()) << c.subtype;
    for (std::size_t i = 0; i < records.size(); ++i)
      EXPECT_EQ(records[i].at("description"), c.descriptions[i]);
  }
}

} // namespace
