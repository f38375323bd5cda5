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
  unsigned jobs = 1;
  // Redraw a progress line on standard error.
  bool progress = false;
  // Print the summary line on standard error at the end.
  bool summary = false;
};

// Imports and prints every path; the exit status: 0 when everything could be
// read and written, 1 otherwise.
int run(std::vector<std::string> const& paths, settings_t const& settings);

} // namespace cli
