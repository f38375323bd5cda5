// SPDX-License-Identifier: MIT
#include "error/handler.h"

#include <gtest/gtest.h>

using quern::error::handler_t;
using quern::error::record_t;

TEST(handler, outermost_context_wins_and_own_keys_win_over_contexts) {
  handler_t handler;
  handler.push_context({{"context", "outer"}, {"part", "1"}});
  handler.push_context({{"context", "inner"}, {"charset", "utf-8"}});
  handler.push_back({{"description", "a"}});
  handler.push_back({{"description", "b"}, {"context", "own"}});
  handler.pop_context();
  handler.push_back({{"description", "c"}});
  handler.pop_context();
  handler.push_back({{"description", "d"}});

  std::vector<record_t> out;
  handler.get_errors({}, out);
  ASSERT_EQ(out.size(), 4u);
  EXPECT_EQ(out[0], (record_t{{"description", "a"}, {"context", "outer"}, {"part", "1"}, {"charset", "utf-8"}}));
  EXPECT_EQ(out[1].at("context"), "own");
  EXPECT_EQ(out[2], (record_t{{"description", "c"}, {"context", "outer"}, {"part", "1"}}));
  EXPECT_EQ(out[3], (record_t{{"description", "d"}}));
}
