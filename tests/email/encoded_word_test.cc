#include "email/encoded_word.h"

#include <gtest/gtest.h>

namespace {

std::string decode(std::string const& value, quern::error::handler_t* problems = nullptr,
                   std::string const& charset = "") {
  std::string out;
  email::decode_header_line(value.data(), value.data() + value.size(), std::back_inserter(out), problems, charset);
  return out;
}

struct decode_case_t {
  std::string input;
  std::string expected;
};

TEST(decode_header_line, decodes_and_joins_words) {
  decode_case_t const cases[] = {
      {"", ""},
      {"Hello world", "Hello world"},
      {"=?utf-8?q?a?= =?utf-8?q?b?=", "ab"},
      {"=?utf-8?q?a?= x =?utf-8?q?b?=", "a x b"},
      {"=?utf-8?q?a?= =?iso-8859-1?q?b?=", "ab"},
      {"=?UTF-8?Q?a?=\n\t=?utf-8?q?b?=", "ab"},
      {"=?utf-8?q?a_b?=", "a b"},
      {"=?utf-8?q?=5F?=", "_"},
      {"=?utf-8*en?q?x?=", "=?utf-8*en?q?x?="},
      {"=?utf-8?x?abc?=", "=?utf-8?x?abc?="},
      {"=??q?abc?=", "abc"},
      {"=?utf-8?b?w6k=?=x", "\xC3\xA9x"},
      {"=?=?utf-8?q?x?=", "=?x"},
      {"=?utf-8?b?a\tb?=", "=?utf-8?b?a\tb?="},
      {"=?utf-8?q?a\tb?=", "a\tb"},
      {"Re: =?ISO-8859-1?Q?J=FCrgen?= Wei=DF", "Re: J\xC3\xBCrgen Wei=DF"},
      // A character split across two words comes out whole once merged.
      {"=?utf-8?b?w6?= =?utf-8?b?k=?=", "\xC3\xA9"},
      {"=?iso-8859-1?q?caf=E9?= =?'utf-8'?q?=C3=A9?=", "caf\xC3\xA9\xC3\xA9"},
      {"=?utf-8?q?unterminated", "=?utf-8?q?unterminated"},
      {"a =?utf-8?q?b", "a =?utf-8?q?b"},
  };
  for (auto const& c : cases)
    EXPECT_EQ(decode(c.input), c.expected) << testing::PrintToString(c.input);
}

TEST(decode_header_line, declared_charset_applies_outside_words) {
  EXPECT_EQ(decode("caf\xE9 =?utf-8?q?x?= caf\xE9", nullptr, "iso-8859-1"), "caf\xC3\xA9 x caf\xC3\xA9");
  // Undeclared 8-bit text that is not UTF-8 falls back to ISO-8859-1.
  EXPECT_EQ(decode("M\xFCller"), "M\xC3\xBCller");
  EXPECT_EQ(decode("M\xC3\xBCller"), "M\xC3\xBCller");
}

TEST(decode_header_line, reports_repairs_once) {
  struct {
    std::string input;
    std::string description;
    std::string context;
  } const cases[] = {
      {"=??q?abc?=", "Non-existing charset (UTF-8 assumed)", "utf8"},
      {"=?'UTF-8'?q?abc?=", "Single quotes around charset ignored", "'utf-8'"},
      {"=?utf-8?q?a\tb?=", "Quoted-printable encoded word contains one or more illegal characters",
       "=?utf-8?q?a\\tb?="},
      {"=?utf-8?q?a b?=", "Quoted-printable encoded word contains one or more spaces", "a b"},
  };
  for (auto const& c : cases) {
    quern::error::handler_t problems;
    decode(c.input, &problems);
    std::vector<quern::error::record_t> records;
    problems.get_errors({}, records);
    ASSERT_EQ(records.size(), 1u) << c.input;
    EXPECT_EQ(records[0], (quern::error::record_t{{"description", c.description}, {"context", c.context}}));
  }
}

TEST(find_encoded_word, locates_fields) {
  std::string const value = "x =?ISO-8859-1?B?QQ==?= y";
  auto const word = email::find_encoded_word(value.data(), value.data() + value.size(), nullptr);
  ASSERT_NE(word.last, nullptr);
  EXPECT_EQ(word.first - value.data(), 2);
  EXPECT_EQ(std::string(word.text_first, word.text_last), "QQ==");
  EXPECT_EQ(word.last - value.data(), 23);
  EXPECT_EQ(word.encoding, 'b');
  EXPECT_EQ(word.charset, "iso-8859-1");
  for (std::string const miss : {"", "=", "=?", "=?utf-8", "=?utf-8?", "=?utf-8?q", "=?utf-8?q?", "=?utf-8?q?x",
                                 "=?utf-8?q?x?", "=?utf\xC3\xA9?q?x?="}) {
    EXPECT_EQ(email::find_encoded_word(miss.data(), miss.data() + miss.size(), nullptr).last, nullptr) << miss;
  }
}

TEST(merge_encoded_words, keeps_the_first_spelling) {
  std::string const value = "a =?UTF-8?Q?x?= =?utf-8?q?y?= b =?utf-8?b?eg==?=";
  std::string out;
  ASSERT_TRUE(email::merge_encoded_words(value.data(), value.data() + value.size(), out));
  EXPECT_EQ(out, "a =?UTF-8?Q?xy?= b =?utf-8?b?eg==?=");
  std::string const single = "=?utf-8?q?x?= y =?utf-8?q?z?=";
  out.clear();
  EXPECT_FALSE(email::merge_encoded_words(single.data(), single.data() + single.size(), out));
}

} // namespace
