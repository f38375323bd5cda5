// SPDX-License-Identifier: MIT
// A program that uses the installed libtidewell the way an outside user
// does: only through <tidewell/...> headers and the installed library. It
// reads one message and prints its subject, its To and Cc mailboxes
// separately and its Message-ID, then compares what it printed with the
// expected text, so a library whose exported symbols, headers or link flags
// are wrong fails here.
#include <cstdio>
#include <string>
#include <system_error>

#include <tidewell/importer/message.h>

namespace {

std::string mailboxes(std::vector<tidewell::mailbox_t> const& list) {
  std::string text;
  for (auto const& mailbox : list)
    text += (text.empty() ? "" : ", ") + mailbox.name + " <" + mailbox.address + ">";
  return text;
}

} // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s MESSAGE EXPECTED-OUTPUT\n", argv[0]);
    return 2;
  }
  std::error_code error;
  tidewell::message_t const message = tidewell::parse_file(argv[1], {}, error);
  if (error) {
    std::fprintf(stderr, "%s: %s\n", argv[1], error.message().c_str());
    return 1;
  }
  std::string const printed = "subject: " + message.subject.value_or("") + "\nto: " + mailboxes(message.to) +
                              "\ncc: " + mailboxes(message.cc) + "\nmessage-id: " + message.message_id.value_or("") +
                              "\n";
  std::fputs(printed.c_str(), stdout);
  if (printed != argv[2]) {
    std::fprintf(stderr, "expected:\n%s", argv[2]);
    return 1;
  }
  return 0;
}
