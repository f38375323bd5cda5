// Encoded-word decoding of unstructured header values.
//
// PLACEHOLDER: copies the value unchanged until RFC 2047 decoding and the
// conversion to UTF-8 land. The signature is the final one.
#pragma once

#include <algorithm>
#include <functional>
#include <string>

#include "error/handler.h"

namespace email {

inline std::string default_fallback_charset() { return "iso-8859-1"; }

template <typename InputIt, typename OutputIt>
OutputIt decode_header_line(InputIt first, InputIt last, OutputIt out, quern::error::handler_t* /*problems*/,
                            std::string const& /*charset*/,
                            std::function<std::string()> const& /*fallback_charset*/ = default_fallback_charset) {
  return std::copy(first, last, out);
}

} // namespace email
