// SPDX-License-Identifier: MIT
// Conversion throughput: the common charsets, and the hostile inputs that
// must stay linear (a megabyte of ESC bytes, every line failing).
#include <benchmark/benchmark.h>

#include <iterator>
#include <string>

#include "charset/convert.h"

namespace {

std::string fallback() {
  return "iso-8859-1";
}

void run(benchmark::State& state, std::string const& input, std::string const& charset) {
  for (auto _ : state) {
    std::string out;
    charset::convert_to_utf8(input.data(), input.data() + input.size(), std::back_inserter(out), charset, fallback,
                             nullptr);
    benchmark::DoNotOptimize(out);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * input.size()));
}

std::string repeat(std::string const& unit, std::size_t size) {
  std::string result;
  while (result.size() < size)
    result += unit;
  return result;
}

void short_latin1_words(benchmark::State& state) {
  run(state, "caf\xE9 cr\xE8me", "iso-8859-1");
}
void latin1(benchmark::State& state) {
  run(state,
      repeat("caf\xE9 cr\xE8me br\xFBl\xE9"
             "e\n",
             1 << 20),
      "iso-8859-1");
}
void utf8_text(benchmark::State& state) {
  run(state, repeat("caf\xC3\xA9 \xE6\x97\xA5\xE6\x9C\xAC\n", 1 << 20), "utf-8");
}
void undeclared_ascii(benchmark::State& state) {
  run(state, repeat("plain text line\n", 1 << 20), "");
}
void iso_2022_jp(benchmark::State& state) {
  run(state, repeat("\x1B$B$3$s$K$A$O\x1B(B abc\n", 1 << 20), "iso-2022-jp");
}
void escape_bytes(benchmark::State& state) {
  run(state, std::string(1 << 20, '\x1B'), "iso-2022-jp");
}
void failing_lines(benchmark::State& state) {
  run(state, repeat("\x1B$B0!\x80\n\x1B$(D0!\x1B(B\xFF\n", 1 << 20), "iso-2022-jp");
}
void invalid_utf8(benchmark::State& state) {
  run(state, std::string(1 << 20, '\xFF'), "utf-8");
}

} // namespace

BENCHMARK(short_latin1_words);
BENCHMARK(latin1);
BENCHMARK(utf8_text);
BENCHMARK(undeclared_ascii);
BENCHMARK(iso_2022_jp);
BENCHMARK(escape_bytes);
BENCHMARK(failing_lines);
BENCHMARK(invalid_utf8);
