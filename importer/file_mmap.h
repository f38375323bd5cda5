// SPDX-License-Identifier: MIT
// A read-only view of one whole file.
#pragma once

#include <cstddef>
#include <string>

namespace importer {

// Maps the whole file read-only on construction and unmaps on destruction.
// Failures are reported on standard error and leave data() null; size() is
// the size fstat reported, so a failed mapping of a non-empty file has a null
// data() with a non-zero size(). Running out of address space for the mapping
// aborts the process: that is deliberate, nothing sensible can follow.
class file_mmap_t {
public:
  file_mmap_t() = default;
  explicit file_mmap_t(std::string const& path);
  ~file_mmap_t();
  file_mmap_t(file_mmap_t const&) = delete;
  file_mmap_t& operator=(file_mmap_t const&) = delete;

  char const* data() const { return data_; }
  std::size_t size() const { return size_; }
  // True when the file was opened and is either empty or mapped whole.
  bool readable() const { return readable_; }

private:
  bool readable_ = false;
  char const* data_ = nullptr;
  std::size_t size_ = 0;
};

} // namespace importer
