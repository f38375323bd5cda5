// SPDX-License-Identifier: MIT
// The typed message: each field read from messages made for it, the two
// readings side by side, the three entries agreeing with each other, and the
// desktop reading's typed values against the attribute rows over every
// message at hand.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "importer/import.h"
#include "importer/message.h"
#include "tests/support/desktop_rows.h"
#include "tests/support/messages.h"
#include "tests/support/temp_file.h"

namespace tidewell {
void PrintTo(mailbox_t const& m, std::ostream* out) {
  *out << '{' << m.name << '|' << m.address << '}';
}
void PrintTo(attachment_t const& a, std::ostream* out) {
  *out << '{' << a.file_name << '|' << a.media_type << '|' << a.size << '|' << a.content_id << '|' << a.disposition
       << '}';
}
} // namespace tidewell

namespace {

using tidewell::mailbox_t;
using namespace std::chrono;

tidewell::message_t full(std::string const& bytes) {
  return tidewell::parse(bytes);
}

// Each field in its own list, every one of repeated fields in order, a
// mailbox listed once in a field but in every field that names it, and a
// quote one field leaves open kept to it; the desktop reading keeps the last
// field's one mailbox.
TEST(message, address_fields_stay_apart_and_repeated_ones_join) {
  std::string const bytes = "From: Ann <ann@x.test>\nFrom: eve@y.test\nSender: list@x.test\n"
                            "Reply-To: \"Lee, Ann\" <a@y.test>\nTo: a@x.test, \"Open <b@x.test>\nTo: c@x.test\nTo:\n"
                            "to: a@x.test, Name Only\nCc: d@x.test, c@x.test\nBcc: e@x.test\nBcc: f@x.test (F\n\nx\n";
  auto const m = full(bytes);
  EXPECT_EQ(m.from, (std::vector<mailbox_t>{{"Ann", "ann@x.test"}, {"", "eve@y.test"}}));
  EXPECT_EQ(m.sender, (std::vector<mailbox_t>{{"", "list@x.test"}}));
  EXPECT_EQ(m.reply_to, (std::vector<mailbox_t>{{"Lee, Ann", "a@y.test"}}));
  EXPECT_EQ(m.to,
            (std::vector<mailbox_t>{{"", "a@x.test"}, {"Open", "b@x.test"}, {"", "c@x.test"}, {"Name Only", ""}}));
  EXPECT_EQ(m.cc, (std::vector<mailbox_t>{{"", "d@x.test"}, {"", "c@x.test"}}));
  EXPECT_EQ(m.bcc, (std::vector<mailbox_t>{{"", "e@x.test"}, {"F", "f@x.test"}}));
  auto const desktop = tidewell::parse(bytes, tidewell::options_t::desktop());
  EXPECT_EQ(desktop.from, (std::vector<mailbox_t>{{"", "eve@y.test"}}));
  EXPECT_EQ(desktop.to, (std::vector<mailbox_t>{{"Name Only", "a@x.test,"}}));
}

// Both dates keep the sender's zone; Received is the first one with a
// readable date (each form of a date: rfc822_date_test).
TEST(message, dates_keep_their_zone) {
  sys_seconds const base = sys_days(2025y / October / 7) + hours(1) + minutes(30);
  auto const m =
      full("Received: from a by b; Tue, 7 Oct 2025 10:00:00 +0900\n"
           "Received: from c by d; Tue, 7 Oct 2025 00:00:00 +0000\nDate: Tue, 7 Oct 2025 03:30:00 +0200\n\nx\n");
  ASSERT_TRUE(m.date && m.received);
  EXPECT_EQ(m.date->instant, base);
  EXPECT_EQ(m.date->offset, minutes(120));
  EXPECT_EQ(m.received->instant, base - minutes(30));
  EXPECT_EQ(m.received->offset, minutes(540));
  EXPECT_FALSE(full("Date: no date at all\n\nx\n").date);
}

TEST(message, thread_identifiers_lose_their_brackets) {
  struct row_t {
    std::string fields;
    std::optional<std::string> id, reply;
    std::vector<std::string> references;
  };
  row_t const rows[] = {
      {"Message-ID: <a.1@x.test>\n", "a.1@x.test", {}, {}},
      {"Message-ID:   bare@x.test  \n", "bare@x.test", {}, {}},
      {"Message-ID: <folded\n @x.test> (a comment)\n", "folded@x.test", {}, {}},
      {"Message-ID: <>\n", std::nullopt, {}, {}},
      {"In-Reply-To: <p@x.test> <q@x.test>\nReferences: <r@x.test>\n <p@x.test>\n",
       std::nullopt,
       "p@x.test",
       {"r@x.test", "p@x.test"}},
      {"In-Reply-To: Your message of Monday <m@x.test>\n", std::nullopt, "m@x.test", {}},
  };
  for (row_t const& row : rows) {
    auto const m = full(row.fields + "\nx\n");
    EXPECT_EQ(m.message_id, row.id) << row.fields;
    EXPECT_EQ(m.in_reply_to, row.reply) << row.fields;
    EXPECT_EQ(m.references, row.references) << row.fields;
  }
  tidewell::options_t without;
  without.thread_ids = false;
  EXPECT_FALSE(tidewell::parse("Message-ID: <a@b>\n\nx\n", without).message_id);
}

TEST(message, attachments_with_their_details) {
  std::string const bytes = "Content-Type: multipart/mixed; boundary=b\n\n--b\n"
                            "Content-Type: text/plain\n\nHello\n--b\n"
                            "Content-Type: application/pdf; name=\"a.pdf\"\n"
                            "Content-Disposition: attachment\nContent-ID: <part1@x.test>\n"
                            "Content-Transfer-Encoding: base64\n\nJVBERi0xLjQK\n\nJSVFT0YK\n\n\n--b\n"
                            "Content-Type: text/csv\nContent-Disposition: attachment; filename=t.csv\n"
                            "Content-Transfer-Encoding: quoted-printable\n\na=3Db,=\nc\n--b\n"
                            "Content-Type: message/rfc822\n\nSubject: inner\n"
                            "Content-Type: image/png; name=i.png\n\nPNGDATA\n--b--\n";
  auto const m = full(bytes);
  std::vector<tidewell::attachment_t> const expected{
      {"a.pdf", "application/pdf", 15, "part1@x.test", "attachment"},
      {"t.csv", "text/csv", 5, "", "attachment"},
      {"i.png", "image/png", 7, "", "inline"},
  };
  EXPECT_EQ(m.attachments, expected);
  ASSERT_TRUE(m.text);
  EXPECT_EQ(*m.text, "Hello");
  tidewell::options_t without;
  without.attachments = false;
  EXPECT_TRUE(tidewell::parse(bytes, without).attachments.empty());
  EXPECT_TRUE(tidewell::parse(bytes, tidewell::options_t::desktop()).attachments.empty());
}

TEST(message, text_only_where_a_part_gives_it) {
  EXPECT_FALSE(full("Content-Type: image/png\n\nxx\n").text);
  EXPECT_FALSE(full("Subject: s\n\n").text);
  EXPECT_EQ(full("Subject: s\n\n\n").text, std::optional<std::string>("\n"));
}

// Each problem is placed at the field or part it was found in, in the bytes
// as given (CR LF included), and the message is the same with or without
// them.
TEST(message, problems_carry_codes_and_places) {
  using quern::error::code_t;
  std::string const head = "Subject: x\r\nDate: 5 Oct 99 10:00 -0000\r\n"
                           "Content-Type: multipart/mixed; boundary=b\r\n\r\n";
  std::string const first = "--b\r\n";
  std::string const part = "Content-Transfer-Encoding: base64\r\n\r\nQUJD!!\r\n";
  std::string const bytes = head + first + part + "--b--\r\n";
  tidewell::options_t options;
  options.problems = true;
  auto const m = tidewell::parse(bytes, options);
  std::vector<std::pair<code_t, std::size_t>> places;
  for (auto const& problem : m.problems)
    places.emplace_back(problem.code, problem.offset);
  std::size_t const date = bytes.find("Date:");
  std::vector<std::pair<code_t, std::size_t>> const expected{
      {code_t::date_two_digit_year_19xx, date},
      {code_t::base64_passed_through, head.size() + first.size()},
  };
  EXPECT_EQ(places, expected);
  ASSERT_FALSE(m.problems.empty());
  EXPECT_EQ(m.subject, std::optional<std::string>("x")); // CR LF read as a line end
  EXPECT_EQ(m.problems[0].text, quern::error::text_of(code_t::date_two_digit_year_19xx));
  auto quiet = m;
  quiet.problems.clear();
  EXPECT_EQ(tidewell::parse(bytes), quiet);
}

// Old Mac mail ends its lines in CR alone: the full reading reads them as
// LF when the file has no LF at all, and places problems in the bytes as
// given; the desktop reading, with or without CR LF as LF, reads it as before.
TEST(message, lines_ended_by_cr_alone) {
  std::string const bytes = "Subject: old Mac\rDate: 5 Oct 99 10:00 -0000\r"
                            "Content-Type: multipart/mixed; boundary=b\r\r--b\r\rfirst\r--b\r\rsecond\r--b--\r";
  tidewell::options_t options;
  options.problems = true;
  auto const m = tidewell::parse(bytes, options);
  EXPECT_EQ(m.subject, std::optional<std::string>("old Mac"));
  EXPECT_EQ(m.text, std::optional<std::string>("first\nsecond"));
  ASSERT_FALSE(m.problems.empty());
  EXPECT_EQ(m.problems[0].offset, bytes.find("Date:"));
  for (auto const line_ends : {tidewell::line_ends_t::as_stored, tidewell::line_ends_t::crlf_as_lf})
    EXPECT_FALSE(tidewell::parse(bytes, {tidewell::reading_t::desktop, line_ends}).text);
  EXPECT_EQ(full("Subject: s\n\nx\ry\n").text, std::optional<std::string>("x\ry\n"));
}

TEST(message, a_bound_cuts_the_input) {
  std::string const bytes = "Subject: s\n\n" + std::string(1000, 'a');
  tidewell::options_t options;
  options.max_bytes = 20;
  auto const m = tidewell::parse(bytes, options);
  EXPECT_TRUE(m.cut);
  EXPECT_EQ(m.text, std::optional<std::string>(std::string(8, 'a')));
  test_support::temp_file_t const file(bytes);
  std::error_code error;
  EXPECT_EQ(tidewell::parse_file(file.path().c_str(), options, error), m);
  EXPECT_FALSE(tidewell::parse(bytes).cut);
}

TEST(message, files_that_cannot_be_read) {
  std::error_code error;
  auto const missing = tidewell::parse_file("/nonexistent/tidewell.eml", {}, error);
  EXPECT_EQ(error, std::errc::no_such_file_or_directory);
  EXPECT_EQ(missing, tidewell::message_t{});
  tidewell::parse_file("/", {}, error);
  EXPECT_EQ(error, std::errc::is_a_directory);
  test_support::temp_file_t const empty("");
  EXPECT_EQ(tidewell::parse_file(empty.path().c_str(), {}, error), tidewell::message_t{});
  EXPECT_FALSE(error);
  // A FIFO with no writer gives an empty message at once instead of waiting.
  std::string const fifo = empty.path() + ".fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_EQ(tidewell::parse_file(fifo.c_str(), {}, error), tidewell::message_t{});
  ::unlink(fifo.c_str());
}

std::string read_all(std::string const& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << file.rdbuf();
  return bytes.str();
}

// Every message at hand: the three entries give the same message, and the
// desktop reading's typed values are the attribute rows' values.
TEST(message, entries_agree_and_the_desktop_reading_matches_its_rows) {
  for (std::string const& path : test_support::message_paths()) {
    std::string const bytes = read_all(path);
    tidewell::message_t const m = tidewell::parse(bytes);
    std::error_code error;
    ASSERT_EQ(tidewell::parse_file(path.c_str(), {}, error), m) << path;
    int const fd = ::open(path.c_str(), O_RDONLY);
    ASSERT_EQ(tidewell::parse_fd(fd, {}, error), m) << path;
    ::close(fd);

    importer::attribute_set_t rows;
    importer::import_bytes(bytes.data(), bytes.data() + bytes.size(), rows);
    EXPECT_EQ(test_support::desktop_difference(tidewell::parse(bytes, tidewell::options_t::desktop()), rows), "")
        << path;
  }
}

} // namespace
