// SPDX-License-Identifier: MIT
// Quoted-printable support that needs no template: the hex digit rule and the
// problem records. The records are built once per call from the occurrence
// lists the decoder gathered, so a part with thousands of bad escapes still
// produces one record per kind, its contexts joined by line feeds.
#include "email/quoted_printable.h"

#include <boost/algorithm/string/join.hpp>

#include "text/format.h"

namespace email {
unsigned char hex_to_int(char c) {
  if (c >= '0' && c <= '9')
    return static_cast<unsigned char>(c - '0');
  if (c >= 'A' && c <= 'F')
    return static_cast<unsigned char>(c - 'A' + 10);
  if (c >= 'a' && c <= 'f')
    return static_cast<unsigned char>(c - 'a' + 10);
  return invalid_hex_digit;
}

namespace detail {

void report_quoted_printable_problems(quern::error::handler_t& problems, std::vector<std::string> const& linefeeds,
                                      std::vector<std::string> const& illegal_equals) {
  using quern::error::code_t, quern::error::pattern_of;
  if (!linefeeds.empty()) {
    problems.push_back(
        code_t::quoted_printable_unencoded_linefeeds,
        {{"description", text::format(pattern_of<code_t::quoted_printable_unencoded_linefeeds>, linefeeds.size())},
         {"context", boost::algorithm::join(linefeeds, "\n")}});
  }
  if (!illegal_equals.empty()) {
    problems.push_back(
        code_t::quoted_printable_illegal_equals,
        {{"description", text::format(pattern_of<code_t::quoted_printable_illegal_equals>, illegal_equals.size())},
         {"context", boost::algorithm::join(illegal_equals, "\n")}});
  }
}

} // namespace detail
} // namespace email
