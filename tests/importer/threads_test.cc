// SPDX-License-Identifier: MIT
// Hosts call the importer from several worker threads at once. Two threads
// import the whole corpus (and the examples) concurrently, in opposite
// orders so that different messages meet, and every record must equal the
// one a single thread produced. Under ThreadSanitizer (scripts/run-tests
// --tsan) this also catches races on the process-wide tables and the
// per-thread converter caches.
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "importer/import.h"
#include "importer/message.h"
#include "tests/support/messages.h"

namespace {

// Each reading's result for one file: the desktop attributes, or the typed
// message.
importer::attribute_set_t::map_t desktop(std::string const& path) {
  importer::attribute_set_t attributes;
  importer::import_file(path, attributes);
  return {attributes.begin(), attributes.end()};
}

tidewell::message_t full(std::string const& path) {
  std::error_code error;
  return tidewell::parse_file(path.c_str(), {}, error);
}

// Every path read forward on one thread and backward on another at once
// gives what one thread alone gives.
template <typename Read> void expect_same_on_two_threads(std::vector<std::string> const& paths, Read read) {
  using result_t = decltype(read(paths.front()));
  std::vector<result_t> expected;
  for (auto const& path : paths)
    expected.push_back(read(path));
  std::vector<result_t> forward(paths.size()), backward(paths.size());
  std::thread first([&] {
    for (std::size_t i = 0; i < paths.size(); ++i)
      forward[i] = read(paths[i]);
  });
  std::thread second([&] {
    for (std::size_t i = paths.size(); i-- > 0;)
      backward[i] = read(paths[i]);
  });
  first.join();
  second.join();
  for (std::size_t i = 0; i < paths.size(); ++i)
    EXPECT_TRUE(forward[i] == expected[i] && backward[i] == expected[i]) << paths[i];
}

TEST(threads, two_threads_import_the_corpus_like_one) {
  std::vector<std::string> const paths = test_support::message_paths();
  ASSERT_FALSE(paths.empty());
  expect_same_on_two_threads(paths, desktop);
  expect_same_on_two_threads(paths, full);
}

} // namespace
