#include "header/format.h"

#include <gtest/gtest.h>

namespace {

using header::name_format_t;

TEST(format_name_and_address, writes_each_form) {
  struct {
    std::string name, address;
    name_format_t format;
    std::string text;
  } const cases[] = {
      {"John Smith", "js@x", name_format_t::rfc822, "John Smith <js@x>"},
      {"Smith, John", "js@x", name_format_t::rfc822, "\"Smith, John\" <js@x>"},
      {"J. \"Jo\" Smith", "js@x", name_format_t::rfc822, "\"J. \\\"Jo\\\" Smith\" <js@x>"},
      {"O'Neil-Smith_\\", "js@x", name_format_t::rfc822, "\"O'Neil-Smith_\\\\\" <js@x>"},
      {"Jean-Luc_B", "jl@x", name_format_t::rfc822, "Jean-Luc_B <jl@x>"},
      {"Smith, John", "js@x", name_format_t::display, "Smith, John <js@x>"},
      {"Smith, John", "js@x", name_format_t::angle_split, "Smith, John <js@x>"},
      {"js@x \"home\"", "js@x", name_format_t::angle_split, "\"js@x \"\"home\"\"\" <js@x>"},
      {" \t\r\n", " js@x\n", name_format_t::rfc822, "js@x"},
      {"", "", name_format_t::rfc822, ""},
      {" Ann ", "", name_format_t::angle_split, "Ann <>"},
      {"Ann", "a@x", static_cast<name_format_t>(7), "Ann <a@x>"},
  };
  for (auto const& c : cases)
    EXPECT_EQ(header::format_name_and_address(c.name, c.address, c.format), c.text) << c.name;
}

TEST(split_name_and_address, reads_rfc822_and_angle_split) {
  using pair = std::pair<std::string, std::string>;
  struct {
    std::string text;
    name_format_t format;
    pair parts;
  } const cases[] = {
      {"\"Smith, John\" <js@x>", name_format_t::rfc822, {"Smith, John", "js@x"}},
      {"js@x (John)", name_format_t::rfc822, {"John", "js@x"}},
      {"John Smith", name_format_t::rfc822, {"", "John Smith"}},
      {"js@x", name_format_t::angle_split, {"", "js@x"}},
      {"  Ann  <a@x> ", name_format_t::angle_split, {"Ann", "a@x"}},
      {"Ann <a@x", name_format_t::angle_split, {"Ann", "a@x"}},
      {"Ann > <a@x", name_format_t::angle_split, {"Ann >", "a@x"}},
      {"\"a\"\"b\" c <x>", name_format_t::angle_split, {"a\"b c", "x"}},
      {"x", static_cast<name_format_t>(7), {"", ""}},
  };
  for (auto const& c : cases)
    EXPECT_EQ(header::split_name_and_address(c.text, c.format), c.parts) << c.text;
}

TEST(split_name_and_address, names_survive_a_round_trip) {
  std::string const names[] = {"Ann",   "Smith, Ann",       "ann@x", "\"Ann\" <ann@x>", "a\"\"b@",
                               "<>@\"", "Ann \"The\" Smith"};
  for (auto const& name : names) {
    std::string const angle = header::format_name_and_address(name, "ann@x", name_format_t::angle_split);
    EXPECT_EQ(header::split_name_and_address(angle, name_format_t::angle_split), std::pair(name, std::string("ann@x")))
        << angle;
  }
  for (std::string const name : {"Smith, Ann", "Ann \"The\" Smith", "A. (B) \\C"}) {
    std::string const rfc822 = header::format_name_and_address(name, "ann@x", name_format_t::rfc822);
    EXPECT_EQ(header::split_name_and_address(rfc822, name_format_t::rfc822), std::pair(name, std::string("ann@x")))
        << rfc822;
  }
  EXPECT_EQ(header::reformat_name_and_address("\"Smith, Ann\" <a@x>", name_format_t::rfc822, name_format_t::display),
            "Smith, Ann <a@x>");
}

TEST(split_name_and_address_death, display_form_is_one_way) {
  EXPECT_DEATH(header::split_name_and_address("Ann <a@x>", name_format_t::display),
               "Fatal: Unexpectedly asked to convert name/adress in display format");
}

} // namespace
