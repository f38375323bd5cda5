// SPDX-License-Identifier: MIT
// Header decoding on adversarial and ordinary values. Time per byte must stay
// flat as the values grow: compare the rates of the /1 and /16 sizes.
#include <benchmark/benchmark.h>

#include "email/encoded_word.h"

namespace {

void decode(benchmark::State& state, std::string const& value) {
  for (auto _ : state) {
    std::string out;
    email::decode_header_line(value.data(), value.data() + value.size(), std::back_inserter(out), nullptr, "");
    benchmark::DoNotOptimize(out);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * value.size()));
}

std::string repeat(std::string const& piece, std::int64_t times) {
  std::string s;
  s.reserve(piece.size() * static_cast<std::size_t>(times));
  for (std::int64_t i = 0; i < times; ++i)
    s += piece;
  return s;
}

void bm_open_markers(benchmark::State& state) {
  decode(state, repeat("=?", 62'500 * state.range(0)));
}
void bm_adjacent_words(benchmark::State& state) {
  decode(state, repeat("=?utf-8?q?ab?= ", 6'250 * state.range(0)));
}
void bm_alternating_charsets(benchmark::State& state) {
  decode(state, repeat("=?utf-8?q?a?= =?iso-8859-1?q?=E9?= ", 3'125 * state.range(0)));
}
void bm_unterminated_words(benchmark::State& state) {
  decode(state, repeat("=?a?q?", 16'667 * state.range(0)));
}
void bm_subject(benchmark::State& state) {
  decode(state, "Re: [dev] =?UTF-8?Q?Gr=C3=BC=C3=9Fe_aus_M=C3=BCnchen?= =?UTF-8?B?4pyU?= and more");
}

// /16 is a million "=?" and 100,000 adjacent encoded words.
BENCHMARK(bm_open_markers)->Arg(1)->Arg(16)->Unit(benchmark::kMillisecond);
BENCHMARK(bm_adjacent_words)->Arg(1)->Arg(16)->Unit(benchmark::kMillisecond);
BENCHMARK(bm_alternating_charsets)->Arg(1)->Arg(16)->Unit(benchmark::kMillisecond);
BENCHMARK(bm_unterminated_words)->Arg(1)->Arg(16)->Unit(benchmark::kMillisecond);
BENCHMARK(bm_subject);

} // namespace
