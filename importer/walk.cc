// SPDX-License-Identifier: MIT
#include "importer/walk.h"

#include <algorithm>
#include <dirent.h>
#include <set>
#include <sys/stat.h>
#include <system_error>
#include <utility>

namespace tidewell {
namespace {

std::string reason(int error) {
  return std::error_code(error, std::generic_category()).message();
}

std::string join(std::string const& folder, std::string const& name) {
  std::string path;
  path.reserve(folder.size() + 1 + name.size());
  path += folder;
  if (!folder.empty() && folder.back() != '/')
    path += '/';
  path += name;
  return path;
}

bool is_folder(std::string const& path) {
  struct stat info;
  return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool is_maildir(std::string const& folder) {
  return is_folder(join(folder, "cur")) && is_folder(join(folder, "new")) && is_folder(join(folder, "tmp"));
}

// One name in a folder and the type readdir gave it (DT_UNKNOWN where the
// file system does not say).
struct entry_t {
  std::string name;
  unsigned char type;
};

// The entries of a folder, without "." and "..", or the errno of the failure.
int list(std::string const& folder, std::vector<entry_t>& entries) {
  DIR* dir = ::opendir(folder.c_str());
  if (!dir)
    return errno;
  errno = 0;
  while (dirent const* entry = ::readdir(dir)) {
    std::string name = entry->d_name;
    if (name != "." && name != "..")
      entries.push_back({std::move(name), entry->d_type});
    errno = 0;
  }
  int const error = errno;
  ::closedir(dir);
  return error;
}

class walker_t {
public:
  walker_t(std::vector<source_t>& sources, walk_counts_t& counts, bool sizes, stop_t const& stop)
      : sources_(sources), counts_(counts), sizes_(sizes), stop_(stop) {}

  void walk(std::string const& root) {
    struct stat info;
    if (::stat(root.c_str(), &info) == 0)
      seen_.insert({info.st_dev, info.st_ino});
    pending_.push_back(root);
    while (!pending_.empty() && !(stop_ && stop_())) {
      std::string folder = std::move(pending_.back());
      pending_.pop_back();
      visit(folder);
    }
  }

private:
  enum class role_t { any, messages_only };

  void visit(std::string const& folder) {
    std::vector<entry_t> names;
    if (int const error = list(folder, names)) {
      sources_.push_back({folder, reason(error), 0, false, true});
      return;
    }
    if (!is_maildir(folder)) {
      take(folder, names, role_t::any);
      return;
    }
    for (char const* messages : {"cur", "new"}) {
      std::string const path = join(folder, messages);
      std::vector<entry_t> files;
      if (int const error = list(path, files))
        sources_.push_back({path, reason(error), 0, false, true});
      else
        take(path, files, role_t::messages_only);
    }
    // Beside the three folders a Maildir may hold Maildir++ subfolders
    // (hidden) and nested Maildirs (mu, offlineimap); its own files are
    // bookkeeping of the mail program.
    for (auto const& [name, type] : names) {
      if (name == "cur" || name == "new" || name == "tmp" || is_ignored_name(name))
        continue;
      std::string const path = join(folder, name);
      if (name[0] == '.' ? is_maildir(path) : is_folder(path))
        enter(path);
    }
  }

  // Takes the regular files among names and, unless only messages are
  // wanted, walks the folders. A file readdir calls regular is taken without
  // a stat unless its size is wanted: on a large tree the walk is the part
  // of the run that no second job can share.
  //
  // The names are sorted first, so that the files of a folder arrive in path
  // order and expand need not sort the paths again when one folder holds
  // them all: names are short enough to compare without touching the heap,
  // and paths are not.
  void take(std::string const& folder, std::vector<entry_t>& names, role_t role) {
    std::sort(names.begin(), names.end(), [](entry_t const& a, entry_t const& b) { return a.name < b.name; });
    sources_.reserve(sources_.size() + names.size());
    for (auto const& [name, type] : names) {
      if (name[0] == '.' || is_ignored_name(name))
        continue;
      std::string path = join(folder, name);
      if (type == DT_REG && !sizes_) {
        sources_.push_back({std::move(path), {}, 0, true});
        continue;
      }
      if (type == DT_FIFO || type == DT_SOCK || type == DT_CHR || type == DT_BLK) {
        ++counts_.skipped;
        continue;
      }
      struct stat info;
      if (::stat(path.c_str(), &info) != 0) {
        // A dangling link: reading it reports why.
        sources_.push_back({path, {}, 0});
      } else if (S_ISREG(info.st_mode)) {
        sources_.push_back({path, {}, static_cast<std::uint64_t>(info.st_size), true});
      } else if (S_ISDIR(info.st_mode)) {
        if (role == role_t::any && seen_.insert({info.st_dev, info.st_ino}).second)
          pending_.push_back(path);
      } else {
        ++counts_.skipped;
      }
    }
  }

  void enter(std::string const& path) {
    struct stat info;
    if (::stat(path.c_str(), &info) == 0 && seen_.insert({info.st_dev, info.st_ino}).second)
      pending_.push_back(path);
  }

  std::vector<source_t>& sources_;
  walk_counts_t& counts_;
  bool const sizes_;
  stop_t const& stop_;
  std::vector<std::string> pending_;
  std::set<std::pair<dev_t, ino_t>> seen_;
};

} // namespace

bool is_ignored_name(std::string const& name) {
  return name.starts_with("dovecot") || name == ".notmuch" || name == ".mu";
}

void expand(std::string const& path, std::vector<source_t>& sources, walk_counts_t& counts, bool sizes,
            stop_t const& stop) {
  struct stat info;
  bool const found = path != "-" && ::stat(path.c_str(), &info) == 0;
  if (!found || !S_ISDIR(info.st_mode)) {
    bool const regular = found && S_ISREG(info.st_mode);
    sources.push_back({path, {}, regular ? static_cast<std::uint64_t>(info.st_size) : 0, regular});
    return;
  }
  std::size_t const first = sources.size();
  walker_t(sources, counts, sizes, stop).walk(path);
  auto const by_path = [](source_t const& a, source_t const& b) { return a.path < b.path; };
  auto const start = sources.begin() + static_cast<std::ptrdiff_t>(first);
  if (!std::is_sorted(start, sources.end(), by_path))
    std::sort(start, sources.end(), by_path);
}

} // namespace tidewell
