// SPDX-License-Identifier: MIT
// Every real-world message of the shared corpus imports, and what comes out
// is well-formed: every string and list element is UTF-8.

#include <gtest/gtest.h>

#include "importer/import.h"
#include "tests/support/messages.h"

namespace {

TEST(corpus, every_message_imports_to_well_formed_attributes) {
  auto const paths = test_support::message_paths(false);
  if (paths.empty())
    GTEST_SKIP() << "no shared corpus beside the checkout";
  testing::internal::CaptureStderr();
  for (auto const& path : paths) {
    importer::attribute_set_t attributes;
    ASSERT_TRUE(importer::import_file(path, attributes));
    for (auto const& [name, value] : attributes) {
      auto const* text = std::get_if<std::string>(&value);
      EXPECT_TRUE(!text || importer::is_well_formed_utf8(*text)) << path << " " << name;
      auto const* list = std::get_if<std::vector<std::string>>(&value);
      for (auto const& element : list ? *list : std::vector<std::string>())
        EXPECT_TRUE(importer::is_well_formed_utf8(element)) << path << " " << name;
    }
  }
  testing::internal::GetCapturedStderr();
  EXPECT_GT(paths.size(), 1000u);
}

} // namespace
