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
#include "tests/support/messages.h"

namespace {

importer::attribute_set_t::map_t record(std::string const& path, importer::options_t const& options) {
  importer::attribute_set_t attributes;
  importer::import_file(path, attributes, options);
  return {attributes.begin(), attributes.end()};
}

TEST(threads, two_threads_import_the_corpus_like_one) {
  std::vector<std::string> const paths = test_support::message_paths();
  ASSERT_FALSE(paths.empty());
  for (importer::reading_t reading : {importer::reading_t::desktop, importer::reading_t::full}) {
    importer::options_t options;
    options.reading = reading;
    std::vector<importer::attribute_set_t::map_t> expected;
    for (auto const& path : paths)
      expected.push_back(record(path, options));

    std::vector<importer::attribute_set_t::map_t> forward(paths.size()), backward(paths.size());
    std::thread first([&] {
      for (std::size_t i = 0; i < paths.size(); ++i)
        forward[i] = record(paths[i], options);
    });
    std::thread second([&] {
      for (std::size_t i = paths.size(); i-- > 0;)
        backward[i] = record(paths[i], options);
    });
    first.join();
    second.join();
    for (std::size_t i = 0; i < paths.size(); ++i) {
      EXPECT_TRUE(forward[i] == expected[i] && backward[i] == expected[i]) << paths[i];
    }
  }
}

} // namespace
