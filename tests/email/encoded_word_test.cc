// SPDX-License-Identifier: MIT
#include "email/encoded_word.h"

#include <gtest/gtest.h>

#include "charset/convert.h"
#include "support.h"
#include "text/format.h"

namespace {

using namespace email;
using namespace std::string_literals;

TEST(decode_header_line, decodes_joins_and_reports) {
  std::string const jis_cut = charset::problem_incomplete_sequence + " (iconv / iso-2022-jp-3) [{1B}$B$3{10}]"s;
  std::tuple<std::string, std::string, std::string> const cases[] = {
      // input, expected, problems
      {"=?utf-8?q?a?= x =?utf-8?q?b?=", "a x b", ""},
      {"=?utf-8?b?w6?= =?utf-8?b?k=?=", "\xC3\xA9", ""}, // a character split across two words comes out whole
      {"=?utf-8*en?q?x?= =?utf-8?x?abc?=", "=?utf-8*en?q?x?= =?utf-8?x?abc?=", ""},
      {"=?=?utf-8?q?x?=", "=?x", ""},
      {"=?utf-8?b?a\tb?=", "=?utf-8?b?a\tb?=", ""},
      {"Re: =?ISO-8859-1?Q?J=FCrgen?= Wei=DF", "Re: J\xC3\xBCrgen Wei=DF", ""},
      {"=?utf-8?q?x?= M\xFCller", "x M\xC3\xBCller",
       charset::problem_eight_bit_undeclared + text::format(charset::problem_fallback, "ISO-8859-1") +
           " [ M{FC}ller]"}, // undeclared 8-bit text: ISO-8859-1
      {"=??q?abc?=", "abc", problem_empty_charset + " [utf8]"s},
      {"=?iso-8859-1?q?caf=E9?= =?'UTF-8'?q?=C3=A9?=", "caf\xC3\xA9\xC3\xA9", problem_quoted_charset + " ['utf-8']"s},
      {"=?utf-8?q?a\tb?=", "a\tb", problem_illegal_in_q_word + " [=?utf-8?q?a\\tb?=]"s},
      {"=?utf-8?q?a b?=", "a b", problem_space_in_q_word + " [a b]"s},
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
