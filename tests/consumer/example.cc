// SPDX-License-Identifier: MIT
// The README's example, built against the installed package as it stands.
#include <cstdio>
#include <tidewell/importer/message.h>

int main(int argc, char** argv) {
  std::error_code error;
  tidewell::message_t const m = tidewell::parse_file(argc > 1 ? argv[1] : "", {}, error);
  if (error)
    return std::fprintf(stderr, "%s: %s\n", argv[1], error.message().c_str()), 1;
  for (tidewell::mailbox_t const& to : m.to)
    std::printf("To: %s <%s>\n", to.name.c_str(), to.address.c_str());
  for (tidewell::mailbox_t const& cc : m.cc)
    std::printf("Cc: %s <%s>\n", cc.name.c_str(), cc.address.c_str());
  std::printf("Message-ID: %s\n", m.message_id.value_or("").c_str());
}
