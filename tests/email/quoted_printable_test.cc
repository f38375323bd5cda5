// SPDX-License-Identifier: MIT
#include "email/quoted_printable.h"

#include <gtest/gtest.h>

#include "support.h"
#include "text/format.h"

namespace {

using quern::error::code_t, quern::error::pattern_of;

using decoded_t = std::pair<std::string, std::string>; // text, problems

decoded_t decode(std::string_view input, bool binary) {
  test::exact_buffer_t const buffer(input);
  quern::error::handler_t handler;
  std::string out;
  email::decode_quoted_printable(buffer.begin(), buffer.end(), std::back_inserter(out), &handler, binary);
  return {out, test::problems_of(handler)};
}

// The decoded bytes are compared with a slow reference in
// reference_decoders_test.cc; here, the problems it records.
TEST(decode_quoted_printable, records_one_problem_per_kind_with_contexts) {
  using text::format;
  EXPECT_EQ(decode("0123456789=G0123456789X\nabc=", true).second,
            format(pattern_of<code_t::quoted_printable_unencoded_linefeeds>, std::size_t{1}) + " [123456789X\nabc=]\n" +
                format(pattern_of<code_t::quoted_printable_illegal_equals>, std::size_t{1}) +
                " [0123456789=G01234567]");
  EXPECT_EQ(decode("=x=y", false).second,
            format(pattern_of<code_t::quoted_printable_illegal_equals>, std::size_t{2}) + " [=x=y\n=x=y]");
}

TEST(decode_quoted_printable, a_megabyte_of_equals_signs) {
  std::string const input(1 << 20, '=');
  auto const result = decode(input, false);
  EXPECT_EQ(result.first, std::string(input.size() - 1, '='));
  EXPECT_TRUE(result.second.starts_with(
      text::format(pattern_of<code_t::quoted_printable_illegal_equals>, std::size_t{1048575})));
}

} // namespace
