#include "header/public_suffix.h"

#include <gtest/gtest.h>

namespace {

std::string part(header::match_t (*level)(char const*&, char const*), std::string const& host) {
  char const* position = host.data();
  header::match_t const m = level(position, host.data() + host.size());
  EXPECT_EQ(position, host.data() + host.size());
  return m.found() ? std::string(m.first, m.last) : "-";
}

TEST(public_suffix, cuts_hosts_into_levels) {
  struct {
    std::string host, top, second, third;
  } const cases[] = {
      {"news.bbc.co.uk", "co.uk", "bbc", "news"},
      {"a.b.example.com", "com", "example", "b"},
      {"me.github.io", "github.io", "me", "-"},       // private section
      {"x.y.blogspot.com", "blogspot.com", "y", "x"}, // private section
      {"city.kawasaki.jp", "kawasaki.jp", "city", "-"},
      {"www.ck", "ck", "www", "-"}, // exception to *.ck
      {"shop.x.ck", "x.ck", "shop", "-"},
      {"co.uk", "co.uk", "-", "-"},
      {"localhost", "localhost", "-", "-"},
      {"", "-", "-", "-"},
      {"a..co.uk", "co.uk", "-", "-"},
  };
  for (auto const& c : cases) {
    EXPECT_EQ(part(header::psl_top_level_function, c.host), c.top) << c.host;
    EXPECT_EQ(part(header::psl_second_level_function, c.host), c.second) << c.host;
    EXPECT_EQ(part(header::psl_third_level_function, c.host), c.third) << c.host;
  }
  std::string const host = "mail.example.org";
  char const* first = host.data();
  EXPECT_EQ(header::get_public_suffix(first, host.data() + host.size()), host.data() + 13);
}

} // namespace
