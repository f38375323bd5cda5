// SPDX-License-Identifier: MIT
// The guessing conversion against the labelled one on the texts it is for,
// and the detector's accuracy on texts of known charset: the paragraphs of
// tests/data/charset_samples.tsv, encoded here, cut from eight places at
// several lengths, must come back exactly.
#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

#include "charset/convert.h"
#include "charset/detect.h"
#include "importer/message.h"
#include "tests/support/converted.h"

namespace {

using charset::policy_t;

std::string convert(std::string const& input, std::string const& label, policy_t policy,
                    std::string const& fallback = std::string()) {
  return test::to_utf8(input, label, fallback, policy).text;
}

std::string encode(std::string const& utf8, std::string const& charset) {
  std::string out;
  charset::convert(utf8.begin(), utf8.end(), std::back_inserter(out), "UTF-8", charset, nullptr, nullptr);
  return out;
}

std::string decode(std::string const& bytes, std::string const& charset) {
  std::string out;
  charset::convert(bytes.begin(), bytes.end(), std::back_inserter(out), charset, "UTF-8", nullptr, nullptr);
  return out;
}

struct case_t {
  char const* what;
  std::string input, label, fallback;
  std::string guessed;  // policy_t::guess
  std::string labelled; // policy_t::labelled, as it has always been
};

TEST(GuessPolicy, ReadsTextPastMissingAndWrongLabels) {
  std::string const russian = "Здравствуйте, коллеги! Напоминаю, что в пятницу состоится собрание.";
  std::string const japanese = "お疲れさまです。来週の会議について連絡します。";
  std::string const utf8_czech = "Dobrý den, přítomní";
  case_t const cases[] = {
      {"Latin-1, undeclared", "Aqu\xED tenemos texto en espa\xF1ol", "", "", "Aquí tenemos texto en español",
       "Aquí tenemos texto en español"},
      {"KOI8-R under us-ascii", "\xF4\xC5\xD3\xD4", "us-ascii", "", "Тест", "ôÅÓÔ"},
      {"windows-1251, undeclared", encode(russian, "windows-1251"), "", "iso-8859-1", russian,
       decode(encode(russian, "windows-1251"), "iso-8859-1")},
      {"C1 bytes under ISO-8859-1", "\x93Hola\x94 \x96 5 \x80\x85 \x81", "iso-8859-1", "", "“Hola” – 5 €… \u0081",
       "\u0093Hola\u0094 \u0096 5 \u0080\u0085 \u0081"},
      {"one ill-formed byte in UTF-8", "Здравствуйте\xAA", "utf-8", "", "Здравствуйте\uFFFD", "Здравствуйтеª"},
      {"Shift_JIS under utf8", encode(japanese, "shift_jis"), "utf8", "", japanese,
       decode(encode(japanese, "shift_jis"), "iso-8859-1")},
      {"valid UTF-8 under a wrong label", utf8_czech, "iso-8859-2", "", utf8_czech, decode(utf8_czech, "iso-8859-2")},
      {"unknown label", encode(russian, "koi8-r"), "x-cyrillic", "", russian, ""},
      {"a fallback that names a charset", "\xE2\xEE\xEF\xF0\xEE\xF1", "", "windows-1251", "вопрос", ""},
      {"ISO-2022-JP under the implied us-ascii", "\x1B$B%F%9%H\x1B(B ok", "us-ascii", "", "テスト ok",
       "\x1B$B%F%9%H\x1B(B ok"},
      {"correct labels keep their reading", encode(russian, "koi8-r"), "koi8-r", "", russian, russian},
  };
  for (case_t const& c : cases) {
    EXPECT_EQ(convert(c.input, c.label, policy_t::guess, c.fallback), c.guessed) << c.what;
    if (!c.labelled.empty()) {
      EXPECT_EQ(convert(c.input, c.label, policy_t::labelled, c.fallback), c.labelled) << c.what;
    }
  }
}

// Raw 8-bit header values are read as one text, so a short subject takes the
// charset that the longer names beside it show; the body and the file name
// are read on their own. The desktop reading keeps its ISO-8859-1.
TEST(GuessPolicy, FullReadingReadsRawHeaderTextAsOneBlock) {
  std::string const message =
      "Subject: " + encode("Тест", "koi8-r") + "\nFrom: " + encode("Иван Петрович Сидоров", "koi8-r") +
      " <ivan@example.org>\nTo: " + encode("Ольга Николаевна", "koi8-r") +
      " <olga@example.org>\nMIME-Version: 1.0\nContent-Type: multipart/mixed; "
      "boundary=b\n\n--b\nContent-Type: text/plain\n\n" +
      encode("Добрый день! Высылаю отчёт за прошлую неделю.", "koi8-r") + "\n--b\nContent-Type: text/plain; name=\"" +
      encode("отчёт за неделю.txt", "koi8-r") + "\"\nContent-Disposition: attachment\n\nx\n--b--\n";
  tidewell::message_t const full = tidewell::parse(message);
  EXPECT_EQ(full.subject, "Тест");
  ASSERT_EQ(full.from.size(), 1u);
  EXPECT_EQ(full.from[0].name, "Иван Петрович Сидоров");
  ASSERT_EQ(full.to.size(), 1u);
  EXPECT_EQ(full.to[0].name, "Ольга Николаевна");
  EXPECT_EQ(full.text, "Добрый день! Высылаю отчёт за прошлую неделю.");
  ASSERT_EQ(full.attachments.size(), 1u);
  EXPECT_EQ(full.attachments[0].file_name, "отчёт за неделю.txt");
  tidewell::options_t desktop = tidewell::options_t::desktop();
  EXPECT_EQ(tidewell::parse(message, desktop).subject, "ôÅÓÔ");
}

// The share of texts given back exactly, per charset and length, may not
// fall more than one text in eight below what was measured when the
// detector was chosen (the figures below, in texts of eight per paragraph).
TEST(GuessPolicy, DetectorGivesBackTextsOfKnownCharset) {
  std::size_t const lengths[] = {20, 50, 100, 300, 1000, 5000};
  std::map<std::string, std::array<int, 6>> const measured = {
      {"windows-1252", {24, 24, 24, 24, 24, 24}},
      {"iso-8859-2", {13, 15, 16, 16, 16, 16}},
      {"windows-1251", {8, 8, 8, 8, 8, 8}},
      {"koi8-r", {8, 8, 8, 8, 8, 8}},
      {"shift_jis", {8, 8, 8, 8, 8, 8}},
      {"euc-jp", {8, 8, 8, 8, 8, 8}},
      {"gbk", {8, 8, 8, 8, 8, 8}},
      {"big5", {8, 8, 8, 8, 8, 8}},
      {"euc-kr", {8, 8, 8, 8, 8, 8}},
      {"iso-8859-7", {8, 8, 8, 8, 8, 8}},
  };
  std::ifstream samples(TIDEWELL_SOURCE_DIR "/tests/data/charset_samples.tsv");
  ASSERT_TRUE(samples);
  std::map<std::string, std::array<int, 6>> right, all;
  for (std::string line; std::getline(samples, line);) {
    auto const tab = line.find('\t');
    if (line.empty() || line[0] == '#' || tab == std::string::npos)
      continue;
    std::string const name = line.substr(0, tab), text = line.substr(tab + 1) + ' ';
    std::string const doubled = text + text + text;
    for (std::size_t l = 0; l < std::size(lengths); ++l)
      for (std::size_t start = 0; start < 8; ++start) {
        // Whole characters from the start on, repeated, up to the length.
        std::string original, encoded;
        std::size_t at = text.size() * start / 8;
        while ((static_cast<unsigned char>(text[at]) & 0xC0) == 0x80)
          ++at;
        for (;;) {
          std::size_t n = 1;
          while ((static_cast<unsigned char>(doubled[at + n]) & 0xC0) == 0x80)
            ++n;
          std::string const piece = encode(doubled.substr(at, n), name);
          if (encoded.size() + piece.size() > lengths[l])
            break;
          encoded += piece;
          original += doubled.substr(at, n);
          at = (at + n) % text.size();
        }
        right[name][l] += convert(encoded, "", policy_t::guess) == original ? 1 : 0;
        ++all[name][l];
      }
  }
  ASSERT_EQ(all.size(), measured.size());
  for (auto const& [name, figures] : measured)
    for (std::size_t l = 0; l < std::size(lengths); ++l) {
      int const margin = all[name][l] / 8;
      EXPECT_GE(right[name][l], figures[l] - margin)
          << name << " at " << lengths[l] << " bytes: " << right[name][l] << " of " << all[name][l];
    }
}

} // namespace
