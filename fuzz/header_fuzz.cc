// Any bytes as one unstructured header value.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "email/encoded_word.h"
#include "error/handler.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::vector<char> const value(data, data + size);
  quern::error::handler_t problems;
  std::string out;
  email::decode_header_line(value.data(), value.data() + value.size(), std::back_inserter(out), &problems, "");
  return 0;
}
