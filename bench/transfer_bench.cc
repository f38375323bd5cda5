// SPDX-License-Identifier: MIT
// Throughput of the transfer decoders and the multipart splitter, on typical
// bodies and on the hostile shapes that would expose a non-linear scan (a
// megabyte of '=' or of near-miss "--" lines). Bytes processed are reported
// so the figures read as MB/s.
#include <benchmark/benchmark.h>

#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "email/base64.h"
#include "email/flowed.h"
#include "email/multipart.h"
#include "email/quoted_printable.h"

namespace {

constexpr std::size_t megabyte = 1 << 20;

std::string random_bytes(std::size_t size) {
  std::mt19937 random(42);
  std::string bytes(size, '\0');
  for (char& c : bytes)
    c = static_cast<char>(random() & 0xFF);
  return bytes;
}

std::string base64_lines(std::string const& bytes) {
  static constexpr char letters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (std::size_t i = 0; i + 3 <= bytes.size(); i += 3) {
    unsigned const group = (static_cast<unsigned char>(bytes[i]) << 16) |
                           (static_cast<unsigned char>(bytes[i + 1]) << 8) | static_cast<unsigned char>(bytes[i + 2]);
    for (int shift = 18; shift >= 0; shift -= 6)
      text.push_back(letters[(group >> shift) & 63]);
    if (i % 57 == 54)
      text.push_back('\n');
  }
  return text;
}

std::string quoted_printable_text() {
  std::string text;
  while (text.size() < megabyte)
    text += "Caf=C3=A9 au lait, cr=C3=A8me br=C3=BBl=C3=A9e and a line long enough to need a soft=\n break.\n";
  return text;
}

template <typename Decode> void run(benchmark::State& state, std::string const& input, Decode decode) {
  for (auto _ : state)
    benchmark::DoNotOptimize(decode(input.data(), input.data() + input.size()));
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * input.size()));
}

std::vector<char> qp(char const* first, char const* last) {
  std::vector<char> out;
  email::decode_quoted_printable(first, last, std::back_inserter(out), nullptr, false);
  return out;
}

void quoted_printable_text_body(benchmark::State& state) {
  run(state, quoted_printable_text(), qp);
}
void quoted_printable_all_equals(benchmark::State& state) {
  run(state, std::string(megabyte, '='), qp);
}

void base64_line_mode(benchmark::State& state) {
  run(state, base64_lines(random_bytes(megabyte)),
      [](char const* first, char const* last) { return email::decode_base_64_data(first, last, true, nullptr); });
}

void base64_all_equals(benchmark::State& state) {
  run(state, std::string(megabyte, '='),
      [](char const* first, char const* last) { return email::decode_base_64_data(first, last, true, nullptr); });
}

auto split(char const* first, char const* last) {
  return email::parse_subparts(first, last, "b", false, nullptr);
}

void multipart_parts(benchmark::State& state) {
  std::string body;
  while (body.size() < megabyte)
    body += "--b\nContent-Type: text/plain\n\n" + std::string(2000, 'x') + "\n";
  body += "--b--\n";
  run(state, body, split);
}

void multipart_near_delimiter_lines(benchmark::State& state) {
  std::string body;
  while (body.size() < megabyte)
    body += "--\n--bx\n";
  run(state, body, split);
}

void deflow_quoted_text(benchmark::State& state) {
  std::string text;
  while (text.size() < megabyte)
    text += "> > quoted text with trailing spaces   \n>>another line\n-- \nplain line\n";
  run(state, text, [](char const* first, char const* last) {
    std::vector<char> out;
    email::format_deflow(first, last, std::back_inserter(out), false, false, false);
    return out;
  });
}

BENCHMARK(quoted_printable_text_body);
BENCHMARK(quoted_printable_all_equals);
BENCHMARK(base64_line_mode);
BENCHMARK(base64_all_equals);
BENCHMARK(multipart_parts);
BENCHMARK(multipart_near_delimiter_lines);
BENCHMARK(deflow_quoted_text);

} // namespace
