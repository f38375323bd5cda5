// SPDX-License-Identifier: MIT
// The message files the whole-collection tests run over: examples/ (unless
// left out) and the shared corpus beside the checkout when it is there,
// sorted so that every run meets them in the same order.
#pragma once

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

namespace test_support {

inline std::vector<std::string> message_paths(bool with_examples = true) {
  std::filesystem::path const source(TIDEWELL_SOURCE_DIR);
  std::vector<std::string> paths;
  for (auto const& root : {source / "examples", source / ".." / "shared" / "corpus" / "messages"}) {
    std::error_code absent;
    if (with_examples || root.filename() == "messages")
      for (auto const& entry : std::filesystem::recursive_directory_iterator(root, absent))
        if (entry.is_regular_file())
          paths.push_back(entry.path().string());
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}

} // namespace test_support
