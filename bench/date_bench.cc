// SPDX-License-Identifier: MIT
// Date parsing: the everyday forms, which should cost well under a
// microsecond, and hostile shapes at growing sizes, whose cost must grow
// linearly (the reported complexity should be O(N)).
#include <string>

#include <benchmark/benchmark.h>

#include "date/rfc822_date.h"

namespace {

void parse(benchmark::State& state, std::string const& text) {
  for (auto _ : state) {
    date::rfc822_date_t const d(text.data(), text.data() + text.size(), nullptr);
    benchmark::DoNotOptimize(d.canonical_format());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void everyday(benchmark::State& state) {
  static std::string const texts[] = {
      "Tue, 1 Jul 2003 10:52:37 +0200",       // strict
      "Tue, 1 Jul 2003 10:52:37 -0700 (PDT)", // strict with a comment
      "Tue 1 Jul 2003 10:52:37 +0200",        // soup
      "sometime soon",                        // garbage
  };
  parse(state, texts[state.range(0)]);
}
BENCHMARK(everyday)->DenseRange(0, 3);

std::string repeat(char const* piece, std::int64_t times) {
  std::string out;
  for (std::int64_t i = 0; i < times; ++i)
    out += piece;
  return out;
}

void open_parentheses(benchmark::State& state) {
  parse(state, repeat("( ", state.range(0)));
  state.SetComplexityN(state.range(0));
}
BENCHMARK(open_parentheses)->RangeMultiplier(4)->Range(1 << 10, 1 << 18)->Complexity();

void nested_comments(benchmark::State& state) {
  parse(state, repeat("( ", state.range(0)) + repeat(") ", state.range(0)));
  state.SetComplexityN(state.range(0));
}
BENCHMARK(nested_comments)->RangeMultiplier(4)->Range(1 << 10, 1 << 18)->Complexity();

void comment_runs(benchmark::State& state) {
  parse(state, repeat("(a) ", state.range(0)));
  state.SetComplexityN(state.range(0));
}
BENCHMARK(comment_runs)->RangeMultiplier(4)->Range(1 << 10, 1 << 18)->Complexity();

} // namespace
