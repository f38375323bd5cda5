#include "charset/japanese.h"

#include <gtest/gtest.h>

#include <iterator>
#include <string>
#include <vector>

namespace {

using quern::error::record_t;

struct converted_t {
  std::string text;
  std::vector<record_t> problems;
};

converted_t japanese(std::string const& input, std::string charset) {
  converted_t result;
  quern::error::handler_t handler;
  charset::japanese_convert(input.data(), input.data() + input.size(), std::back_inserter(result.text), charset,
                            &handler);
  handler.get_errors({}, result.problems);
  std::vector<char> silent;
  charset::japanese_convert(input.begin(), input.end(), std::back_inserter(silent), charset, nullptr);
  EXPECT_EQ(std::string(silent.begin(), silent.end()), result.text);
  return result;
}

std::vector<std::string> descriptions(std::vector<record_t> const& problems) {
  std::vector<std::string> result;
  for (auto const& problem : problems)
    result.push_back(problem.at("description"));
  return result;
}

// 亜 (JIS X 0208 0x3021) and 丂 (JIS X 0212 0x3021).
#define A_0208 "\xE4\xBA\x9C"
#define A_0212 "\xE4\xB8\x82"

struct case_t {
  char const* what;
  std::string input;
  std::string charset;
  std::string expected;
  std::vector<std::string> problems;
};

TEST(japanese_convert, converts_and_recovers) {
  std::vector<case_t> const cases = {
      {"7-bit without escapes", "plain\n", "iso-2022-jp-3", "plain\n", {}},
      {"EUC-JP under an ISO-2022-JP label", "\xB0\xA1", "iso-2022-jp-3", A_0208, {}},
      {"JIS X 0212 escape",
       "a\x1B$B0!\x1B$(D0!\x1B(Bz",
       "iso-2022-jp-3",
       "a" A_0208 A_0212 "z",
       {"Invalid multibyte sequence encountered (iconv / iso-2022-jp-3)",
        "Escape sequence indicates the charset is \xE2\x80\x9CISO-2022-JP-1\xE2\x80\x9D (and not "
        "\xE2\x80\x9CISO-2022-JP-3\xE2\x80\x9D)."}},
      {"KS C 5601 escape",
       "\x1B$(C0!\x1B(B",
       "iso-2022-jp-3",
       "\xEA\xB0\x80",
       {"Invalid multibyte sequence encountered (iconv / iso-2022-jp-3)",
        "Escape sequence indicates the charset is \xE2\x80\x9CISO-2022-JP-2\xE2\x80\x9D (and not "
        "\xE2\x80\x9CISO-2022-JP-3\xE2\x80\x9D)."}},
      {"JIS X 0213:2004 is ISO-2022-JP-3 already", "\x1B$(Q0!\x1B(B", "iso-2022-jp-3", A_0208, {}},
      {"unknown escape retries its line",
       "one\nab\x1B$(Xcd\nthree",
       "iso-2022-jp-3",
       "one\nab\x1B$(Xcd\nthree",
       {"Invalid multibyte sequence encountered (iconv / iso-2022-jp-3)"}},
      {"failing line retried with the uncommitted lines before it, once",
       "l1\nl2\n\x1B$B0!\x1B(B\x80\nl4\n",
       "iso-2022-jp-3",
       "l1\nl2\n" A_0208 "<U+0080>\nl4\n",
       {"Invalid multibyte sequence encountered (iconv / iso-2022-jp-3)"}},
      {"upgrade, then a failure further on",
       "\x1B$(D0!\x1B(B\nok\n\xFF\nend",
       "iso-2022-jp-3",
       A_0212 "\nok\n<U+00FF>\nend",
       {"Invalid multibyte sequence encountered (iconv / iso-2022-jp-3)",
        "Escape sequence indicates the charset is \xE2\x80\x9CISO-2022-JP-1\xE2\x80\x9D (and not "
        "\xE2\x80\x9CISO-2022-JP-3\xE2\x80\x9D).",
        "Invalid multibyte sequence encountered (iconv / iso-2022-jp-1)"}},
      {"shift_jis keeps its label despite ESC", "\x82\xA0\x1B$B", "shift_jis", "\xE3\x81\x82\x1B$B", {}},
  };
  for (auto const& c : cases) {
    auto const converted = japanese(c.input, c.charset);
    EXPECT_EQ(converted.text, c.expected) << c.what;
    EXPECT_EQ(descriptions(converted.problems), c.problems) << c.what;
  }
}

TEST(japanese_convert, upgrade_context_surrounds_the_escape) {
  std::string const input = "0123456789012345678901234\x1B$(D0!\x1B(B";
  auto const converted = japanese(input, "iso-2022-jp-3");
  ASSERT_EQ(converted.problems.size(), 2u);
  EXPECT_EQ(converted.problems[1].at("context"), "56789012345678901234{1B}$(D0!{1B}(B");
}

// glibc copies escapes it does not define into its output; the converter
// must stop there instead.
TEST(japanese_convert, undefined_escapes_stop_strict_conversion) {
  std::string const input = "abc\x1B$(D0!\x1B(B";
  std::string out;
  auto stop =
      charset::convert(input.begin(), input.end(), std::back_inserter(out), "iso-2022-jp-3", "UTF-8", nullptr, nullptr);
  EXPECT_EQ(stop - input.begin(), 3);
  EXPECT_EQ(out, "abc");
  for (std::string name : {"iso-2022-jp-1", "iso-2022-jp-2"}) {
    out.clear();
    stop = charset::convert(input.begin(), input.end(), std::back_inserter(out), name, "UTF-8", nullptr, nullptr);
    EXPECT_EQ(stop, input.end()) << name;
    EXPECT_EQ(out, "abc" A_0212) << name;
  }
  out.clear();
  std::string const jis2004 = "\x1B$(Q0!\x1B(B";
  stop = charset::convert(jis2004.begin(), jis2004.end(), std::back_inserter(out), "iso-2022-jp-4", "UTF-8", nullptr,
                          nullptr);
  EXPECT_EQ(out, A_0208);
  // ISO-2022-JP-1 does not define the GB 2312 escape even though the
  // converter behind it would.
  std::string const gb = "a\x1B$A0!\x1B(B";
  out.clear();
  stop = charset::convert(gb.begin(), gb.end(), std::back_inserter(out), "iso-2022-jp-1", "UTF-8", nullptr, nullptr);
  EXPECT_EQ(stop - gb.begin(), 1);
  // An escape cut off by the end is incomplete, not undefined.
  quern::error::handler_t handler;
  std::string const cut = "a\x1B$(";
  out.clear();
  stop = charset::convert(cut.begin(), cut.end(), std::back_inserter(out), "iso-2022-jp-3", "UTF-8", nullptr, &handler);
  EXPECT_EQ(stop - cut.begin(), 1);
  std::vector<record_t> problems;
  handler.get_errors({}, problems);
  ASSERT_EQ(problems.size(), 1u);
  EXPECT_EQ(problems[0].at("description"), "Incomplete multibyte sequence encountered (iconv / iso-2022-jp-3)");
}

TEST(japanese_convert, long_text_converts_across_windows) {
  std::string input, expected;
  for (int i = 0; i < 700; ++i) {
    input += "\x1B$B0!0!0!\x1B(B x\n";
    expected += A_0208 A_0208 A_0208 " x\n";
  }
  auto const converted = japanese(input, "iso-2022-jp-3");
  EXPECT_EQ(converted.text, expected);
  EXPECT_TRUE(converted.problems.empty());
}

TEST(convert_to_utf8, circled_numbers_in_iso_2022_jp) {
  auto const run = [](std::string const& input, std::vector<record_t>* problems) {
    std::string out;
    quern::error::handler_t handler;
    charset::convert_to_utf8(
        input.begin(), input.end(), std::back_inserter(out), "iso-2022-jp", [] { return std::string("iso-8859-1"); },
        &handler);
    handler.get_errors({}, *problems);
    return out;
  };
  std::vector<record_t> problems;
  EXPECT_EQ(run("\x1B$B-!\x1B(B \x1B$B-*0!\x1B(B", &problems), "(1) (10)" A_0208);
  EXPECT_EQ(problems.size(), 1u) << "only the first rewrite is recorded";
  problems.clear();
  EXPECT_EQ(run("a\x1B$B-!\x1B(B", &problems), "a(1)");
  ASSERT_EQ(problems.size(), 1u);
  EXPECT_EQ(problems[0].at("description"), "Non-standard circled number detected in Japanese encoding (charset is "
                                           "\xE2\x80\x9Ciso-2022-jp-3\xE2\x80\x9D)");
  EXPECT_EQ(problems[0].at("context"), "a{1B}$B-!");
  problems.clear();
  EXPECT_EQ(run("a\x1B$B-50!\x1B(B", &problems), "a0!");
  EXPECT_TRUE(problems.empty());
  // A group with nothing after it is left alone; it is then a JIS X 0208
  // row that does not exist, spelled out byte by byte until the last byte
  // is left incomplete.
  problems.clear();
  EXPECT_EQ(run("ab\x1B$B-!", &problems), "ab-");
  ASSERT_EQ(problems.size(), 2u);
  EXPECT_EQ(problems[0].at("description"), "Invalid multibyte sequence encountered (iconv / iso-2022-jp-3)");
  EXPECT_EQ(problems[1].at("description"), "Incomplete multibyte sequence encountered (iconv / iso-2022-jp-3)");
}

} // namespace
