// SPDX-License-Identifier: MIT
#include "error/handler.h"

#include <set>
#include <string>

#include <gtest/gtest.h>

#include "text/format.h"

namespace {

using quern::error::code_t;
using quern::error::handler_t;
using quern::error::offset_scope_t;
using quern::error::record_t;
using quern::error::to_s;

TEST(handler, outermost_context_wins_and_own_keys_win_over_contexts) {
  handler_t handler;
  handler.push_context({{"context", "outer"}, {"part", "1"}});
  handler.push_context({{"context", "inner"}, {"charset", "utf-8"}});
  handler.push_back(code_t::date_dash, {{"description", "Non-standard use of '-' ignored"}});
  handler.push_back(code_t::date_dash, {{"context", "own"}});
  handler.pop_context();
  handler.push_back(code_t::charset_cesu8, {});
  handler.pop_context();
  handler.push_back(code_t::multipart_no_closing_boundary, {});

  std::vector<record_t> out;
  handler.get_errors({}, out);
  ASSERT_EQ(out.size(), 4u);
  std::string const dash(text_of(code_t::date_dash));
  EXPECT_EQ(out[0], (record_t{{"description", dash}, {"context", "outer"}, {"part", "1"}, {"charset", "utf-8"}}));
  EXPECT_EQ(out[1].at("context"), "own");
  EXPECT_EQ(
      out[2],
      (record_t{{"description", std::string(text_of(code_t::charset_cesu8))}, {"context", "outer"}, {"part", "1"}}));
  EXPECT_EQ(out[3], (record_t{{"description", "No closing MIME boundary found"}}));
}

// Codes are what programs read: each has a text to print and a name of its
// own that leads back to it, spelt as a JSON key can be.
TEST(problems, every_code_has_a_text_and_a_name_that_leads_back) {
  std::set<std::string_view> names;
  for (std::size_t i = 0; i != quern::error::code_count; ++i) {
    auto const code = static_cast<code_t>(i);
    std::string_view const name = name_of(code);
    SCOPED_TRACE(std::string(name));
    EXPECT_FALSE(text_of(code).empty());
    EXPECT_TRUE(names.insert(name).second);
    EXPECT_EQ(name.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789_"), name.npos);
    EXPECT_EQ(quern::error::code_named(name), code);
  }
  EXPECT_EQ(name_of(code_t::date_dash), "date_dash");
  EXPECT_EQ(quern::error::code_named("date"), std::nullopt);
  EXPECT_EQ(quern::error::code_named(""), std::nullopt);
}

// Each problem keeps the offset current when it was pushed; a scope puts the
// outer offset back, so an inner walker cannot leave its own behind.
TEST(handler, problems_keep_the_offset_current_when_pushed) {
  handler_t handler;
  handler.push_back(code_t::date_dash, {});
  handler.set_offset(120);
  handler.push_back(code_t::date_unknown_zone, {});
  {
    offset_scope_t part(&handler, 4096);
    handler.push_back(code_t::base64_passed_through,
                      {{"description", text::format("Passed through %zu", std::size_t{3})}});
    {
      offset_scope_t inner(&handler, 5000);
      handler.push_back(code_t::charset_cesu8, {});
    }
    handler.push_back(code_t::charset_unknown, {});
  }
  handler.push_back(code_t::date_dash, {});
  offset_scope_t nobody(nullptr, 7); // a null handler is allowed and untouched

  std::vector<std::pair<code_t, std::size_t>> stamped;
  for (auto const& entry : handler.entries())
    stamped.emplace_back(entry.code, entry.offset);
  EXPECT_EQ(stamped, (std::vector<std::pair<code_t, std::size_t>>{{code_t::date_dash, 0},
                                                                  {code_t::date_unknown_zone, 120},
                                                                  {code_t::base64_passed_through, 4096},
                                                                  {code_t::charset_cesu8, 5000},
                                                                  {code_t::charset_unknown, 4096},
                                                                  {code_t::date_dash, 120}}));
  EXPECT_EQ(handler.offset(), 120u);
}

// The command-line tool prints records with to_s: a record pushed under a
// code must print as it did before codes existed.
TEST(handler, records_pushed_with_a_code_print_as_before) {
  handler_t handler;
  handler.push_back(code_t::multipart_no_closing_boundary, {{"context", "--a"}});
  handler.push_back(code_t::charset_unknown, {{"from_charset", "x"}, {"to_charset", "UTF-8"}, {"#priority", "low"}});
  std::vector<record_t> out;
  handler.get_errors({{"offset", "9"}}, out);
  ASSERT_EQ(out.size(), 2u);
  EXPECT_EQ(to_s(out[0]), "{ context : --a }, { description : No closing MIME boundary found }");
  EXPECT_EQ(to_s(out[1]), "{ #priority : low }, { description : Unknown charset specified for conversion (iconv) }, "
                          "{ from_charset : x }, { offset : 9 }, { to_charset : UTF-8 }");
  testing::internal::CaptureStderr();
  handler.dump();
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "{ context : --a }, { description : No closing MIME boundary found }\n"
            "{ #priority : low }, { description : Unknown charset specified for conversion (iconv) }, "
            "{ from_charset : x }, { to_charset : UTF-8 }\n");
}

} // namespace
