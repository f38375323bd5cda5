// SPDX-License-Identifier: MIT
// Whole imports over a corpus of message files, as the host runs them.
//
// The corpus comes from TIDEWELL_BENCH_CORPUS (a folder of .eml files, e.g.
// made by ../shared/bench/make_corpus.py); without it the examples/ folder
// is used. Reports bytes and files per second.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <vector>

#include "importer/import.h"

namespace {

std::vector<std::string> corpus_files(std::uintmax_t& bytes) {
  char const* dir = std::getenv("TIDEWELL_BENCH_CORPUS");
  std::filesystem::path const root = dir ? dir : TIDEWELL_SOURCE_DIR "/examples";
  std::vector<std::string> files;
  for (auto const& entry : std::filesystem::recursive_directory_iterator(root))
    if (entry.is_regular_file()) {
      files.push_back(entry.path().string());
      bytes += entry.file_size();
    }
  return files;
}

void bm_import_corpus(benchmark::State& state) {
  std::uintmax_t bytes = 0;
  auto const files = corpus_files(bytes);
  for (auto _ : state)
    for (auto const& file : files) {
      importer::attribute_set_t attributes;
      importer::import_file(file, attributes);
      benchmark::DoNotOptimize(attributes);
    }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * files.size()));
}

BENCHMARK(bm_import_corpus)->Unit(benchmark::kMillisecond);

} // namespace
