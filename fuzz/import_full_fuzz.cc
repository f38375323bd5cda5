// SPDX-License-Identifier: MIT
// Any bytes as a whole message in the full reading, the typed message every
// Linux host and library caller reads: every string in it is well-formed
// UTF-8, and asking for the problems changes nothing else.
#include "fuzz/fuzz_support.h"
#include "importer/message.h"

namespace {

void expect_well_formed(std::string_view what, std::string const& text) {
  if (!importer::is_well_formed_utf8(text))
    fuzz::fail("ill-formed UTF-8 in the message", what, text);
}

void expect_well_formed(tidewell::message_t const& m) {
  expect_well_formed("subject", m.subject.value_or(""));
  expect_well_formed("text", m.text.value_or(""));
  expect_well_formed("message-id", m.message_id.value_or(""));
  expect_well_formed("in-reply-to", m.in_reply_to.value_or(""));
  for (std::string const& id : m.references)
    expect_well_formed("references", id);
  for (auto const* field : {&m.from, &m.sender, &m.reply_to, &m.to, &m.cc, &m.bcc})
    for (tidewell::mailbox_t const& mailbox : *field) {
      expect_well_formed("name", mailbox.name);
      expect_well_formed("address", mailbox.address);
    }
  for (tidewell::attachment_t const& attachment : m.attachments) {
    expect_well_formed("file name", attachment.file_name);
    expect_well_formed("content-id", attachment.content_id);
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::vector<char> const bytes(data, data + size);
  std::string_view const message(bytes.data(), bytes.size());
  tidewell::message_t quiet = tidewell::parse(message);
  expect_well_formed(quiet);
  tidewell::options_t listening;
  listening.problems = true;
  tidewell::message_t listened = tidewell::parse(message, listening);
  listened.problems.clear();
  if (!(quiet == listened))
    fuzz::fail("a listening collector changed the message");
  return 0;
}
