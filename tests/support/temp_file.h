// SPDX-License-Identifier: MIT
// A file with given bytes that lives as long as the object.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <unistd.h>

namespace test_support {

class temp_file_t {
public:
  explicit temp_file_t(std::string const& bytes) {
    char name[] = "/tmp/tidewell-test-XXXXXX";
    ::close(::mkstemp(name));
    path_ = name;
    std::ofstream(path_, std::ios::binary) << bytes;
  }
  ~temp_file_t() { std::remove(path_.c_str()); }
  temp_file_t(temp_file_t const&) = delete;
  temp_file_t& operator=(temp_file_t const&) = delete;
  std::string const& path() const { return path_; }

private:
  std::string path_;
};

} // namespace test_support
