// SPDX-License-Identifier: MIT
#include "text/line_ends.h"

#include <iterator>
#include <string>

#include <gtest/gtest.h>

namespace {

TEST(line_ends, only_the_cr_of_a_crlf_pair_is_dropped) {
  struct row_t {
    std::string_view in, out;
    bool has_crlf;
  };
  for (auto const& row : std::vector<row_t>{{"", "", false},
                                            {"a\r\nb\r\n\r\nc", "a\nb\n\nc", true},
                                            {"a\nb\n", "a\nb\n", false},
                                            {"lone\rcr", "lone\rcr", false},
                                            {"ends in cr\r", "ends in cr\r", false},
                                            {"\r\r\n\n\r", "\r\n\n\r", true},
                                            {"\r\n", "\n", true}}) {
    std::string out;
    text::crlf_to_lf(row.in.data(), row.in.data() + row.in.size(), std::back_inserter(out));
    EXPECT_EQ(out, row.out) << row.in;
    EXPECT_EQ(text::has_crlf(row.in.data(), row.in.data() + row.in.size()), row.has_crlf) << row.in;
  }
}

} // namespace
