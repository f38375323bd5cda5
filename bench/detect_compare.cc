// SPDX-License-Identifier: MIT
// How well two charset detectors, uchardet and ICU's, and the guessing
// reading of convert_to_utf8 give back texts in a known charset.
//
// The paragraphs of tests/data/charset_samples.tsv are encoded with iconv,
// repeated and cut on a character boundary at lengths from 10 bytes to 20 KB,
// from eight places each;
// each detector names a charset, iconv decodes with that name, and a text
// counts when the decoding equals the original exactly. ICU is asked twice:
// for its best answer, and for its best answer among the charsets the
// importer trusts. The tables go to standard output as Markdown, one row a
// charset and one column a length, followed by the wrong names each
// detector gave (what restricting its answers has to keep out).
//
// Built by hand against a build of the library; it is a measuring tool, not
// part of it:
//   g++ -std=c++20 -O1 -I. bench/detect_compare.cc -o /tmp/detect_compare
//       -Lbuild -ltidewell -Wl,-rpath,$PWD/build -luchardet -licui18n -licuuc
// (one command)
//   /tmp/detect_compare tests/data/charset_samples.tsv
#include <iconv.h>
#include <uchardet/uchardet.h>
#include <unicode/ucsdet.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "charset/convert.h"

namespace {

struct sample_t {
  std::string charset, text;
};

std::vector<sample_t> read_samples(char const* path) {
  std::vector<sample_t> samples;
  std::ifstream in(path);
  for (std::string line; std::getline(in, line);) {
    auto const tab = line.find('\t');
    if (line.empty() || line[0] == '#' || tab == std::string::npos)
      continue;
    samples.push_back({line.substr(0, tab), line.substr(tab + 1)});
  }
  return samples;
}

// iconv from one charset to another; false when any byte fails.
bool recode(std::string const& from, std::string const& to, std::string const& in, std::string& out) {
  out.clear();
  iconv_t const cd = iconv_open(to.c_str(), from.c_str());
  if (cd == reinterpret_cast<iconv_t>(-1))
    return false;
  std::vector<char> buffer(in.size() * 4 + 16);
  char* src = const_cast<char*>(in.data());
  std::size_t left = in.size();
  char* dst = buffer.data();
  std::size_t room = buffer.size();
  bool const ok = iconv(cd, &src, &left, &dst, &room) != static_cast<std::size_t>(-1) &&
                  iconv(cd, nullptr, nullptr, &dst, &room) != static_cast<std::size_t>(-1);
  iconv_close(cd);
  out.assign(buffer.data(), dst);
  return ok;
}

// The longest repetition of text (whole characters) whose encoding is at
// most length bytes: the UTF-8 text and its encoding.
std::pair<std::string, std::string> cut(std::string const& text, std::string const& charset, std::size_t length,
                                        std::size_t start) {
  std::string utf8, encoded, piece;
  std::size_t at = start;
  while (at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80)
    ++at;
  at %= text.size();
  for (;;) {
    std::size_t n = 1;
    while (at + n < text.size() && (static_cast<unsigned char>(text[at + n]) & 0xC0) == 0x80)
      ++n;
    recode("UTF-8", charset, text.substr(at, n), piece);
    if (encoded.size() + piece.size() > length)
      break;
    encoded += piece;
    utf8 += text.substr(at, n);
    at = (at + n) % text.size();
    if (at == 0)
      utf8 += ' ', encoded += ' ';
  }
  return {utf8, encoded};
}

std::string uchardet_name(std::string const& bytes) {
  uchardet_t const detector = uchardet_new();
  uchardet_handle_data(detector, bytes.data(), bytes.size());
  uchardet_data_end(detector);
  std::string name = uchardet_get_charset(detector);
  uchardet_delete(detector);
  return name;
}

// ICU's best guess; with trusted, the best among those names.
std::string icu_name(std::string const& bytes, bool trusted) {
  static char const* const names[] = {"UTF-8",        "ISO-8859-1", "windows-1252", "ISO-8859-2",   "windows-1250",
                                      "windows-1251", "KOI8-R",     "Shift_JIS",    "EUC-JP",       "GB18030",
                                      "Big5",         "EUC-KR",     "ISO-8859-7",   "windows-1253", "ISO-2022-JP"};
  UErrorCode status = U_ZERO_ERROR;
  UCharsetDetector* const detector = ucsdet_open(&status);
  ucsdet_setText(detector, bytes.data(), static_cast<int32_t>(bytes.size()), &status);
  std::string name;
  int32_t count = 0;
  UCharsetMatch const** const matches = ucsdet_detectAll(detector, &count, &status);
  for (int32_t i = 0; U_SUCCESS(status) && i < count; ++i) {
    char const* const candidate = ucsdet_getName(matches[i], &status);
    if (!trusted || std::any_of(std::begin(names), std::end(names),
                                [&](char const* n) { return std::strcmp(n, candidate) == 0; })) {
      name = candidate;
      break;
    }
  }
  ucsdet_close(detector);
  return name;
}

std::string pipeline(std::string const& bytes) {
  std::string out;
  charset::convert_to_utf8(
      bytes.begin(), bytes.end(), std::back_inserter(out), std::string(), [] { return std::string(); }, nullptr,
      charset::policy_t::guess);
  return out;
}

bool gives_back(std::string const& name, std::string const& bytes, std::string const& original) {
  std::string decoded;
  std::string from = name == "GB18030" || name == "GB2312" ? "GB18030" : name;
  return !name.empty() && recode(from, "UTF-8", bytes, decoded) && decoded == original;
}

using detector_t = std::function<bool(std::string const&, std::string const&)>;

// The names a detector gave wrongly, with how often: what restricting its
// answers would have to keep out.
std::map<std::string, std::map<std::string, int>> wrong_names;

bool note(std::string const& detector, std::string const& name, bool right) {
  if (!right)
    ++wrong_names[detector][name.empty() ? "(none)" : name];
  return right;
}

void accuracy(std::vector<sample_t> const& samples) {
  std::size_t const lengths[] = {10, 20, 50, 100, 300, 1000, 5000, 20000};
  std::size_t const starts = 8; // each text cut from eight places
  std::vector<std::pair<std::string, detector_t>> const detectors = {
      {"uchardet",
       [](auto const& b, auto const& o) {
         auto const name = uchardet_name(b);
         return note("uchardet", name, gives_back(name, b, o));
       }},
      {"icu",
       [](auto const& b, auto const& o) {
         auto const name = icu_name(b, false);
         return note("icu", name, gives_back(name, b, o));
       }},
      {"icu, trusted names", [](auto const& b, auto const& o) { return gives_back(icu_name(b, true), b, o); }},
      {"pipeline", [](auto const& b, auto const& o) { return pipeline(b) == o; }},
  };
  for (auto const& [title, detect] : detectors) {
    std::printf("\n### %s\n\n| charset |", title.c_str());
    for (std::size_t length : lengths)
      std::printf(" %zu |", length);
    std::printf(" all |\n|---|");
    for (std::size_t i = 0; i <= std::size(lengths); ++i)
      std::printf("---|");
    std::printf("\n");
    std::map<std::string, std::vector<std::pair<int, int>>> table; // charset: per length, right and total
    std::vector<std::string> order;
    for (sample_t const& sample : samples) {
      if (!table.count(sample.charset))
        order.push_back(sample.charset), table[sample.charset].resize(std::size(lengths));
      for (std::size_t i = 0; i < std::size(lengths); ++i)
        for (std::size_t start = 0; start < starts; ++start) {
          auto const [utf8, encoded] =
              cut(sample.text, sample.charset, lengths[i], sample.text.size() * start / starts);
          auto& cell = table[sample.charset][i];
          cell.first += detect(encoded, utf8) ? 1 : 0;
          ++cell.second;
        }
    }
    std::vector<std::pair<int, int>> totals(std::size(lengths));
    for (std::string const& name : order) {
      std::printf("| %s |", name.c_str());
      int right = 0, all = 0;
      for (std::size_t i = 0; i < std::size(lengths); ++i) {
        auto const cell = table[name][i];
        std::printf(" %d/%d |", cell.first, cell.second);
        right += cell.first, all += cell.second;
        totals[i].first += cell.first, totals[i].second += cell.second;
      }
      std::printf(" %.0f%% |\n", 100.0 * right / all);
    }
    std::printf("| all |");
    int right = 0, all = 0;
    for (auto const& cell : totals) {
      std::printf(" %.0f%% |", 100.0 * cell.first / cell.second);
      right += cell.first, all += cell.second;
    }
    std::printf(" %.0f%% |\n", 100.0 * right / all);
  }
}

} // namespace

int main(int argc, char** argv) {
  char const* const samples = argc > 1 ? argv[1] : "tests/data/charset_samples.tsv";
  accuracy(read_samples(samples));
  for (auto const& [detector, names] : wrong_names) {
    std::printf("\nwrong answers of %s:", detector.c_str());
    for (auto const& [name, count] : names)
      std::printf(" %s %d,", name.c_str(), count);
    std::printf("\n");
  }
  return 0;
}
