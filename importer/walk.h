// SPDX-License-Identifier: MIT
// What a PATH on the command line stands for: itself, or the mail files
// below it.
//
// A directory is walked the way mail tools walk a mail store. Inside a
// Maildir (a folder holding cur/, new/ and tmp/) only the messages in cur/
// and new/ are taken: tmp/ holds deliveries still being written. Hidden
// files and folders are skipped, and with them the index folders other mail
// tools keep beside the mail (.notmuch, .mu), except the Maildir++
// subfolders of a Maildir (.Sent, .Archive), which are Maildirs themselves.
// Dovecot's index and list files (dovecot*) are skipped wherever they are.
// Symbolic links are followed, but no folder is walked twice, so a link back
// up the tree cannot loop. Anything that is neither a folder nor a regular
// file (a FIFO, a socket, a device) is skipped and counted: opening it could
// block or have side effects. The walk keeps an explicit stack, so a deep
// tree cannot exhaust the call stack.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tidewell {

// Asked between steps of a long walk or read: true ends it early (a signal
// came, the caller lost interest). Empty: never stop.
using stop_t = std::function<bool()>;

struct source_t {
  std::string path;
  // Why the path cannot be read (an unreadable folder); empty otherwise.
  std::string error;
  // The size stat reported, for progress; 0 when unknown.
  std::uint64_t size = 0;
  // stat or readdir found a regular file: the import need not ask again.
  bool regular = false;
  // A folder that could not be listed: not a file, but a failure all the
  // same (error says why).
  bool folder = false;
};

struct walk_counts_t {
  // Non-regular files met inside folders and left alone.
  std::size_t skipped = 0;
};

// Appends the sources path stands for, in byte order of their paths. A path
// that is not a folder (or cannot be stat'ed) is one source, checked when it
// is read; "-" is standard input. Without sizes, the files of a folder are
// listed with the size 0. A walk ends early once stop says so.
void expand(std::string const& path, std::vector<source_t>& sources, walk_counts_t& counts, bool sizes = true,
            stop_t const& stop = {});

// Names a walk leaves alone wherever they are: the index folders of other
// mail tools and Dovecot's index and list files.
bool is_ignored_name(std::string const& name);

} // namespace tidewell
