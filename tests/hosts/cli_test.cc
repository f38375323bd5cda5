// SPDX-License-Identifier: MIT
// The command-line host, run as a user runs it.
#include <cstdio>
#include <string>
#include <sys/wait.h>

#include <boost/json.hpp>
#include <gtest/gtest.h>

#include "hosts/cli/mbox.h"
#include "hosts/cli/output.h"
#include "tests/support/temp_file.h"

namespace {

struct run_t {
  int status;
  std::string out;
};

run_t run(std::string const& arguments) {
  std::string const command = std::string(TIDEWELL_IMPORT_BINARY) + " " + arguments + " 2>/dev/null";
  std::FILE* pipe = ::popen(command.c_str(), "r");
  std::string out;
  char buffer[4096];
  for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
    out.append(buffer, n);
  int const status = ::pclose(pipe);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out};
}

std::vector<boost::json::object> json_lines(std::string const& out) {
  std::vector<boost::json::object> lines;
  std::size_t start = 0;
  for (std::size_t end; (end = out.find('\n', start)) != std::string::npos; start = end + 1)
    lines.push_back(boost::json::parse(out.substr(start, end - start)).as_object());
  EXPECT_EQ(start, out.size()) << "output must end with a line feed";
  return lines;
}

std::string const examples = std::string(TIDEWELL_SOURCE_DIR) + "/examples";

// Usage errors exit 2, help and version 0; an empty file is a message, a
// file of another content type is not imported.
TEST(cli, exit_statuses) {
  test_support::temp_file_t const empty("");
  EXPECT_EQ(run(empty.path()).status, 0);
  for (char const* arguments : {"", "--bogus x", "--content-type"})
    EXPECT_EQ(run(arguments).status, 2) << arguments;
  EXPECT_EQ(run("--help").status, 0);
  EXPECT_EQ(run("--version").out.rfind("tidewell-import ", 0), 0u);
  std::string const plain = examples + "/plain.eml";
  EXPECT_EQ(run("--json --content-type public.plain-text " + plain).out,
            "{\"path\":\"" + plain + "\",\"imported\":false,\"attributes\":{}}\n");
}

TEST(output, json_escapes_and_dates) {
  cli::record_t record{"dir/\xFF.eml", true, {}};
  record.attributes.set("kMDItemSubject", std::string("quote \" tab \t nul ", 18) + std::string(1, '\0'));
  record.attributes.set("kMDItemContentCreationDate",
                        importer::instant_t(std::chrono::sys_days(std::chrono::year(2003) / 7 / 1)) +
                            std::chrono::seconds(8 * 3600 + 52 * 60 + 37));
  record.attributes.set("kMDItemAuthors", std::vector<std::string>{"A", "B"});
  auto const line = cli::to_json_line(record);
  EXPECT_EQ(line, "{\"path\":\"dir/\xEF\xBF\xBD.eml\",\"imported\":true,\"attributes\":{\"kMDItemAuthors\":[\"A\","
                  "\"B\"],\"kMDItemContentCreationDate\":\"2003-07-01T08:52:37Z\",\"kMDItemSubject\":"
                  "\"quote \\\" tab \\t nul \\u0000\"}}\n");
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
// bytes, from a printer that never holds much more than a megabyte, and
// through the tool whatever the number of jobs.
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
  test_support::temp_file_t const message("Subject: big\n\n" + text);
  for (char const* jobs : {"-j1", "-j2"}) {
    auto const lines = json_lines(run(std::string("--json ") + jobs + " " + message.path() + " " + message.path()).out);
    ASSERT_EQ(lines.size(), 2u) << jobs;
    for (auto const& line : lines)
      EXPECT_EQ(line.at("attributes").at("kMDItemTextContent").as_string(), text) << jobs;
  }
}

// The optional parts of a record, in both renderings: an mbox message's
// number, a failure and the problems (a multi-line context stays one block).
TEST(output, message_error_and_problems) {
  cli::record_t record{"box", false, {}};
  record.message = 2;
  record.error = "No such file or directory";
  EXPECT_EQ(cli::to_json_line(record),
            "{\"path\":\"box\",\"message\":2,\"imported\":false,\"error\":\"No such file or directory\","
            "\"attributes\":{}}\n");
  EXPECT_EQ(cli::to_listing(record), "box:2\n  (not imported: No such file or directory)\n\n");

  record = {"m.eml", true, {}};
  record.problems.emplace();
  EXPECT_EQ(cli::to_json_line(record), "{\"path\":\"m.eml\",\"imported\":true,\"attributes\":{},\"problems\":[]}\n");
  record.problems->push_back({{"description", "No closing MIME boundary found"}, {"context", "--a\n--b"}});
  EXPECT_EQ(cli::to_json_line(record),
            "{\"path\":\"m.eml\",\"imported\":true,\"attributes\":{},\"problems\":[{\"context\":\"--a\\n--b\","
            "\"description\":\"No closing MIME boundary found\"}]}\n");
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
      {"From - Mon Jan  1 00:00:00 2024\n", true},
      {"From MAILER-DAEMON Thu Jan  1 00:00:00 1970\r\n", true},
      {"From someone@example.org Tue Jan 2 10:11:12 2024", true},
      {"From 1700000000000000000@xxx Mon Jan 01 00:00:00 +0000 2024\n", true},
      {"From time to time\n", false},
      {"From someone@example.org wrote:\n", false},
      {"From: someone@example.org\n", false},
      {">From - Mon Jan  1 00:00:00 2024\n", false},
      {"From  Mon Jan  1 00:00:00 2024\n", false},
  };
  for (auto const& row : rows)
    EXPECT_EQ(cli::is_envelope_line(row.line), row.separator) << row.line;
}

} // namespace
