// Reading one whole file into a buffer that is kept for the next file.
//
// The Linux hosts and the command-line host import many files one after the
// other; reading each into the same buffer costs less than mapping it (no page
// table set-up and tear-down, no TLB shootdowns when several threads unmap),
// and the buffer only grows to the largest file seen. The desktop plug-in keeps
// its mapping (file_mmap_t). Failures are reported on standard error with the
// failing call's name, and an empty file gets the same warning as a mapping.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace importer {

class file_reader_t {
public:
  // Reads the whole file at path, as much of it as fstat announced. False when
  // it could not be opened or read; then size() is 0. An empty file is read
  // (true, size 0).
  bool read(std::string const& path);

  char const* data() const { return buffer_.data(); }
  std::size_t size() const { return size_; }

private:
  std::vector<char> buffer_; // only grows; size_ bytes of it hold the file
  std::size_t size_ = 0;
};

} // namespace importer
