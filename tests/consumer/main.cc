// SPDX-License-Identifier: MIT
// A program that uses the installed libtidewell the way an outside user
// does: only through <tidewell/...> headers and the installed library.
// It imports one message and reads a date with the parsers directly, and
// exits non-zero when either result is not the expected one, so a library
// whose exported symbols, headers or link flags are wrong fails here.
#include <cstdio>
#include <string>
#include <variant>

#include <tidewell/date/rfc822_date.h>
#include <tidewell/error/handler.h>
#include <tidewell/importer/import.h>

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s MESSAGE EXPECTED-SUBJECT\n", argv[0]);
    return 2;
  }
  importer::attribute_set_t attributes;
  bool readable = false;
  importer::import_file(argv[1], attributes, importer::options_t{}, &readable);
  auto const* subject = attributes.find(importer::attribute::subject);
  std::string const got =
      subject && std::holds_alternative<std::string>(*subject) ? std::get<std::string>(*subject) : "";
  if (!readable || got != argv[2]) {
    std::fprintf(stderr, "subject: got \"%s\", expected \"%s\"\n", got.c_str(), argv[2]);
    return 1;
  }

  std::string const text = "Tue, 14 Oct 2025 09:12:44 +0200 (CEST)";
  quern::error::handler_t problems;
  date::rfc822_date_t const parsed(text.data(), text.data() + text.size(), &problems);
  if (parsed.canonical_format() != "2025-10-14 07:12:44") {
    std::fprintf(stderr, "date: got \"%s\"\n", parsed.canonical_format().c_str());
    return 1;
  }
  std::printf("%s\n", got.c_str());
  return 0;
}
