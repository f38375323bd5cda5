// SPDX-License-Identifier: MIT
// Hosts may run under a locale such as de_DE.ISO-8859-1, where isalpha and
// tolower answer for bytes above 0x7F: built with localedef under LOCPATH, it
// must import examples/, the corpus and a few made-up messages with 8-bit
// letters exactly as the C locale does.
#include <cctype>
#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <map>

#include <gtest/gtest.h>

#include "importer/import.h"
#include "tests/support/messages.h"

namespace {

namespace fs = std::filesystem;

using records_t = std::map<std::string, importer::attribute_set_t::map_t>;

// 8-bit letters where a date starts, in content header words and names.
std::string const made_up[] = {
    "Received: by x; \xC4"
    "1 Jul 2003 10:00:00 +0000\nSubject: s\n\nbody\n",
    "Content-Type: TEXT/PLAIN\xC4; CHARSET=ISO-8859-1\xC4\nContent-Transfer-Encoding: QUOTED-PRINTABLE\xC4\n\n=E4\n",
    "From: \xC4"
    "nne <A@B.example>\nTo: =?ISO-8859-1\xC4?Q?x?= <c@d>\nSubject: =?ISO-8859-1?Q?=C4?=\n\n\xC4\n",
};

records_t import_all() {
  records_t records;
  for (std::size_t i = 0; i < std::size(made_up); ++i) {
    importer::attribute_set_t attributes;
    importer::import_bytes(made_up[i].data(), made_up[i].data() + made_up[i].size(), attributes);
    records["made-up " + std::to_string(i)] = importer::attribute_set_t::map_t(attributes.begin(), attributes.end());
  }
  for (auto const& path : test_support::message_paths()) {
    importer::attribute_set_t attributes;
    importer::import_file(path, attributes);
    records[path] = importer::attribute_set_t::map_t(attributes.begin(), attributes.end());
  }
  return records;
}

class eight_bit_locale : public testing::Test {
protected:
  void SetUp() override {
    if (std::system("command -v localedef >/dev/null 2>&1") != 0)
      GTEST_SKIP() << "localedef is missing: cannot build an 8-bit locale";
    char name[] = "/tmp/tidewell-locale-XXXXXX";
    ASSERT_NE(::mkdtemp(name), nullptr);
    dir_ = name;
    std::string const command = "localedef -i de_DE -f ISO-8859-1 " + (dir_ / locale_).string() + " >/dev/null 2>&1";
    int const status = std::system(command.c_str());
    ASSERT_TRUE(fs::exists(dir_ / locale_ / "LC_CTYPE"))
        << "localedef failed (" << status << "); the locales package provides its sources";
    ::setenv("LOCPATH", dir_.c_str(), 1);
  }
  void TearDown() override {
    std::setlocale(LC_ALL, "C");
    ::unsetenv("LOCPATH");
    if (!dir_.empty())
      fs::remove_all(dir_);
  }

  std::string const locale_ = "de_DE.ISO-8859-1";
  fs::path dir_;
};

TEST_F(eight_bit_locale, imports_every_message_as_the_c_locale_does) {
  testing::internal::CaptureStderr();
  ASSERT_NE(std::setlocale(LC_ALL, "C"), nullptr);
  records_t const expected = import_all();
  ASSERT_NE(std::setlocale(LC_ALL, locale_.c_str()), nullptr);
  // The locale must really classify 8-bit bytes, or the test proves nothing.
  // (The byte is read through a volatile: the compiler may fold C library
  // calls on constants as if in the C locale.)
  volatile int a_umlaut = 0xE4;
  ASSERT_TRUE(std::isalpha(a_umlaut) && std::toupper(a_umlaut) == 0xC4);
  records_t const actual = import_all();
  testing::internal::GetCapturedStderr();

  ASSERT_EQ(actual.size(), expected.size());
  for (auto const& [path, attributes] : expected)
    EXPECT_TRUE(actual.at(path) == attributes) << path;
}

} // namespace
