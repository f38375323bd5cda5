// The base64 decoder: one class table, a forward cursor and a run start that
// marks the first byte not yet decoded or copied, so that a line found to be
// undecodable can be copied whole without backtracking over the input.
#include "email/base64.h"

#include <array>
#include <cstring>
#include <iterator>

#include "email/reinterpret_base.h"
#include "text/ascii.h"
#include "text/format.h"

namespace email {
namespace {

using text::is_blank;
using text::skip_blanks;

constexpr std::array<unsigned char, 256> make_base64_table() {
  std::array<unsigned char, 256> table{};
  table.fill(kBase64IllegalCharacter);
  constexpr char letters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  for (unsigned i = 0; i < 64; ++i)
    table[static_cast<unsigned char>(letters[i])] = static_cast<unsigned char>(i);
  for (unsigned char c : {'\t', '\n', '\r', ' '})
    table[c] = kBase64WhitespaceCharacter;
  table['='] = kBase64EqualCharacter;
  return table;
}

} // namespace

unsigned char decode_base_64_function(unsigned char c) {
  static constexpr std::array<unsigned char, 256> Base64DecodingTable = make_base64_table();
  return Base64DecodingTable[c];
}

std::vector<char> decode_base_64_data(char const* begin, char const* end, bool line_mode,
                                      quern::error::handler_t* problems) {
  std::vector<char> result;
  if (end - begin > 3)
    result.reserve(static_cast<std::size_t>(end - begin) / 4 * 3);
  while (begin != end && *begin == '\n')
    ++begin;
  if (begin == end)
    return result;

  auto out = std::back_inserter(result);
  std::string sextets;
  std::size_t passed_through = 0;
  char const* run_start = begin;
  char const* p = begin;

  // Copies everything from run_start to the end of the line holding `from`
  // (LF included) and moves on after it. The sextets pending from this run
  // are dropped: their letters are among the copied bytes.
  auto const pass_through = [&](char const* from) {
    auto const* lf = static_cast<char const*>(std::memchr(from, '\n', static_cast<std::size_t>(end - from)));
    char const* const line_end = lf ? lf : end;
    char const* const next = lf ? lf + 1 : end;
    result.insert(result.end(), run_start, next);
    passed_through += static_cast<std::size_t>(line_end - run_start);
    sextets.clear();
    run_start = next;
    p = next;
  };

  while (p != end) {
    unsigned char const value = decode_base_64_function(static_cast<unsigned char>(*p));
    if (value < 64) {
      sextets.push_back(static_cast<char>(value));
      ++p;
      continue;
    }
    if (sextets.empty() || value == kBase64IllegalCharacter) {
      if (sextets.empty() && is_blank(*p))
        ++p;
      else
        pass_through(p);
      continue;
    }

    // White space or '=' after letters ends a group. The '=' padding only
    // counts towards the group's length; the byte after it is examined anew.
    std::size_t group = sextets.size();
    for (; p != end && *p == '='; ++p)
      ++group;
    if (line_mode && p != end) {
      p = skip_blanks(p, end);
      if (p != end) {
        if (*p != '\n') {
          pass_through(p);
          continue;
        }
        p = skip_blanks(p + 1, end);
      }
    }
    if (!line_mode || group % 4 == 0) {
      reinterpret_base<6, 8>(sextets.begin(), sextets.end(), out, false);
      sextets.clear();
    }
    run_start = p;
  }

  if (problems && passed_through != 0) {
    problems->push_back(
        {{"description",
          text::format("Passed through %zu unexpected characters during base64 decoding.", passed_through)}});
  }
  reinterpret_base<6, 8>(sextets.begin(), sextets.end(), out, false);
  return result;
}

std::string decode_base_64(char const* begin, char const* end, quern::error::handler_t* problems,
                           std::string const& /*context*/) {
  std::vector<char> const bytes = decode_base_64_data(begin, end, false, problems);
  return std::string(bytes.begin(), bytes.end());
}

} // namespace email
