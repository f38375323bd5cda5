#include "header/address.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace {

using opt = std::optional<std::string>;

struct parsed_t {
  opt name;  // dequoted
  opt email; // as written
};

parsed_t parse(std::string const& text) {
  char const* const first = text.data();
  char const* const end = first + text.size();
  char const* position = first;
  auto const [name, email] = header::address_name_and_email_function(position, end);
  EXPECT_EQ(position, end);
  parsed_t result;
  for (auto const* m : {&name, &email}) {
    if (m->found()) {
      EXPECT_TRUE(m->first >= first && m->last <= end && m->first <= m->last) << text;
    }
  }
  if (name.found())
    result.name = header::dequote_string(name.first, name.last);
  if (email.found())
    result.email = std::string(email.first, email.last);
  return result;
}

TEST(address_name_and_email_function, reads_the_forms_real_mail_carries) {
  struct {
    std::string input;
    opt name, email;
  } const cases[] = {
      {"Ann Smith <ann@x>", "Ann Smith", "ann@x"},
      {"  Ann   Smith\t<ann@x>  ", "Ann Smith", "ann@x"},
      {"ann@x (Ann Smith)", "Ann Smith", "ann@x"},
      {"ann@x", std::nullopt, "ann@x"},
      {"<ann@x>", std::nullopt, "ann@x"},
      {"Ann Smith", "Ann Smith", std::nullopt},
      {"ann", std::nullopt, "ann"},
      {"\"Smith, Ann\" <ann@x>", "Smith, Ann", "ann@x"},
      {"\"Smith \\\"Nan\\\" Ann\" <ann@x>", "Smith \"Nan\" Ann", "ann@x"},
      {"'Ann Smith' <ann@x>", "Ann Smith", "ann@x"},
      {"Team:;", "Team", std::nullopt},
      {"Undisclosed recipients: ;", "Undisclosed recipients", std::nullopt},
      {"bob@y <ann@x>", "bob@y", "ann@x"},
      {"ann@x <ann@x>", std::nullopt, "ann@x"},
      {"\"ann@x\" <ann@x>", std::nullopt, "ann@x"},
      {"'ANN@X' <ann@x>", std::nullopt, "ann@x"},
      {"Ann (ann@x) <ann@x>", "Ann", "ann@x"},
      {"Ann ann@x <ann@x>", "Ann", "ann@x"},
      {"ann@x (Ann <ann@x>)", "Ann", "ann@x"},
      {"ann@x (Ann <bob@y>)", "Ann <bob@y>", "ann@x"},
      {"\xE2\x80\xAA <ann@x>", std::nullopt, "ann@x"},
      {"\"Ann <ann@x>", "Ann ", "ann@x"},
      {"Ann <ann@x", "Ann", "ann@x"},
      {"Ann (Work <ann@x>", "Ann (Work", "ann@x"},
      {"ann@x, bob@y", "ann@x,", "bob@y"},
      {"Ann Smith <ann@x> (home)", "Ann Smith", "ann@x"},
      {"<>", std::nullopt, std::nullopt},
      {"   ", std::nullopt, std::nullopt},
      {"", std::nullopt, std::nullopt},
      {"\"\" <ann@x>", std::nullopt, "ann@x"},
  };
  for (auto const& c : cases) {
    parsed_t const got = parse(c.input);
    EXPECT_EQ(got.name, c.name) << c.input;
    EXPECT_EQ(got.email, c.email) << c.input;
  }
}

TEST(address_name_and_email_function, halves_and_url_splitters) {
  std::string const text = "Ann <ann@x>";
  char const* position = text.data();
  auto const name = header::address_name_function(position, text.data() + text.size());
  position = text.data();
  auto const email = header::address_email_function(position, text.data() + text.size());
  EXPECT_EQ(std::string(name.first, name.last), "Ann");
  EXPECT_EQ(std::string(email.first, email.last), "ann@x");

  using splitter_t = header::match_t (*)(char const*&, char const*);
  struct {
    splitter_t split;
    std::string input;
    opt part;
  } const cases[] = {
      {header::mailto_function, "mailto:ann@x", "ann@x"},
      {header::mailto_function, "MAILTO:ann@x", std::nullopt},
      {header::mailto_function, "mailto", std::nullopt},
      {header::protocol_function, "https://h/p", "https"},
      {header::protocol_function, "host", "host"},
      {header::server_function, "https://host.example/a/b", "host.example"},
      {header::server_function, "https://host", "host"},
      {header::server_function, "https:/", std::nullopt},
      {header::server_function, "no slash", std::nullopt},
      {header::path_function, "https://host/a/b", "a/b"},
      {header::path_function, "https://host", std::nullopt},
  };
  for (auto const& c : cases) {
    char const* first = c.input.data();
    char const* const end = first + c.input.size();
    header::match_t const m = c.split(first, end);
    EXPECT_EQ(first, end);
    EXPECT_EQ(m.found() ? opt(std::string(m.first, m.last)) : std::nullopt, c.part) << c.input;
  }
}

TEST(include_unbalanced_symbols, takes_in_what_the_name_leaves_open) {
  std::string const text = "<(\"Ann) x\">";
  char const* first = text.data() + 3; // Ann) x
  char const* last = text.data() + 10;
  header::include_unbalanced_symbols(first, last, text.data(), text.data() + text.size());
  EXPECT_EQ(std::string(first, last), "(\"Ann) x\"");
}

// Openers without their closers must neither recurse nor rescan the rest of
// the value for each of them.
TEST(address_name_and_email_function, hostile_values_stay_linear) {
  std::string const values[] = {
      std::string(1'000'000, '('),
      std::string(1'000'000, '<'),
      std::string(1'000'000, '"'),
      std::string(500'000, '<') + ">",
      "\"" + std::string(200'000, '\\') + std::string(200'000, '"'),
      [] {
        std::string s = "\"";
        for (int i = 0; i < 300'000; ++i)
          s += "\\\"";
        return s;
      }(),
      [] {
        std::string s = "a@b ";
        for (int i = 0; i < 300'000; ++i)
          s += "a@b (";
        return s + std::string(300'000, ')');
      }(),
      std::string(400'000, 'a') + "@ <" + std::string(300'000, 'a') + "@>",
  };
  for (auto const& value : values) {
    auto const got = parse(value);
    (void)got;
  }
  EXPECT_EQ(parse("a@b (a@b (Ann <a@b>))").name, opt("Ann"));
}

} // namespace
