// SPDX-License-Identifier: MIT
// Splitting an mbox: which lines are separators, and what the messages are.
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "importer/mbox.h"

namespace {

// Envelope lines as delivery agents and mail programs write them, and body
// lines of mboxes whose writer did not quote "From " that must stay in their
// message.
TEST(mbox, envelope_lines) {
  struct row_t {
    char const* line;
    bool separator;
  } const rows[] = {
      // asctime, the day padded to two columns with a space
      {"From MAILER-DAEMON Thu Oct  2 14:03:09 2025\n", true},
      {"From MAILER-DAEMON Thu Jan  1 00:00:00 1970\r\n", true},
      {"From someone@example.org Tue Jan 2 10:11:12 2024", true},
      // a zone between the time and the year (Gmail Takeout, older Unix)
      {"From 1700000000000000000@xxx Mon Jan 01 00:00:00 +0000 2024\n", true},
      {"From alice@example.org Thu Oct  2 14:03:09 PDT 2025\n", true},
      // or after the year, or the UUCP gateway that handed it on
      {"From alice@example.org Thu Oct  2 14:03:09 2025 +0200\n", true},
      {"From alice Thu Oct  2 14:03 2025 remote from gateway\n", true},
      // an RFC 2822 date
      {"From alice@example.org Thu, 2 Oct 2025 14:03:09 +0200\n", true},
      {"From alice@example.org 2 Oct 2025 14:03:09\n", true},
      // Thunderbird and Evolution, Eudora, no weekday
      {"From - Thu Oct 02 14:03:09 2025\n", true},
      {"From ???@??? Thu Oct 02 14:03:09 2025\r\n", true},
      {"From alice@example.org  Oct 2 14:03:09 2025\n", true},
      {"From \"john doe\"@example.org Thu oct  2 14:03:09 2025\n", true},

      {"From 9:00 to 17:00 on 12 May 2025 the office is closed.\n", false},
      {"From -5 to +3 degrees overnight.\n", false},
      {"From 1999 to 2003 I lived there.\n", false},
      {"From here on, we use the new server.\n", false},
      {"From someone@example.org wrote:\n", false},
      {"From me to you 2025\n", false},
      {"From 10:00\n", false},
      {"From: someone@example.org\n", false},
      {"From -\n", false},
      {"from alice Thu Oct  2 14:03:09 2025\n", false},
      {">From - Mon Jan  1 00:00:00 2024\n", false},
      // no sender
      {"From  Mon Jan  1 00:00:00 2024\n", false},
      // a date without a time, a time without a year, no month or weekday
      {"From alice Thu Oct  2 2025\n", false},
      {"From alice Thu Oct  2 14:03:09\n", false},
      {"From alice Thu Oct  2 14:03:09 25\n", false},
      {"From alice Thu Oct  2 14:03:09 20255\n", false},
      {"From alice 14:03:09 2025\n", false},
      {"From alice 2 14:03:09 2025\n", false},
      {"From Monday at 10:30 until Oct 2025 we are closed\n", false},
      // what is not a day, a month or a time
      {"From alice Thu Oct 32 14:03:09 2025\n", false},
      {"From alice Thu Octo 2 14:03:09 2025\n", false},
      {"From alice Thu Oct  2 24:03:09 2025\n", false},
      {"From alice Thu Oct  2 14:3:09 2025\n", false},
      {"From alice Thu Oct  2 14:03:09 2025.\n", false},
  };
  for (auto const& row : rows)
    EXPECT_EQ(tidewell::is_envelope_line(row.line), row.separator) << row.line;
}

std::vector<std::string> split(std::string const& mbox, std::size_t max_message = SIZE_MAX) {
  std::FILE* file = std::tmpfile();
  std::fwrite(mbox.data(), 1, mbox.size(), file);
  std::fflush(file);
  std::rewind(file);
  tidewell::mbox_reader_t reader(fileno(file), max_message);
  std::vector<std::string> messages;
  for (std::string message; reader.next(message);)
    messages.push_back(message);
  std::fclose(file);
  return messages;
}

// Body lines that begin with "From " stay where they are, whichever writer
// made the mbox.
TEST(mbox, unquoted_from_lines_stay_in_their_message) {
  struct row_t {
    std::string mbox;
    std::vector<std::string> messages;
  } const rows[] = {
      {"From alice@example.org Thu Oct  2 14:03:09 2025\n"
       "Subject: one\n\n"
       "From 9:00 to 17:00 on 12 May 2025 the office is closed.\n"
       "\n"
       "From - Thu Oct 02 15:00:00 2025\n"
       "Subject: two\n\n"
       ">From here on, quoted.\n"
       "\n"
       "From MAILER-DAEMON Fri, 3 Oct 2025 08:00:00 +0000\n"
       "Subject: three\n\n"
       "From here on, not.\n",
       {"Subject: one\n\nFrom 9:00 to 17:00 on 12 May 2025 the office is closed.\n",
        "Subject: two\n\nFrom here on, quoted.\n", "Subject: three\n\nFrom here on, not.\n"}},
      // Text before the first separator is a message of its own.
      {"Subject: zero\n\nFrom 1999 to 2003\n\nFrom alice Thu Oct  2 14:03:09 2025\nSubject: one\n",
       {"Subject: zero\n\nFrom 1999 to 2003\n", "Subject: one\n"}},
      {"From 10:00 on\nSubject: all\n", {"From 10:00 on\nSubject: all\n"}},
  };
  for (auto const& row : rows)
    EXPECT_EQ(split(row.mbox), row.messages) << row.mbox;
}

// An mbox message longer than the limit keeps the limit and one byte, and
// the reader finds the next separator behind it, whether the excess is many
// lines or one line far longer than the reader's chunk; a "From -" inside
// such a line is not a separator.
TEST(mbox, long_messages_are_cut) {
  std::string const separator = "From - Mon Jan  1 00:00:00 2024\n";
  std::string long_line = "Subject: long\n\n" + std::string(3 << 20, 'x');
  long_line.insert((1 << 20) + 17, separator);
  std::string many_lines = "Subject: many\n\n";
  while (many_lines.size() < (3 << 20))
    many_lines += "From the start of a line\n";
  std::string const input = separator + long_line + "\n\n" + separator + many_lines + "\n" + separator +
                            "Subject: short\n\nshort\n" + "\n" + separator + long_line;
  EXPECT_EQ(split(input, 1000), (std::vector<std::string>{long_line.substr(0, 1001), many_lines.substr(0, 1001),
                                                          "Subject: short\n\nshort\n", long_line.substr(0, 1001)}));
}

} // namespace
