// SPDX-License-Identifier: MIT
#include "importer/file_mmap.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <sys/mman.h>
#include <sys/stat.h>

namespace importer {
namespace {

// Pages of a mail file are read once; telling the kernel not to keep them
// cached is the platform's no-cache flag where it has one.
#ifdef MAP_NOCACHE
constexpr int map_flags = MAP_SHARED | MAP_NOCACHE;
#else
constexpr int map_flags = MAP_SHARED;
#endif

} // namespace

file_mmap_t::file_mmap_t(std::string const& path) {
  std::FILE* file = std::fopen(path.c_str(), "r");
  if (!file) {
    std::perror("fopen");
    return;
  }
  struct stat info;
  if (::fstat(fileno(file), &info) != 0) {
    std::perror("fstat");
    std::fclose(file);
    return;
  }
  size_ = static_cast<std::size_t>(info.st_size);
  if (size_ == 0) {
    std::fprintf(stderr, "Warning: Trying to map file of length 0 (%s).\n", path.c_str());
    readable_ = true;
    std::fclose(file);
    return;
  }
  void* mapped = ::mmap(nullptr, size_, PROT_READ, map_flags, fileno(file), 0);
  if (mapped == MAP_FAILED) {
    int const error = errno;
    std::perror("mmap");
    if (error == ENOMEM) {
      std::fprintf(stderr, "ENOMEM: Unsuccessfully tried to map '%s' (%zu)\n", path.c_str(), size_);
      std::abort();
    }
  } else {
    data_ = static_cast<char const*>(mapped);
    readable_ = true;
  }
  std::fclose(file);
}

file_mmap_t::~file_mmap_t() {
  if (data_ && ::munmap(const_cast<char*>(data_), size_) != 0)
    std::perror("munmap");
}

} // namespace importer
