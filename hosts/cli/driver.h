// SPDX-License-Identifier: MIT
// The import run of the command-line tool: sources in, records out.
//
// The PATHs are expanded first (folders walked), so the total is known for
// the progress line. Each file, each message of an mbox and standard input
// becomes one task; tasks run on a pool of worker threads and their records
// are written strictly in task order, so the output of -j N is byte for byte
// that of -j 1. At most a few tasks per worker are in flight, which bounds
// the memory an mbox of any size takes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "importer/import.h"
#include "importer/message.h"

namespace cli {

struct settings_t {
  bool json = false;
  // Every PATH (and "-") is an mbox of messages.
  bool mbox = false;
  // Collect and print the parsers' problem records.
  bool problems = false;
  std::string content_type{importer::mail_content_type};
  // The full reading, with options message (the default), or the desktop
  // host's, with options import, whose problem collector is set per task.
  bool full = true;
  tidewell::options_t message;
  importer::options_t import;
  // At most this many bytes of one message (a file, an mbox message,
  // standard input) are read and imported; the record of a longer message
  // says it was cut. Set the full reading's max_bytes to the same.
  std::uint64_t max_message_size = std::uint64_t(256) << 20;
  unsigned jobs = 1;
  // Redraw a progress line on standard error.
  bool progress = false;
  // Print the summary line on standard error at the end.
  bool summary = false;
};

// Imports and prints every path; the exit status: 0 when everything could be
// read and written, 1 otherwise, 128 + the signal's number when SIGINT or
// SIGTERM stopped the run (see console.h).
int run(std::vector<std::string> const& paths, settings_t const& settings);

} // namespace cli
