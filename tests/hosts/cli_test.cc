// SPDX-License-Identifier: MIT
// The command-line host, run as a user runs it.
#include <cstdio>
#include <string>
#include <unistd.h>

#include <boost/json.hpp>
#include <gtest/gtest.h>

#include "hosts/cli/output.h"
#include "importer/import.h"

namespace {

tidewell::date_t date_at(int y, unsigned m, unsigned d, int hours, int minutes, int offset_minutes) {
  return {tidewell::instant_t(std::chrono::sys_days(std::chrono::year(y) / m / d)) + std::chrono::hours(hours) +
              std::chrono::minutes(minutes),
          std::chrono::minutes(offset_minutes)};
}

// The full reading's listing: what the message lacks left out, lists one
// element a line, the date in the sender's zone, and bytes that are not
// UTF-8 repaired even where the reading leaves them. Its JSON record, every
// key in its place, is pinned by the golden digests over the corpus; here
// the keys no corpus record has, and a repaired string.
TEST(output, full_record) {
  cli::record_t record{"m.eml", true, {}};
  record.full.emplace();
  tidewell::message_t& m = *record.full;
  m.subject = "Crew \"rota\"";
  m.from = {{"Marta K", "marta@example.com"}};
  m.to = {{"Bob", "bob@example.org"}, {"", "ann@example.com"}};
  m.cc = {{"Bob", "bob@example.org"}};
  m.date = date_at(2025, 10, 7, 1, 30, 120);
  m.references = {"a@x", "b@x"};
  m.text = "Hello\n";
  m.attachments = {{"r\xE9.csv", "text/csv", 20, "", "attachment"}};
  EXPECT_EQ(cli::to_listing(record),
            "m.eml\n"
            "subject     = \"Crew \\\"rota\\\"\"\n"
            "from        = (\n    \"Marta K\" <marta@example.com>\n)\n"
            "to          = (\n    \"Bob\" <bob@example.org>,\n    <ann@example.com>\n)\n"
            "cc          = (\n    \"Bob\" <bob@example.org>\n)\n"
            "date        = 2025-10-07 03:30:00 +0200\n"
            "references  = (\n    \"a@x\",\n    \"b@x\"\n)\n"
            "text        = \"Hello\\n\"\n"
            "attachments = (\n    \"r\xEF\xBF\xBD.csv\" text/csv, 20 bytes, attachment\n)\n\n");
  // The keys that come and go: the mbox number, the failure, problems, cut.
  record = {"box", false, {}};
  record.message = 3;
  record.error = "Input/output error";
  record.full.emplace();
  record.full->cut = true;
  record.full->subject = "r\xE9";
  record.full_problems = true;
  record.full->problems = {
      {quern::error::code_t::multipart_no_closing_boundary, 42, "No closing MIME boundary found", "--b\n"}};
  std::string const line = cli::to_json_line(record);
  std::string const start = "{\"schema\":1,\"path\":\"box\",\"message\":3,\"imported\":false,\"error\":\"Input/output "
                            "error\",\"subject\":\"r\xEF\xBF\xBD\",";
  EXPECT_EQ(line.substr(0, start.size()), start);
  EXPECT_EQ(line.substr(line.find(",\"attachments\"")),
            ",\"attachments\":[],\"problems\":[{\"code\":\"multipart_no_closing_boundary\",\"offset\":42,\"text\":"
            "\"No closing MIME boundary found\",\"context\":\"--b\\n\"}],"
            "\"cut\":true}\n");
}

// The local time and offset of the zone the message gave, across a day's
// and a year's end; UTC is +00:00, never Z.
TEST(output, dates_in_the_senders_zone) {
  struct row_t {
    tidewell::date_t date;
    char const* expected;
  } const rows[] = {
      {date_at(2025, 10, 7, 1, 30, 120), "2025-10-07T03:30:00+02:00"},
      {date_at(2025, 10, 7, 1, 30, 0), "2025-10-07T01:30:00+00:00"},
      {date_at(2025, 10, 7, 1, 30, -120), "2025-10-06T23:30:00-02:00"},
      {date_at(2024, 12, 31, 20, 0, 330), "2025-01-01T01:30:00+05:30"},
      {date_at(2025, 3, 1, 3, 0, -210), "2025-02-28T23:30:00-03:30"},
  };
  for (auto const& row : rows)
    EXPECT_EQ(tidewell::record::rfc3339(row.date), row.expected);
}

// Every ASCII byte and some UTF-8, at every offset within sixteen bytes,
// escaped as boost::json's serializer escapes it.
TEST(output, json_strings_match_boost_json) {
  std::string all;
  for (int c = 0; c < 0x80; ++c)
    all += static_cast<char>(c);
  all += "caf\xC3\xA9 \xE6\x97\xA5\xF0\x9F\x98\x80";
  for (std::size_t offset = 0; offset < 16; ++offset) {
    for (std::size_t length : {std::size_t(1), std::size_t(9), all.size()}) {
      std::string const text = std::string(offset, 'x') + all.substr(offset % all.size(), length);
      cli::record_t record{"p", true, {}};
      record.attributes.set("kMDItemSubject", text);
      std::string const expected = "{\"path\":\"p\",\"imported\":true,\"attributes\":{\"kMDItemSubject\":" +
                                   boost::json::serialize(boost::json::string(text)) + "}}\n";
      EXPECT_EQ(cli::to_json_line(record), expected) << offset << " " << length;
    }
  }
}

// A record too large to hold printed is printed as it is written: the same
// bytes, from a printer that never holds much more than a megabyte (the tool
// prints one through any number of jobs: cli_usage.py jobs).
TEST(output, large_records_print_in_pieces) {
  std::string text;
  for (int i = 0; text.size() < 3 * cli::printer_t::spill_at; ++i)
    text += std::string("line \"") + std::string(1, '\0') + "\" " + std::to_string(i) + "\n";
  cli::record_t desktop{"big.eml", true, {}};
  desktop.attributes.set("kMDItemTextContent", text);
  desktop.attributes.set("kMDItemAuthors", std::vector<std::string>{text, "B"});
  cli::record_t full{"big.eml", true, {}};
  full.full.emplace();
  full.full->text = text;
  full.full->to = {{text, "b@x"}};
  for (auto const& [record, json] :
       {std::pair{desktop, true}, std::pair{desktop, false}, std::pair{full, true}, std::pair{full, false}}) {
    std::string spilled;
    std::size_t largest = 0;
    cli::printer_t printer;
    printer.spill = [&](std::string_view bytes) {
      spilled += bytes;
      largest = std::max(largest, bytes.size());
    };
    json ? cli::print_json_line(record, printer) : cli::print_listing(record, printer);
    printer.finish();
    EXPECT_EQ(spilled, json ? cli::to_json_line(record) : cli::to_listing(record));
    EXPECT_LT(largest, 3 * cli::printer_t::spill_at) << json;
  }
}

// The desktop reading's listing (its JSON is pinned by the golden digests):
// dates and lists, and the optional parts of a record (cli_usage.py reads
// them back from the JSON): an mbox message's number, a failure, and
// problems, where a multi-line context stays one block.
TEST(output, desktop_listing) {
  cli::record_t record{"dir/m.eml", true, {}};
  record.attributes.set("kMDItemContentCreationDate",
                        importer::instant_t(std::chrono::sys_days(std::chrono::year(2003) / 7 / 1)) +
                            std::chrono::seconds(8 * 3600 + 52 * 60 + 37));
  record.attributes.set("kMDItemAuthors", std::vector<std::string>{"A", "B"});
  EXPECT_EQ(cli::to_listing(record), "dir/m.eml\n"
                                     "kMDItemAuthors                   = (\n    \"A\",\n    \"B\"\n)\n"
                                     "kMDItemContentCreationDate       = 2003-07-01 08:52:37 +0000\n\n");
  record = {"box", false, {}};
  record.message = 2;
  record.error = "No such file or directory";
  EXPECT_EQ(cli::to_listing(record), "box:2\n  (not imported: No such file or directory)\n\n");
  record = {"m.eml", true, {}};
  record.problems.emplace();
  record.problems->push_back({{"description", "No closing MIME boundary found"}, {"context", "--a\n--b"}});
  EXPECT_EQ(cli::to_listing(record),
            "m.eml\n  (no attributes)\n  problem: { context : --a\n    --b }, { description : No "
            "closing MIME boundary found }\n\n");
}

std::string percent_decoded(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i)
    if (text[i] == '%' && i + 2 < text.size()) {
      out += static_cast<char>(std::stoi(std::string(text.substr(i + 1, 2)), nullptr, 16));
      i += 2;
    } else {
      out += text[i];
    }
  return out;
}

// A path that is not UTF-8 keeps every byte in path_bytes: names that differ
// only in a stray byte (or in a stray byte against a literal "%FF") stay
// apart, and decoding gives the bytes back. A UTF-8 path has no such form,
// so its record is as it always was.
TEST(output, path_bytes_are_lossless) {
  std::string const paths[] = {"a/\xFF.eml",
                               "a/\xFE.eml",
                               "a/%FF\xC3.eml",
                               "a/%25FF\xC3.eml",
                               "caf\xC3\xA9/\xE6\x97\xA5\xE6\x97.eml",
                               std::string("n\0\x80", 3)};
  std::vector<std::string> forms;
  for (std::string const& path : paths) {
    std::string const form = tidewell::record::path_bytes(path);
    EXPECT_EQ(percent_decoded(form), path) << form;
    EXPECT_TRUE(importer::is_well_formed_utf8(form)) << form;
    EXPECT_EQ(std::count(forms.begin(), forms.end(), form), 0) << form;
    forms.push_back(form);
  }
  EXPECT_EQ(forms[0], "a/%FF.eml");
  EXPECT_EQ(forms[2], "a/%25FF%C3.eml");
  EXPECT_EQ(forms[4], "caf\xC3\xA9/\xE6\x97\xA5%E6%97.eml");
  EXPECT_EQ(tidewell::record::path_bytes("caf\xC3\xA9 100%.eml"), "");
  cli::record_t record{"100%.eml", true, {}};
  EXPECT_EQ(cli::to_json_line(record).find("path_bytes"), std::string::npos);
  record.path = paths[2];
  EXPECT_EQ(cli::to_listing(record).substr(0, 15), "a/%25FF%C3.eml\n");
}

} // namespace
