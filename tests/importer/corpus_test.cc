// SPDX-License-Identifier: MIT
// Every real-world message of the shared corpus (and each folder in it)
// imports, and what comes out
// is well-formed: every string and list element is UTF-8.
#include <filesystem>

#include <gtest/gtest.h>

#include "importer/import.h"

namespace {

namespace fs = std::filesystem;

TEST(corpus, every_message_imports_to_well_formed_attributes) {
  auto const corpus = fs::path(TIDEWELL_SOURCE_DIR) / ".." / "shared" / "corpus" / "messages";
  if (!fs::is_directory(corpus))
    GTEST_SKIP() << "no corpus at " << corpus;
  std::size_t count = 0;
  testing::internal::CaptureStderr();
  for (auto const& entry : fs::recursive_directory_iterator(corpus)) {
    importer::attribute_set_t attributes;
    ASSERT_TRUE(importer::import_file(entry.path().string(), attributes));
    for (auto const& [name, value] : attributes) {
      auto const* text = std::get_if<std::string>(&value);
      EXPECT_TRUE(!text || importer::is_well_formed_utf8(*text)) << entry.path() << " " << name;
      auto const* list = std::get_if<std::vector<std::string>>(&value);
      for (auto const& element : list ? *list : std::vector<std::string>())
        EXPECT_TRUE(importer::is_well_formed_utf8(element)) << entry.path() << " " << name;
    }
    ++count;
  }
  testing::internal::GetCapturedStderr();
  EXPECT_GT(count, 1000u);
}

} // namespace
