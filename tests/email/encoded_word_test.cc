// SPDX-License-Identifier: MIT
#include "email/encoded_word.h"

#include <gtest/gtest.h>

#include "charset/convert.h"
#include "support.h"
#include "text/format.h"

namespace {

using quern::error::code_t, quern::error::pattern_of;

using namespace email;
using namespace std::string_literals;

TEST(decode_header_line, decodes_joins_and_reports) {
  std::string const jis_cut =
      std::string(text_of(code_t::charset_incomplete_sequence)) + " (iconv / iso-2022-jp-3) [{1B}$B$3{10}]"s;
  std::tuple<std::string, std::string, std::string> const cases[] = {
      // input, expected, problems
      {"=?utf-8?q?a?= x =?utf-8?q?b?=", "a x b", ""},
      {"=?utf-8?b?w6?= =?utf-8?b?k=?=", "\xC3\xA9", ""}, // a character split across two words comes out whole
      {"=?utf-8*en?q?x?= =?utf-8?x?abc?=", "=?utf-8*en?q?x?= =?utf-8?x?abc?=", ""},
      {"=?=?utf-8?q?x?=", "=?x", ""},
      {"=?utf-8?b?a\tb?=", "=?utf-8?b?a\tb?=", ""},
      {"Re: =?ISO-8859-1?Q?J=FCrgen?= Wei=DF", "Re: J\xC3\xBCrgen Wei=DF", ""},
      {"=?utf-8?q?x?= M\xFCller", "x M\xC3\xBCller",
       std::string(text_of(code_t::charset_eight_bit_undeclared)) +
           text::format(pattern_of<code_t::charset_fallback>, "ISO-8859-1") +
           " [ M{FC}ller]"}, // undeclared 8-bit text: ISO-8859-1
      {"=??q?abc?=", "abc", std::string(text_of(code_t::encoded_word_empty_charset)) + " [utf8]"s},
      {"=?iso-8859-1?q?caf=E9?= =?'UTF-8'?q?=C3=A9?=", "caf\xC3\xA9\xC3\xA9",
       std::string(text_of(code_t::encoded_word_quoted_charset)) + " ['utf-8']"s},
      {"=?utf-8?q?a\tb?=", "a\tb", std::string(text_of(code_t::encoded_word_illegal_in_q)) + " [=?utf-8?q?a\\tb?=]"s},
      {"=?utf-8?q?a b?=", "a b", std::string(text_of(code_t::encoded_word_space_in_q)) + " [a b]"s},
      // A control character cannot end a two-byte run: it is half a character.
      {"=?iso-2022-jp?B?GyRCJDMQ?=", "\xE3\x81\x93", jis_cut + "\n" + jis_cut},
  };
  for (auto const& [input, expected, problems] : cases) {
    quern::error::handler_t handler;
    std::string out;
    email::decode_header_line(input.data(), input.data() + input.size(), std::back_inserter(out), &handler, "");
    EXPECT_EQ(out, expected) << testing::PrintToString(input);
    EXPECT_EQ(test::problems_of(handler), problems) << testing::PrintToString(input);
  }
}

// No prefix of a word is a word, and no search reads past its range.
TEST(find_encoded_word, finds_no_word_in_any_prefix) {
  std::string const word = "=?ISO-8859-1?B?QQ==?=";
  for (std::size_t n = 0; n <= word.size(); ++n) {
    test::exact_buffer_t const prefix(std::string_view(word).substr(0, n));
    EXPECT_EQ(email::find_encoded_word(prefix.begin(), prefix.end(), nullptr).last == nullptr, n < word.size()) << n;
  }
}

} // namespace
