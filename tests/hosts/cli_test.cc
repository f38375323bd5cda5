// SPDX-License-Identifier: MIT
// The command-line host, run as a user runs it.
#include <string>

#include <boost/json.hpp>
#include <gtest/gtest.h>

#include "hosts/cli/mbox.h"
#include "hosts/cli/output.h"

namespace {

TEST(output, json_paths_dates_and_lists) {
  cli::record_t record{"dir/\xFF.eml", true, {}};
  record.attributes.set("kMDItemContentCreationDate",
                        importer::instant_t(std::chrono::sys_days(std::chrono::year(2003) / 7 / 1)) +
                            std::chrono::seconds(8 * 3600 + 52 * 60 + 37));
  record.attributes.set("kMDItemAuthors", std::vector<std::string>{"A", "B"});
  auto const line = cli::to_json_line(record);
  EXPECT_EQ(line, "{\"path\":\"dir/\xEF\xBF\xBD.eml\",\"imported\":true,\"attributes\":{\"kMDItemAuthors\":[\"A\","
                  "\"B\"],\"kMDItemContentCreationDate\":\"2003-07-01T08:52:37Z\"}}\n");
  auto const listing = cli::to_listing(record);
  EXPECT_NE(listing.find("kMDItemContentCreationDate       = 2003-07-01 08:52:37 +0000\n"), std::string::npos);
  EXPECT_NE(listing.find("kMDItemAuthors                   = (\n    \"A\",\n    \"B\"\n)\n"), std::string::npos);
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
  cli::record_t record{"big.eml", true, {}};
  record.attributes.set("kMDItemTextContent", text);
  record.attributes.set("kMDItemAuthors", std::vector<std::string>{text, "B"});
  for (bool json : {true, false}) {
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

// The optional parts of a record in the listing (cli_usage.py reads them
// back from the JSON): an mbox message's number, a failure, and problems,
// where a multi-line context stays one block.
TEST(output, listing_of_message_error_and_problems) {
  cli::record_t record{"box", false, {}};
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

// Separators are the lines a delivery agent writes; lines of a message that
// only begin with "From " are not, even in an mbox whose writer did not
// quote them.
TEST(mbox, envelope_lines) {
  struct row_t {
    char const* line;
    bool separator;
  } const rows[] = {
      {"From MAILER-DAEMON Thu Jan  1 00:00:00 1970\r\n", true},
      {"From someone@example.org Tue Jan 2 10:11:12 2024", true},
      {"From 1700000000000000000@xxx Mon Jan 01 00:00:00 +0000 2024\n", true},
      {"From someone@example.org wrote:\n", false},
      {"From: someone@example.org\n", false},
      {">From - Mon Jan  1 00:00:00 2024\n", false},
      {"From  Mon Jan  1 00:00:00 2024\n", false},
  };
  for (auto const& row : rows)
    EXPECT_EQ(cli::is_envelope_line(row.line), row.separator) << row.line;
}

} // namespace
