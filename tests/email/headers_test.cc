#include "email/headers.h"

#include <gtest/gtest.h>

#include "importer/import.h"

namespace {

using email::header_map_t;

struct scan_t {
  header_map_t map;
  std::string body;
};

scan_t scan(std::string const& message, email::header_set_t const& wanted = importer::wanted_headers()) {
  char const* first = message.data();
  char const* const last = first + message.size();
  header_map_t map = email::quick_parse_headers(first, last, wanted);
  return {std::move(map), std::string(first, last)};
}

std::string value_of(header_map_t const& map, std::string const& key) {
  auto it = map.find(key);
  return it == map.end() ? "<absent>" : it->second;
}

struct field_case_t {
  char const* name;
  std::string message;
  char const* key;
  std::string expected;
};

class field_test : public testing::TestWithParam<field_case_t> {};

TEST_P(field_test, stores_the_cleaned_value) {
  auto const& c = GetParam();
  EXPECT_EQ(value_of(scan(c.message).map, c.key), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    scanner, field_test,
    testing::Values(
        field_case_t{"simple", "Subject: Hello\n\nbody\n", "subject", "Hello"},
        field_case_t{"name_is_case_insensitive", "SUBJECT: Hi\n\n", "subject", "Hi"},
        field_case_t{"only_spaces_after_colon_skipped", "Subject:\t Hi\n\n", "subject", "\t Hi"},
        field_case_t{"space_before_colon_is_another_name", "Subject : Hi\n\n", "subject", "<absent>"},
        field_case_t{"fold_becomes_one_space", "Subject: a\n b\n\n", "subject", "a b"},
        field_case_t{"fold_after_blank_adds_nothing", "Subject: a \n b\n\n", "subject", "a b"},
        field_case_t{"tab_fold", "Subject: a\n\tb\n\n", "subject", "a b"},
        field_case_t{"later_blanks_kept", "Subject: a\n   b\n\n", "subject", "a   b"},
        field_case_t{"crlf_blank_not_adjacent_to_fold", "Subject: a \r\n b\n\n", "subject", "a  b"},
        field_case_t{"second_field_wins", "Subject: one\nSubject: two\n\n", "subject", "two"},
        field_case_t{"empty_second_field_erases", "Subject: one\nSubject:\n\n", "subject", ""},
        field_case_t{"blank_only_value_is_empty", "Subject:   \t \n\n", "subject", ""},
        field_case_t{"trailing_white_space_trimmed", "Subject: x \t\r\n\n", "subject", "x"},
        field_case_t{"nul_bytes_removed", std::string("Subject: a\0b\n\n", 14), "subject", "ab"},
        field_case_t{"no_colon_gives_empty_value", "subject\n\n", "subject", ""},
        field_case_t{"last_field_without_newline", "Subject: end", "subject", "end"},
        field_case_t{"unwanted_field_skipped", "X-Thing: 1\n\n", "x-thing", "<absent>"},
        field_case_t{"crlf_block_never_ends", "Subject: a\r\n\r\nFrom: body line\r\n", "from", "body line"}),
    [](auto const& info) { return std::string(info.param.name); });

TEST(scanner, leaves_the_cursor_on_the_body) {
  EXPECT_EQ(scan("Subject: x\n\nline 1\nline 2\n").body, "line 1\nline 2\n");
  EXPECT_EQ(scan("\nSubject: x\n").body, "Subject: x\n");
  EXPECT_EQ(scan("Subject: x\r\n\r\nbody\r\n").body, "");
  EXPECT_EQ(scan("Subject: x\n").body, "");
  EXPECT_EQ(scan("").map.size(), 4u + 2u); // only the content defaults
}

struct content_case_t {
  char const* name;
  std::string fields;
  char const *type, *subtype, *charset, *boundary, *encoding, *disposition;
};

class content_test : public testing::TestWithParam<content_case_t> {};

TEST_P(content_test, derives_content_keys) {
  auto const& c = GetParam();
  auto const map = scan(c.fields + "\n").map;
  EXPECT_EQ(value_of(map, "#type"), c.type);
  EXPECT_EQ(value_of(map, "#subtype"), c.subtype);
  EXPECT_EQ(value_of(map, "#charset"), c.charset);
  EXPECT_EQ(value_of(map, "#boundary"), c.boundary);
  EXPECT_EQ(value_of(map, "#encoding"), c.encoding);
  EXPECT_EQ(value_of(map, "#disposition"), c.disposition);
}

INSTANTIATE_TEST_SUITE_P(
    scanner, content_test,
    testing::Values(
        content_case_t{"defaults", "", "text", "plain", "us-ascii", "", "7bit", "inline"},
        content_case_t{"html_utf8", "Content-Type: Text/HTML; Charset=UTF-8\n", "text", "html", "utf-8", "", "7bit",
                       "inline"},
        content_case_t{"bare_word_keeps_defaults", "Content-Type: text\n", "text", "plain", "us-ascii", "", "7bit",
                       "inline"},
        content_case_t{"spaces_in_type", "Content-Type: text / plain ; charset=\"ISO-8859-1\"\n", "text", "plain",
                       "iso-8859-1", "", "7bit", "inline"},
        content_case_t{"multipart_keeps_boundary_case", "Content-Type: multipart/Mixed; boundary=\"AbC\"; charset=x\n",
                       "multipart", "mixed", "us-ascii", "AbC", "7bit", "inline"},
        content_case_t{"folded_parameters", "Content-Type: multipart/alternative;\n\tboundary=b1\n", "multipart",
                       "alternative", "us-ascii", "b1", "7bit", "inline"},
        content_case_t{"charset_of_non_text_ignored", "Content-Type: application/pdf; charset=utf-8\n", "application",
                       "pdf", "us-ascii", "", "7bit", "inline"},
        content_case_t{"encoding_cleaned", "Content-Transfer-Encoding: Quoted- Printable\n", "text", "plain",
                       "us-ascii", "", "quoted-printable", "inline"},
        content_case_t{"empty_encoding_is_default", "Content-Transfer-Encoding:  \n", "text", "plain", "us-ascii", "",
                       "7bit", "inline"},
        content_case_t{"disposition_word", "Content-Disposition: ATTACHMENT; filename=\"a;b\"\n", "text", "plain",
                       "us-ascii", "", "7bit", "attachment"}),
    [](auto const& info) { return std::string(info.param.name); });

// "date" and "received" hold the instant in UTC; "received" comes from the
// first Received field before Date whose date can be read.
struct dates_case_t {
  char const* name;
  std::string fields;
  std::string date, received;
};

class dates_test : public testing::TestWithParam<dates_case_t> {};

TEST_P(dates_test, stores_canonical_utc_dates) {
  auto const& c = GetParam();
  auto const map = scan(c.fields + "\n").map;
  EXPECT_EQ(value_of(map, "date"), c.date);
  EXPECT_EQ(value_of(map, "received"), c.received);
}

INSTANTIATE_TEST_SUITE_P(
    scanner, dates_test,
    testing::Values(
        dates_case_t{"date_in_utc", "Date: Tue, 1 Jul 2003 10:52:37 +0200\n", "2003-07-01 08:52:37", "<absent>"},
        dates_case_t{"folded_date_with_comment", "Date: Tue, 1 Jul 2003\n 10:52:37 -0700 (PDT)\n",
                     "2003-07-01 17:52:37", "<absent>"},
        dates_case_t{"unparsable_date_leaves_nothing", "Date: sometime soon\n", "<absent>", "<absent>"},
        dates_case_t{"first_received_wins",
                     "Received: from a by b; Tue, 1 Jul 2003 10:00:00 +0000\n"
                     "Received: from c by a; Tue, 1 Jul 2003 09:00:00 +0000\n"
                     "Date: Tue, 1 Jul 2003 08:00:00 +0000\n",
                     "2003-07-01 08:00:00", "2003-07-01 10:00:00"},
        dates_case_t{"received_without_semicolon_skipped",
                     "Received: from a by b\nReceived: from c by a;\n\tTue, 1 Jul 2003 09:00:00 -0100\n", "<absent>",
                     "2003-07-01 10:00:00"},
        dates_case_t{"unreadable_received_skipped",
                     "Received: from a; not a date\nReceived: from c; 1 Jul 2003 09:00 EST\n", "<absent>",
                     "2003-07-01 14:00:00"},
        dates_case_t{"last_semicolon_counts", "Received: from a (x; y) by b; id 1; 1 Jul 2003 09:00 +0000\n",
                     "<absent>", "2003-07-01 09:00:00"},
        dates_case_t{"date_before_received", "Date: 1 Jul 2003 08:00 +0000\nReceived: by b; 1 Jul 2003 10:00 +0000\n",
                     "2003-07-01 08:00:00", "<absent>"},
        dates_case_t{"unparsable_date_still_blocks_received",
                     "Date: whenever\nReceived: by b; 1 Jul 2003 10:00 +0000\n", "<absent>", "<absent>"}),
    [](auto const& info) { return std::string(info.param.name); });

TEST(scanner, derives_only_what_is_wanted) {
  email::header_set_t const wanted{"subject"};
  auto const map = scan("Subject: s\nContent-Type: text/html\n\n", wanted).map;
  EXPECT_EQ(map.size(), 1u);
  EXPECT_EQ(value_of(map, "subject"), "s");
}

TEST(scanner, content_values_are_kept_raw_and_unfolded) {
  auto const map = scan("Content-Type: text/plain;\n charset=utf-8\n\n").map;
  EXPECT_EQ(value_of(map, "content-type"), "text/plain; charset=utf-8");
}

// Splitting the input anywhere must not change what a prefix scan finds: the
// scanner may never read past its range.
TEST(scanner, never_reads_past_the_range) {
  std::string const message = "Subject: a\n b\nTo: x\nContent-Type: text/plain; charset=\"q\\\"\"\n\nbody";
  for (std::size_t n = 0; n <= message.size(); ++n) {
    std::vector<char> exact(message.begin(), message.begin() + static_cast<std::ptrdiff_t>(n));
    char const* first = exact.data();
    email::quick_parse_headers(first, exact.data() + exact.size(), importer::wanted_headers());
    EXPECT_LE(first, exact.data() + exact.size());
  }
}

TEST(cleanup, unfolds_by_byte_rule) {
  struct {
    std::string in, out;
  } const cases[] = {
      {"no break  ", "no break"}, {"a\n b", "a b"},    {"a \n b", "a b"},   {"a\r\n b", "a b"},
      {"a \r\n b", "a  b"},       {"a\n\n b", "a b"},  {"a\nb", "ab"},      {std::string("\0a\n\0", 4), "a"},
      {" lead", " lead"},         {"x\n  \t", "x"},    {"", ""},
  };
  for (auto const& c : cases) {
    std::string value = c.in;
    email::cleanup_header_body(value);
    EXPECT_EQ(value, c.out) << testing::PrintToString(c.in);
  }
}

} // namespace
