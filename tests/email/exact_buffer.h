// A heap copy of a test input with no slack after its last byte, so that a
// parser reading past the end of its range trips AddressSanitizer.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string_view>

namespace test {

class exact_buffer_t {
public:
  explicit exact_buffer_t(std::string_view text) : data_(new char[text.size()]), size_(text.size()) {
    std::copy(text.begin(), text.end(), data_.get());
  }
  char const* begin() const { return data_.get(); }
  char const* end() const { return data_.get() + size_; }

private:
  std::unique_ptr<char[]> data_;
  std::size_t size_;
};

} // namespace test
