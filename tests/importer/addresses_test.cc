// SPDX-License-Identifier: MIT
#include "importer/addresses.h"

#include <chrono>

#include <gtest/gtest.h>

namespace {

using list = std::vector<std::string>;

// The full reading: every mailbox, names and addresses parallel.
TEST(parse_mailboxes, reads_every_mailbox_of_a_list) {
  struct {
    std::string value;
    list names, emails;
  } const cases[] = {
      {"", {}, {}},
      {"\"Smith, Ann\" <ann@x>, Doe, John <j@x>", {"Smith, Ann", "Doe, John"}, {"ann@x", "j@x"}},
      {"ann@x (Smith, Ann), bob@y", {"Smith, Ann", ""}, {"ann@x", "bob@y"}},
      {"<a@x>, <b@y>,, ,", {"", ""}, {"a@x", "b@y"}},
      // Groups: the group's name is no mailbox; an empty group gives none.
      {"undisclosed-recipients:;", {}, {}},
      {"Team: a@x, B <b@y>;, c@z", {"", "B", ""}, {"a@x", "b@y", "c@z"}},
      {"Team: a@x, b@y; Other: c@z;", {"", "", ""}, {"a@x", "b@y", "c@z"}},
      // Names are decoded per mailbox, after the list is cut: a decoded
      // comma or quote cannot split or join mailboxes.
      {"=?utf-8?q?Doe=2C_J=C3=B6rg?= <j@x>, =?utf-8?q?=22Q=22?= <q@x>", {"Doe, J\xC3\xB6rg", "\"Q\""}, {"j@x", "q@x"}},
      {"\"=?iso-8859-1?q?Ren=E9e?=\" <r@x>",
       {"Ren\xC3\xA9"
        "e"},
       {"r@x"}},
      // A comma before any '@' ends a mailbox unless a display name in front
      // of angle brackets follows ("Doe, John" above).
      {"Just A Name, bob@y", {"Just A Name", ""}, {"", "bob@y"}},
      // A name without an address is a mailbox with an empty one; a lone
      // word is a local address, and a comment after it names it.
      {"John Doe", {"John Doe"}, {""}},
      {"\"Smith, John\", Undisclosed recipients", {"Smith, John", "Undisclosed recipients"}, {"", ""}},
      {"xyz, abc", {"", ""}, {"xyz", "abc"}},
      {"root (Cron Daemon), postmaster", {"Cron Daemon", ""}, {"root", "postmaster"}},
      {"MAILER-DAEMON <>, <>, xyz, \"Doe, J\" <>", {"MAILER-DAEMON", "", "Doe, J"}, {"", "xyz", ""}},
      {"Friends: John Doe, Jane Roe;", {"John Doe", "Jane Roe"}, {"", ""}},
      // A comment alone is a remark; a group's name may carry comments.
      {"(none), list: ; (no To field)", {}, {}},
      {"(x)Undisclosed recipients (y:z) :(nobody);", {}, {}},
      // Comments and folding inside an address are no part of it.
      {"pete(his account)@silly.test(his host)", {"his host"}, {"pete@silly.test"}},
      {"\"Pete\" <pete(his(nested) account)@silly.test (host)>", {"Pete"}, {"pete@silly.test"}},
      {"pete @ silly . test, Mr. pete@x, Ann @ Home <a@x>",
       {"", "Mr.", "Ann @ Home"},
       {"pete@silly.test", "pete@x", "a@x"}},
      {"pete@silly.test (Pete Smith)", {"Pete Smith"}, {"pete@silly.test"}},
      // Junk folded in after an angle address; stray brackets.
      {"<a@x> name=\"a.zip\"", {""}, {"a@x"}},
      {">a@x, b@y>", {"", ""}, {"a@x", "b@y>"}},
      // Repeated fields arrive one per line; an open quote stays in its line.
      {"a@x, \"Open <b@x>\nc@x\n\nd@x (open", {"", "Open", "", "open"}, {"a@x", "b@x", "c@x", "d@x"}},
      // An unterminated quote or comment runs to the end of the list.
      {"\"Ann <ann@x>, bob@y", {"Ann <ann@x>"}, {"bob@y"}},
      {"ann@x (Ann, bob@y", {"ann@x (Ann"}, {"bob@y"}},
  };
  for (auto const& c : cases) {
    list names, emails;
    importer::parse_mailboxes(c.value, names, emails);
    EXPECT_EQ(names, c.names) << c.value;
    EXPECT_EQ(emails, c.emails) << c.value;
    EXPECT_EQ(names.size(), emails.size()) << c.value;
  }
}

// A million commas, semicolons, line ends or unbalanced quotes and brackets,
// nested comments in an address, folding around '@' and '.': linear.
TEST(parse_mailboxes, hostile_lists_stay_linear) {
  std::string many, nested = "a" + std::string(500'000, '(') + std::string(500'000, ')') + "@x", folded = "a", lines;
  for (int i = 0; i < 100'000; ++i) {
    many += "a" + std::to_string(i) + "@x, ";
    folded += " @ a . (b) a";
    lines += "a" + std::to_string(i) + "@x, \"\n";
  }
  for (std::string const& value :
       {std::string(1'000'000, ','), std::string(1'000'000, ';'), std::string(1'000'000, '"'),
        std::string(1'000'000, '('), std::string(1'000'000, '<'), many, nested, folded, lines,
        std::string(1'000'000, '\n')}) {
    auto const start = std::chrono::steady_clock::now();
    list names, emails;
    importer::parse_mailboxes(value, names, emails);
    EXPECT_EQ(names.size(), emails.size());
    EXPECT_TRUE((value != many && value != lines) || emails.size() == 100'000u) << emails.size();
    EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 20)
        << value.substr(0, 8);
  }
}

} // namespace
