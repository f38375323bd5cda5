#include "importer/file_read.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace importer {

bool file_reader_t::read(std::string const& path) {
  size_ = 0;
  int const fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    std::perror("open");
    return false;
  }
  struct stat info;
  if (::fstat(fd, &info) != 0) {
    std::perror("fstat");
    ::close(fd);
    return false;
  }
  auto const expected = static_cast<std::size_t>(info.st_size);
  if (expected == 0) {
    std::fprintf(stderr, "Warning: Trying to map file of length 0 (%s).\n", path.c_str());
    ::close(fd);
    return true;
  }
  // A file that changes while it is read is taken as fstat saw its length,
  // or shorter: a mapping would not see past that length either.
  if (buffer_.size() < expected)
    buffer_.resize(expected);
  std::size_t got = 0;
  while (got < expected) {
    ssize_t const n = ::read(fd, buffer_.data() + got, expected - got);
    if (n < 0 && errno == EINTR)
      continue;
    if (n < 0) {
      std::perror("read");
      ::close(fd);
      return false;
    }
    if (n == 0)
      break;
    got += static_cast<std::size_t>(n);
  }
  ::close(fd);
  size_ = got;
  return true;
}

} // namespace importer
