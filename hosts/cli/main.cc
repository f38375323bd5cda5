// SPDX-License-Identifier: MIT
// tidewell-import: the command-line host of the importer.
//
// Each PATH is read in the full reading, as the Linux hosts read it, and the
// typed message is printed; with --desktop (or --crlf) it is imported exactly
// as the desktop-search host imports it and that host's attribute set is
// printed instead. Either is printed as an mdls-style listing or as one JSON
// object per line. Folders are walked for mail files, mboxes
// are split into their messages, and files are imported on several threads
// with the output in input order (see driver.h). This file reads the command
// line; the look-ups that import nothing are answered here too.
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <string>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <vector>

#include <boost/json.hpp>

#include "header/format.h"
#include "header/public_suffix.h"
#include "hosts/cli/console.h"
#include "hosts/cli/driver.h"
#include "hosts/cli/output.h"
#include "importer/import.h"

namespace {

constexpr char usage[] = R"(Usage: tidewell-import [OPTION]... PATH...
Import e-mail message files and print what each one holds: the subject,
every sender and recipient, the dates, the thread identifiers, the text and
the attachments. A directory PATH is searched recursively for mail files; -
reads one message from standard input.

Options:
  --json               print one JSON object per message, one per line (see
                       below)
  --desktop            print what the desktop-search importer sets instead,
                       exactly as it always has: its attributes, in JSON
                       {"path": ..., "imported": ..., "attributes": {...}};
                       a CR is content there, so a file with CR LF line
                       ends has no end of its headers
  --crlf               the desktop reading with CR LF line ends read as LF;
                       on its own it implies --desktop
  --full               the full reading, which is the default (accepted for
                       scripts that name it; it overrides --crlf)
  --mbox               read every PATH (and -) as an mbox and import each of
                       its messages: "message": N (from 1) in JSON, PATH:N
                       in the listing
  --problems           also print what the parsers repaired or tolerated in
                       each message ("problems" in JSON, indented "problem:"
                       lines in the listing); the rest stays the same
  --content-type UTI   the content type the host announces for every file
                       (default: com.apple.mail.email; any other type is
                       not imported)
  -j, --jobs N         import N files at a time (default: the number of
                       processors); the output is the same for every N
  --max-message-size BYTES
                       read at most BYTES of each message, file, mbox
                       message or standard input (default 256M; K, M and G
                       multiply by 1024, 1024^2 and 1024^3); the record of a
                       longer one holds what its start gives and "cut": true
  --quiet              no progress line and no summary on standard error
  --summary            print the summary line even when standard error is
                       not a terminal
  --format-address FORM TEXT
                       instead of importing, read TEXT as one name and
                       address written in FORM (rfc822: RFC 822 syntax,
                       quoted names and comments; angle-split: split at
                       the last '<' and '>') and print the name, the
                       address and the pair written in every form
  --registrable-domain HOST
                       instead of importing, print the public suffix of
                       HOST (Public Suffix List, libpsl's built-in copy),
                       its registrable domain and the labels before it
  --help               show this help and exit
  --version            show the version and exit

The JSON record of the full reading, keys in this order:
  {"schema":1, "path", "message", "imported", "error", "subject", "from",
   "sender", "reply_to", "to", "cc", "bcc", "date", "received", "message_id",
   "in_reply_to", "references", "text", "attachments", "problems", "cut"}
A mailbox is {"name", "address"} ("" for a part the message does not give),
an attachment {"file_name", "media_type", "size", "content_id",
"disposition"}. Dates are RFC 3339 in the zone the message gave
("2025-10-07T03:30:00+02:00"; UTC is +00:00). A field the message lacks is
null and a list without elements is [], so those keys are always there;
"message" (an mbox), "error" (unreadable), "problems" (with --problems) and
"cut" (true, when only the start was read) come only when they apply. The
listing shows the same fields as "name = value" lines and leaves out what
the message lacks.

The two look-ups may be repeated; they print one "key: value" line per
result (one JSON object per look-up with --json) and take no PATH.

A path that is not UTF-8 is printed with U+FFFD for its stray bytes and, in
JSON, losslessly as "path_bytes": those bytes as %HH and % as %25 (any
percent-decoder gives the bytes back); the listing shows that form.

A directory walk takes only cur/ and new/ inside a Maildir, skips hidden
files and folders (but walks Maildir++ folders such as .Sent), the index
folders of other mail tools and dovecot* files, and skips FIFOs, sockets and
devices. Only regular files are read: such a file named as PATH is refused.

When standard error is a terminal, a progress line is redrawn there and a
summary line ends the run: N files (messages with --mbox), M imported, K
with text, E unreadable, T s (F unreadable folders and S skipped when there
are any).

SIGINT or SIGTERM stops the run cleanly: no record is started after it,
the one being written is finished, so every line is whole, the summary is
printed as it would have been, and the exit status is 130 (SIGINT) or 143
(SIGTERM). A second signal ends the run at once.

Exit status: 0 when every file could be read and all output written, 1
when not (each failure is reported as "tidewell-import: PATH: reason", and
its JSON record has an "error" key; so is a folder that cannot be read and
a message that needs more memory than there is) or a message was cut, 2 for
a usage error, 130 or 143 after SIGINT or SIGTERM.
)";

struct lookup_t {
  enum kind_t { format_address, registrable_domain } kind;
  header::name_format_t format;
  std::string text;
};

struct options_t {
  cli::settings_t settings;
  bool quiet = false;
  bool summary = false;
  // The reading options named; the full reading unless one asks otherwise.
  bool desktop = false, crlf = false, full = false;
  std::vector<std::string> paths;
  std::vector<lookup_t> lookups;
};

int usage_error(char const* message, char const* argument) {
  std::fprintf(stderr, "tidewell-import: %s%s\nTry 'tidewell-import --help' for more information.\n", message,
               argument);
  return 2;
}

// Only the forms that can be read back are accepted: reading the display
// form is a precondition violation of split_name_and_address.
bool parse_readable_format(char const* name, header::name_format_t& format) {
  if (std::strcmp(name, "rfc822") == 0)
    format = header::name_format_t::rfc822;
  else if (std::strcmp(name, "angle-split") == 0)
    format = header::name_format_t::angle_split;
  else
    return false;
  return true;
}

std::string text_of(header::match_t const& m) {
  return m.found() ? std::string(m.first, m.last) : std::string();
}

// The look-up's results as (key, value) rows, in output order.
std::vector<std::pair<std::string, std::string>> run_lookup(lookup_t const& lookup) {
  using header::name_format_t;
  if (lookup.kind == lookup_t::format_address) {
    auto const [name, address] = header::split_name_and_address(lookup.text, lookup.format);
    return {{"name", name},
            {"address", address},
            {"rfc822", header::format_name_and_address(name, address, name_format_t::rfc822)},
            {"angle-split", header::format_name_and_address(name, address, name_format_t::angle_split)},
            {"display", header::format_name_and_address(name, address, name_format_t::display)}};
  }
  // The list is lower case; host names are not case-sensitive.
  std::string host = lookup.text;
  std::transform(host.begin(), host.end(), host.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  char const* const end = host.data() + host.size();
  char const* position = host.data();
  std::string const suffix = text_of(header::psl_top_level_function(position, end));
  position = host.data();
  std::string const second = text_of(header::psl_second_level_function(position, end));
  position = host.data();
  std::string const third = text_of(header::psl_third_level_function(position, end));
  return {{"host", host},
          {"public-suffix", suffix},
          {"registrable-domain", second.empty() ? std::string() : second + "." + suffix},
          {"second-level", second},
          {"third-level", third}};
}

std::string lookup_output(lookup_t const& lookup, bool json) {
  auto const rows = run_lookup(lookup);
  if (json) {
    boost::json::object object;
    for (auto const& [key, value] : rows)
      object[key] = value;
    return boost::json::serialize(object) + "\n";
  }
  std::string out;
  for (auto const& [key, value] : rows)
    out += key + ": " + value + "\n";
  return out;
}

// A size in bytes: a whole number of at least 1, times 1024, 1024^2 or
// 1024^3 with a K, M or G after it, and at most 2^60 (an exabyte).
bool parse_size(char const* text, std::uint64_t& size) {
  char* end = nullptr;
  errno = 0;
  unsigned long long const value = std::strtoull(text, &end, 10);
  if (errno || end == text || *text == '-' || *text == '+' || value < 1)
    return false;
  unsigned shift = 0;
  switch (*end) {
  case '\0':
    break;
  case 'K':
  case 'k':
    shift = 10;
    break;
  case 'M':
  case 'm':
    shift = 20;
    break;
  case 'G':
  case 'g':
    shift = 30;
    break;
  default:
    return false;
  }
  if ((shift && end[1] != '\0') || value > (std::uint64_t(1) << (60 - shift)))
    return false;
  size = static_cast<std::uint64_t>(value) << shift;
  return true;
}

// A job count: a whole number from 1 to 1024.
bool parse_jobs(char const* text, unsigned& jobs) {
  char* end = nullptr;
  errno = 0;
  long const value = std::strtol(text, &end, 10);
  if (errno || end == text || *end != '\0' || value < 1 || value > 1024)
    return false;
  jobs = static_cast<unsigned>(value);
  return true;
}

} // namespace

int main(int argc, char** argv) {
  // A closed pipe shows up as EPIPE on the write, which is reported, rather
  // than as a silent death.
  std::signal(SIGPIPE, SIG_IGN);
  cli::catch_stop_signals();
  // Keep freed memory for the next message rather than hand it back to the
  // kernel after each one. glibc maps every block above a threshold of its
  // own choosing (128 KiB at first) and trims the heap's top as soon as it
  // passes another, so a run that decodes attachments of a few hundred KiB
  // message after message mapped, unmapped and faulted the same pages in
  // again and again. With two jobs it costs more than with one: an
  // unmap in one thread shoots down the other core's TLB, and the faults
  // and unmaps of both threads contend for the one memory map. Blocks larger
  // than these (a message near the size limit) are still mapped and given
  // back.
  mallopt(M_MMAP_THRESHOLD, 32 << 20);
  mallopt(M_TRIM_THRESHOLD, 64 << 20);
  options_t options;
  options.settings.jobs = std::max(1u, std::thread::hardware_concurrency());
  bool options_done = false;
  for (int i = 1; i < argc; ++i) {
    char const* arg = argv[i];
    if (options_done || arg[0] != '-' || std::strcmp(arg, "-") == 0) {
      options.paths.emplace_back(arg);
    } else if (std::strcmp(arg, "--") == 0) {
      options_done = true;
    } else if (std::strcmp(arg, "--help") == 0) {
      std::fputs(usage, stdout);
      return std::fflush(stdout) == 0 && !std::ferror(stdout) ? 0 : 1;
    } else if (std::strcmp(arg, "--version") == 0) {
      std::printf("tidewell-import %s\n", TIDEWELL_VERSION);
      return std::fflush(stdout) == 0 && !std::ferror(stdout) ? 0 : 1;
    } else if (std::strcmp(arg, "--json") == 0) {
      options.settings.json = true;
    } else if (std::strcmp(arg, "--desktop") == 0) {
      options.desktop = true;
    } else if (std::strcmp(arg, "--crlf") == 0) {
      options.crlf = true;
    } else if (std::strcmp(arg, "--full") == 0) {
      options.full = true;
    } else if (std::strcmp(arg, "--mbox") == 0) {
      options.settings.mbox = true;
    } else if (std::strcmp(arg, "--problems") == 0) {
      options.settings.problems = true;
      options.settings.message.problems = true;
    } else if (std::strcmp(arg, "--quiet") == 0) {
      options.quiet = true;
    } else if (std::strcmp(arg, "--summary") == 0) {
      options.summary = true;
    } else if (std::strcmp(arg, "-j") == 0 || std::strcmp(arg, "--jobs") == 0) {
      if (++i == argc)
        return usage_error("option requires an argument: ", arg);
      if (!parse_jobs(argv[i], options.settings.jobs))
        return usage_error("the number of jobs must be from 1 to 1024: ", argv[i]);
    } else if (std::strncmp(arg, "-j", 2) == 0 || std::strncmp(arg, "--jobs=", 7) == 0) {
      char const* count = arg + (arg[1] == 'j' ? 2 : 7);
      if (!parse_jobs(count, options.settings.jobs))
        return usage_error("the number of jobs must be from 1 to 1024: ", count);
    } else if (std::strcmp(arg, "--max-message-size") == 0 || std::strncmp(arg, "--max-message-size=", 19) == 0) {
      char const* size = arg[18] == '=' ? arg + 19 : nullptr;
      if (!size && ++i == argc)
        return usage_error("option requires an argument: ", arg);
      if (!parse_size(size ? size : argv[i], options.settings.max_message_size))
        return usage_error("the size must be a whole number of bytes with K, M or G, at least 1: ",
                           size ? size : argv[i]);
    } else if (std::strcmp(arg, "--content-type") == 0) {
      if (++i == argc)
        return usage_error("option requires an argument: ", arg);
      options.settings.content_type = argv[i];
    } else if (std::strncmp(arg, "--content-type=", 15) == 0) {
      options.settings.content_type = arg + 15;
    } else if (std::strcmp(arg, "--format-address") == 0) {
      if (argc - i < 3)
        return usage_error("option requires FORM and TEXT: ", arg);
      lookup_t lookup{lookup_t::format_address, {}, argv[i + 2]};
      if (!parse_readable_format(argv[i + 1], lookup.format))
        return usage_error("FORM must be rfc822 or angle-split: ", argv[i + 1]);
      options.lookups.push_back(std::move(lookup));
      i += 2;
    } else if (std::strcmp(arg, "--registrable-domain") == 0) {
      if (++i == argc)
        return usage_error("option requires an argument: ", arg);
      options.lookups.push_back({lookup_t::registrable_domain, {}, argv[i]});
    } else {
      return usage_error("unknown option: ", arg);
    }
  }
  if (options.full && options.desktop)
    return usage_error("--full and --desktop cannot be combined", "");
  // --crlf on its own was, before the full reading became the default, the
  // desktop reading with CR LF read as LF; scripts that use it get the same.
  // The full reading always reads CR LF as LF, so --full --crlf is full.
  options.settings.full = options.full || !(options.desktop || options.crlf);
  if (options.crlf)
    options.settings.import.line_ends = importer::line_ends_t::crlf_as_lf;
  options.settings.message.max_bytes = options.settings.max_message_size;
  if (!options.lookups.empty()) {
    if (!options.paths.empty())
      return usage_error("PATH cannot be combined with a look-up: ", options.paths.front().c_str());
    cli::stdout_t out;
    for (lookup_t const& lookup : options.lookups)
      out.write(lookup_output(lookup, options.settings.json));
    if (!out.flush()) {
      cli::report("standard output", std::error_code(out.error(), std::generic_category()).message());
      return 1;
    }
    return 0;
  }
  if (options.paths.empty())
    return usage_error("no PATH given", "");

  bool const terminal = ::isatty(STDERR_FILENO) == 1;
  options.settings.progress = terminal && !options.quiet;
  options.settings.summary = options.summary || (terminal && !options.quiet);
  return cli::run(options.paths, options.settings);
}
