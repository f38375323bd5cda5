// Every real-world message of the shared corpus imports, and what comes out
// is well-formed: strings are UTF-8, lists hold no empty surprises.
#include <filesystem>

#include <gtest/gtest.h>

#include "importer/import.h"

namespace {

namespace fs = std::filesystem;

fs::path corpus_dir() { return fs::path(TIDEWELL_SOURCE_DIR) / ".." / "shared" / "corpus" / "messages"; }

TEST(corpus, every_message_imports_to_well_formed_attributes) {
  if (!fs::is_directory(corpus_dir()))
    GTEST_SKIP() << "no corpus at " << corpus_dir();
  std::size_t count = 0;
  testing::internal::CaptureStderr();
  for (auto const& entry : fs::recursive_directory_iterator(corpus_dir())) {
    if (!entry.is_regular_file())
      continue;
    importer::attribute_set_t attributes;
    ASSERT_TRUE(importer::import_file(entry.path().string(), attributes));
    for (auto const& [name, value] : attributes) {
      if (auto const* text = std::get_if<std::string>(&value)) {
        EXPECT_TRUE(importer::is_well_formed_utf8(*text)) << entry.path() << " " << name;
      } else if (auto const* list = std::get_if<std::vector<std::string>>(&value)) {
        for (auto const& element : *list)
          EXPECT_TRUE(importer::is_well_formed_utf8(element)) << entry.path() << " " << name;
      }
    }
    ++count;
  }
  testing::internal::GetCapturedStderr();
  EXPECT_GT(count, 1000u);
}

} // namespace
