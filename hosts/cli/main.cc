// tidewell-import: the command-line host of the importer.
//
// Each PATH is imported exactly as the desktop-search host would import it,
// or, with --crlf, as the Tracker host does (CR LF line ends read as LF), and
// the resulting attribute set is printed, either as an mdls-style listing
// or as one JSON object per line. Directories are walked recursively, in
// sorted order, for regular files.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <string>
#include <system_error>
#include <unistd.h>
#include <vector>

#include <boost/json.hpp>

#include "header/format.h"
#include "header/public_suffix.h"
#include "hosts/cli/output.h"
#include "importer/import.h"

namespace {

constexpr char usage[] = R"(Usage: tidewell-import [OPTION]... PATH...
Import e-mail message files as the desktop-search importer does and print
the attributes it sets. A directory PATH is searched recursively for files.

Options:
  --json               print one JSON object per file, one per line:
                       {"path": ..., "imported": ..., "attributes": {...}}
  --content-type UTI   the content type the host announces for every file
                       (default: com.apple.mail.email; any other type is
                       not imported)
  --crlf               read CR LF line ends as LF before importing, as the
                       Tracker host does (by default a CR is content, so a
                       file with CR LF line ends has no end of its headers)
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

The two look-ups may be repeated; they print one "key: value" line per
result (one JSON object per look-up with --json) and take no PATH.

Exit status: 0 when every file could be read, 1 when one could not,
2 for a usage error.
)";

struct lookup_t {
  enum kind_t { format_address, registrable_domain } kind;
  header::name_format_t format;
  std::string text;
};

struct options_t {
  bool json = false;
  bool crlf = false;
  std::string content_type{importer::mail_content_type};
  std::vector<std::string> paths;
  std::vector<lookup_t> lookups;
};

int usage_error(char const* message, char const* argument) {
  std::fprintf(stderr, "tidewell-import: %s%s\nTry 'tidewell-import --help' for more information.\n", message,
               argument);
  return 2;
}

// The files a PATH stands for: itself, or every regular file below it.
std::vector<std::string> expand(std::string const& path, bool& ok) {
  namespace fs = std::filesystem;
  std::error_code error;
  if (!fs::is_directory(path, error))
    return {path};
  std::vector<std::string> files;
  fs::recursive_directory_iterator it(path, fs::directory_options::skip_permission_denied, error);
  for (; !error && it != fs::recursive_directory_iterator(); it.increment(error))
    if (it->is_regular_file(error))
      files.push_back(it->path().string());
  if (error) {
    std::fprintf(stderr, "tidewell-import: %s: %s\n", path.c_str(), error.message().c_str());
    ok = false;
  }
  std::sort(files.begin(), files.end());
  return files;
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

void print_lookup(lookup_t const& lookup, bool json) {
  auto const rows = run_lookup(lookup);
  if (json) {
    boost::json::object object;
    for (auto const& [key, value] : rows)
      object[key] = value;
    std::string const line = boost::json::serialize(object) + "\n";
    std::fwrite(line.data(), 1, line.size(), stdout);
    return;
  }
  for (auto const& [key, value] : rows)
    std::printf("%s: %s\n", key.c_str(), value.c_str());
}

} // namespace

int main(int argc, char** argv) {
  options_t options;
  bool options_done = false;
  for (int i = 1; i < argc; ++i) {
    char const* arg = argv[i];
    if (options_done || arg[0] != '-' || std::strcmp(arg, "-") == 0) {
      options.paths.emplace_back(arg);
    } else if (std::strcmp(arg, "--") == 0) {
      options_done = true;
    } else if (std::strcmp(arg, "--help") == 0) {
      std::fputs(usage, stdout);
      return 0;
    } else if (std::strcmp(arg, "--version") == 0) {
      std::printf("tidewell-import %s\n", TIDEWELL_VERSION);
      return 0;
    } else if (std::strcmp(arg, "--json") == 0) {
      options.json = true;
    } else if (std::strcmp(arg, "--crlf") == 0) {
      options.crlf = true;
    } else if (std::strcmp(arg, "--content-type") == 0) {
      if (++i == argc)
        return usage_error("option requires an argument: ", arg);
      options.content_type = argv[i];
    } else if (std::strncmp(arg, "--content-type=", 15) == 0) {
      options.content_type = arg + 15;
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
  if (!options.lookups.empty()) {
    if (!options.paths.empty())
      return usage_error("PATH cannot be combined with a look-up: ", options.paths.front().c_str());
    for (lookup_t const& lookup : options.lookups)
      print_lookup(lookup, options.json);
    std::fflush(stdout);
    return 0;
  }
  if (options.paths.empty())
    return usage_error("no PATH given", "");

  // Records are written in large blocks to a file or pipe; a terminal keeps
  // its line buffering.
  if (!::isatty(STDOUT_FILENO))
    std::setvbuf(stdout, nullptr, _IOFBF, 1 << 16);
  bool all_read = true;
  for (std::string const& given : options.paths) {
    for (std::string const& path : expand(given, all_read)) {
      cli::record_t record{path, false, {}};
      record.imported = options.content_type == importer::mail_content_type;
      if (record.imported) {
        bool readable = false;
        importer::import_file(path, record.attributes, &readable,
                              options.crlf ? importer::line_ends_t::crlf_as_lf : importer::line_ends_t::as_stored);
        all_read = all_read && readable;
      }
      std::string const out = options.json ? cli::to_json_line(record) : cli::to_listing(record);
      std::fwrite(out.data(), 1, out.size(), stdout);
    }
  }
  std::fflush(stdout);
  return all_read ? 0 : 1;
}
