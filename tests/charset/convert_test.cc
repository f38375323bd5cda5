#include "charset/convert.h"

#include <gtest/gtest.h>

#include <iterator>
#include <string>
#include <vector>

#include "importer/import.h"

namespace {

using quern::error::record_t;

struct converted_t {
  std::string text;
  std::vector<record_t> problems;
  int fallback_calls = 0;
};

// Converts twice, with and without a collector, and insists on identical
// bytes: recording problems must never change the result.
converted_t to_utf8(std::string const& input, std::string charset, std::string fallback = "iso-8859-1") {
  converted_t result;
  auto const provider = [&] {
    ++result.fallback_calls;
    return fallback;
  };
  quern::error::handler_t handler;
  charset::convert_to_utf8(input.data(), input.data() + input.size(), std::back_inserter(result.text), charset,
                           provider, &handler);
  handler.get_errors({}, result.problems);
  std::vector<char> silent;
  charset::convert_to_utf8(input.begin(), input.end(), std::back_inserter(silent), charset, provider, nullptr);
  EXPECT_EQ(std::string(silent.begin(), silent.end()), result.text) << input;
  return result;
}

std::vector<std::string> descriptions(converted_t const& converted) {
  std::vector<std::string> result;
  for (auto const& problem : converted.problems)
    result.push_back(problem.at("description"));
  return result;
}

struct case_t {
  char const* what;
  std::string input;
  std::string charset;
  std::string expected;
  std::vector<std::string> problems;
  std::string fallback = "iso-8859-1";
};

TEST(convert_to_utf8, reads_labels_and_bytes) {
  std::vector<case_t> const cases = {
      {"empty", "", "x-nonsense", "", {}},
      {"undeclared 7-bit", "plain text\n", "", "plain text\n", {}},
      {"ascii label", "hello", "ascii", "hello", {"Non-standard charset is assumed to be 'us-ascii'"}},
      {"us-ascii holding UTF-8",
       "caf\xC3\xA9",
       "us-ascii",
       "caf\xC3\xA9",
       {"Non-ASCII detected in string claimed to be ASCII (\xE2\x80\x9Cus-ascii\xE2\x80\x9D). It is valid and "
        "assumed to be UTF-8."}},
      {"us-ascii holding cp1252",
       "\x93quoted\x94",
       "us-ascii",
       "\xE2\x80\x9Cquoted\xE2\x80\x9D",
       {"Non-ASCII detected in string claimed to be ASCII (\xE2\x80\x9Cus-ascii\xE2\x80\x9D). It is not valid "
        "UTF-8. Instead WINDOWS-1252 is assumed."},
       "windows-1252"},
      {"undeclared 8-bit",
       "caf\xE9",
       "",
       "caf\xC3\xA9",
       {"Non-ASCII detected in string with no charset defined. It is not valid UTF-8. Instead ISO-8859-1 is "
        "assumed."}},
      {"unknown-8bit",
       "caf\xC3\xA9",
       "unknown-8bit",
       "caf\xC3\xA9",
       {"Charset is \xE2\x80\x9Cunknown-8bit\xE2\x80\x9D and contains 8 bit characters. It is valid and assumed "
        "to be UTF-8."}},
      {"ten high bytes keep the label",
       "\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9",
       "iso-8859-1",
       "\xC3\x83\xC2\xA9\xC3\x83\xC2\xA9\xC3\x83\xC2\xA9\xC3\x83\xC2\xA9\xC3\x83\xC2\xA9",
       {}},
      {"eleven high bytes of UTF-8 override it",
       "\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xE2\x82\xAC",
       "iso-8859-1",
       "\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xE2\x82\xAC",
       {"Ignored charset (utf-8) because the text is non-7bit and valid UTF-8."}},
      {"gb2312 read as gb18030", "\xC4\xE3\xBA\xC3", "gb2312", "\xE4\xBD\xA0\xE5\xA5\xBD", {}},
      {"ks_c_5601-1987 read as euc-kr", "\xBE\xC8\xB3\xE7", "ks_c_5601-1987", "\xEC\x95\x88\xEB\x85\x95", {}},
      {"western", "\xE9", "western", "\xC3\xA9", {}},
      {"iso-8859-8-i", "\xF9\xEC\xE5\xED", "iso-8859-8-i", "\xD7\xA9\xD7\x9C\xD7\x95\xD7\x9D", {}},
      {"big5", "\xA4\xA4\xA4\xE5", "big5", "\xE4\xB8\xAD\xE6\x96\x87", {}},
      {"euc-kr", "\xC7\xD1\xB1\xDB", "euc-kr", "\xED\x95\x9C\xEA\xB8\x80", {}},
      {"koi8-r", "\xF0\xD2\xC9\xD7\xC5\xD4", "koi8-r", "\xD0\x9F\xD1\x80\xD0\xB8\xD0\xB2\xD0\xB5\xD1\x82", {}},
      {"windows-1252", "\x80 5", "windows-1252", "\xE2\x82\xAC 5", {}},
      {"shift_jis", "\x82\xA0\x82\xA2", "shift_jis", "\xE3\x81\x82\xE3\x81\x84", {}},
      {"iso-2022-jp without escapes is EUC-JP", "\xA4\xA2\xA4\xA4", "iso-2022-jp", "\xE3\x81\x82\xE3\x81\x84", {}},
      {"iso-2022-jp",
       "a\x1B$B0!\x1B(Bb",
       "iso-2022-jp",
       "a\xE4\xBA\x9C"
       "b",
       {}},
      {"unknown charset read as UTF-8",
       "abc \xC3\xA9 0123456789 \xFF xyz",
       "x-made-up",
       "abc \xC3\xA9 0123456789 <U+00FF> xyz",
       {"Unknown charset specified for conversion (iconv)",
        "Unknown charset specified for conversion (iconv). Trying UTF-8 instead"}},
      {"unknown charset, mostly undecodable, as ISO-8859-1",
       "\xE9t\xE9 \xE0 la plage",
       "x-made-up",
       "\xC3\xA9t\xC3\xA9 \xC3\xA0 la plage",
       {"Unknown charset specified for conversion (iconv)",
        "Unknown charset specified for conversion (iconv). Trying UTF-8 instead"}},
      {"tolerant pass keeps a rare bad byte",
       "caf\xC3\xA9 and \xFF then more than ten bytes",
       "utf-8",
       "caf\xC3\xA9 and <U+00FF> then more than ten bytes",
       {"Invalid multibyte sequence encountered (iconv / utf-8)"}},
      {"nine bytes from the end become ISO-8859-1",
       "caf\xC3\xA9 and \xFF"
       "12345678",
       "utf-8",
       "caf\xC3\xA9 and \xC3\xBF"
       "12345678",
       {"Invalid multibyte sequence encountered (iconv / utf-8)"}},
      {"truncated sequence at the end",
       "caf\xC3",
       "utf-8",
       "caf\xC3\x83",
       {"Incomplete multibyte sequence encountered (iconv / utf-8)",
        "Incomplete multibyte sequence encountered (iconv / utf-8)"}},
      {"beyond U+10FFFF is undecodable",
       "x\xF4\x90\x80\x80 followed by a long enough tail of text, really",
       "utf-8",
       "x<U+00F4><U+0090><U+0080><U+0080> followed by a long enough tail of text, really",
       {"Invalid multibyte sequence encountered (iconv / utf-8)"}},
      {"overlong forms are undecodable",
       "\xC0\xAF followed by a long enough tail",
       "utf-8",
       "<U+00C0><U+00AF> followed by a long enough tail",
       {"Invalid multibyte sequence encountered (iconv / utf-8)"}},
      {"CESU-8 labelled UTF-8",
       "x\xED\xA0\xBD\xED\xB8\x80y",
       "utf-8",
       "x\xF0\x9F\x98\x80y",
       {"Detected CESU-8 (converting to UTF-8)."}},
      {"CESU-8 undeclared",
       "\xED\xA0\xBD\xED\xB8\x80",
       "",
       "\xF0\x9F\x98\x80",
       {"Non-ASCII detected in string with no charset defined. It is valid and assumed to be UTF-8.",
        "Detected CESU-8 (converting to UTF-8)."}},
  };
  for (auto const& c : cases) {
    auto const converted = to_utf8(c.input, c.charset, c.fallback);
    EXPECT_EQ(converted.text, c.expected) << c.what;
    EXPECT_EQ(descriptions(converted), c.problems) << c.what;
    EXPECT_TRUE(importer::is_well_formed_utf8(converted.text)) << c.what;
  }
}

// A lone surrogate has no better reading than itself, so it is kept; the
// result is not well-formed and the importer drops it.
TEST(convert_to_utf8, lone_surrogates_pass_through) {
  auto const converted = to_utf8("a\xED\xA0\xBDz", "utf-8");
  EXPECT_EQ(converted.text, "a\xED\xA0\xBDz");
  EXPECT_TRUE(converted.problems.empty());
  EXPECT_FALSE(importer::is_well_formed_utf8(converted.text));
}

TEST(convert_to_utf8, contexts_show_the_bytes_around_the_problem) {
  auto const valid = to_utf8("0123456789012345678901234\tcaf\xC3\xA9", "us-ascii");
  ASSERT_EQ(valid.problems.size(), 1u);
  EXPECT_EQ(valid.problems[0].at("context"), "9012345678901234\\tcaf\xC3\xA9");

  auto const invalid = to_utf8("caf\xE9\x01", "us-ascii", "iso-8859-15");
  ASSERT_EQ(invalid.problems.size(), 1u);
  EXPECT_EQ(invalid.problems[0].at("context"), "caf{E9}{01}");

  auto const ascii = to_utf8("x", "ascii");
  EXPECT_EQ(ascii.problems[0].at("context"), "ascii");

  auto const unknown = to_utf8("text", "x-made-up");
  ASSERT_EQ(unknown.problems.size(), 2u);
  EXPECT_EQ(unknown.problems[0].at("from_charset"), "x-made-up");
  EXPECT_EQ(unknown.problems[0].at("to_charset"), "UTF-8");
  EXPECT_EQ(unknown.problems[1].at("from_charset"), "x-made-up");

  auto const bad = to_utf8("0123456789abcdef\xFFghijklmnopqrstuvwxyz", "utf-8");
  EXPECT_EQ(bad.problems[0].at("context"), "6789abcdef{FF}ghijklmno");
}

TEST(convert_to_utf8, escapes_in_undeclared_text) {
  std::string const input = "a\x1B$B0!\x1B(B";
  for (std::string fallback : {"", "iso-2022-jp"}) {
    auto const converted = to_utf8(input, "", fallback);
    EXPECT_EQ(converted.text, "a\xE4\xBA\x9C");
    ASSERT_EQ(converted.problems.size(), 1u);
    EXPECT_EQ(converted.problems[0].at("description"),
              "Escape character detected in string (charset is \xE2\x80\x9Ciso-2022-jp\xE2\x80\x9D). Instead "
              "ISO-2022-JP is assumed.");
    EXPECT_EQ(converted.problems[0].at("context"), "a{1B}$B0!{1B}(B");
  }
  auto const ignored = to_utf8(input, "", "iso-8859-1");
  EXPECT_EQ(ignored.text, input);
  EXPECT_TRUE(ignored.problems.empty());
  // Asked twice per escape (per conversion; to_utf8 converts twice).
  EXPECT_EQ(ignored.fallback_calls, 8);
  // Declared text never looks at escapes.
  EXPECT_EQ(to_utf8(input, "us-ascii", "").text, input);
}

TEST(convert_to_utf8, unset_fallback_throws_only_when_needed) {
  std::string out;
  std::string const seven = "abc";
  EXPECT_NO_THROW(charset::convert_to_utf8(seven.begin(), seven.end(), std::back_inserter(out), "", {}, nullptr));
  std::string const eight = "\xE9";
  EXPECT_THROW(charset::convert_to_utf8(eight.begin(), eight.end(), std::back_inserter(out), "", {}, nullptr),
               std::bad_function_call);
}

TEST(convert, reports_where_it_stopped) {
  std::string const input = "ab\xFF"
                            "cd";
  std::string out;
  quern::error::handler_t handler;
  auto stop =
      charset::convert(input.begin(), input.end(), std::back_inserter(out), "utf-8", "UTF-8", nullptr, &handler);
  EXPECT_EQ(stop - input.begin(), 2);
  EXPECT_EQ(out, "ab");

  out.clear();
  std::uint64_t errors = 0;
  stop = charset::convert(input.begin(), input.end(), std::back_inserter(out), "utf-8", "UTF-8", &errors, nullptr);
  EXPECT_EQ(stop, input.end());
  EXPECT_EQ(out, "ab<U+00FF>cd");
  EXPECT_EQ(errors, 1u);

  // Conversion to other targets goes through the same loop.
  out.clear();
  std::string const latin = "caf\xC3\xA9";
  stop = charset::convert(latin.begin(), latin.end(), std::back_inserter(out), "utf-8", "ISO-8859-1", nullptr, nullptr);
  EXPECT_EQ(out, "caf\xE9");

  // Charset names with conversion flags are not charset names.
  out.clear();
  stop =
      charset::convert(input.begin(), input.end(), std::back_inserter(out), "utf-8//IGNORE", "UTF-8", nullptr, nullptr);
  EXPECT_EQ(stop, input.begin());
}

TEST(convert, long_input_crosses_buffers) {
  std::string input;
  for (int i = 0; i < 5000; ++i)
    input += "\xE9\xE8 ";
  std::string expected;
  for (int i = 0; i < 5000; ++i)
    expected += "\xC3\xA9\xC3\xA8 ";
  EXPECT_EQ(to_utf8(input, "iso-8859-1").text, expected);
}

// Megabyte-sized versions of these run in the conversion benchmark; here
// they only have to finish and stay well-formed.
TEST(convert_to_utf8, hostile_input) {
  std::string const escapes(1 << 16, '\x1B');
  auto converted = to_utf8(escapes, "iso-2022-jp");
  // The last ESC could start an escape sequence: incomplete, so dropped.
  EXPECT_EQ(converted.text.size(), escapes.size() - 1);
  std::string lines;
  while (lines.size() < (1 << 16))
    lines += "\x1B$B0!\x80\n\x1B$(D0!\x1B(B\xFF\n";
  converted = to_utf8(lines, "iso-2022-jp");
  EXPECT_TRUE(importer::is_well_formed_utf8(converted.text));
  std::string const bad_utf8(1 << 16, '\xFF');
  converted = to_utf8(bad_utf8, "utf-8");
  EXPECT_EQ(converted.text.size(), 2 * bad_utf8.size());
}

} // namespace
