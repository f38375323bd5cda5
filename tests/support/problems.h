// SPDX-License-Identifier: MIT
// A check for the tests that read what parsers record: every stored problem's
// description must read as its code's text, so that a parser pushing one code
// with another's description fails wherever its problem is exercised.
#pragma once

#include <cstddef>
#include <string_view>

#include <gtest/gtest.h>

#include "error/handler.h"

namespace test {

// Whether description begins with pattern, each printf conversion in pattern
// standing for any run of characters. Taking each literal piece at its first
// place is enough, as nothing needs to follow the last one.
inline bool begins_as(std::string_view description, std::string_view pattern) {
  bool first_piece = true;
  while (true) {
    std::size_t const percent = pattern.find('%');
    std::string_view const piece = pattern.substr(0, percent);
    std::size_t const at =
        first_piece ? (description.starts_with(piece) ? 0 : description.npos) : description.find(piece);
    if (at == description.npos)
      return false;
    if (percent == pattern.npos)
      return true;
    description.remove_prefix(at + piece.size());
    std::size_t const letter = pattern.find_first_not_of("-+ #0123456789.hlLjzt", percent + 1);
    pattern.remove_prefix(letter == pattern.npos ? pattern.size() : letter + 1);
    first_piece = false;
  }
}

inline void expect_descriptions_fit_codes(quern::error::handler_t const& handler) {
  for (auto const& entry : handler.entries())
    EXPECT_TRUE(begins_as(entry.record.at("description"), text_of(entry.code)))
        << name_of(entry.code) << ": " << entry.record.at("description");
}

} // namespace test
