// SPDX-License-Identifier: MIT
// The day, month and zone tables. Offsets are written as the zone itself is,
// a decimal ±HHMM number. "UTC" is deliberately not among the RFC 822 names:
// that standard spells it "UT", so a date in "UTC" is accepted as a
// non-RFC 822 name. The one-letter military zones are computed by the parser.
#include "date/tables.h"

#include <algorithm>
#include <utility>

#include "text/ascii.h"

namespace date {
namespace {

tables_t build() {
  static char const* const days[7] = {"mon", "tue", "wed", "thu", "fri", "sat", "sun"};
  static char const* const months[12] = {"jan", "feb", "mar", "apr", "may", "jun",
                                         "jul", "aug", "sep", "oct", "nov", "dec"};
  static std::pair<char const*, std::int64_t> const rfc822[] = {
      {"UT", 0},     {"GMT", 0},    {"EDT", -400}, {"EST", -500}, {"CDT", -500},
      {"CST", -600}, {"MDT", -600}, {"MST", -700}, {"PDT", -700}, {"PST", -800},
  };
  static std::pair<char const*, std::int64_t> const other[] = {
      {"UTC", 0},    {"BST", 100},  {"IST", 100},  {"WET", 0},     {"WEST", 100},  {"WEDT", 100},   {"CET", 100},
      {"MEZ", 100},  {"CEST", 200}, {"CEDT", 200}, {"MESZ", 200},  {"EET", 200},   {"EEST", 300},   {"EEDT", 300},
      {"MSK", 300},  {"MSD", 400},  {"NST", -330}, {"HNT", -330},  {"NDT", -230},  {"HAT", -230},   {"AST", -400},
      {"HNA", -400}, {"ADT", -300}, {"HAA", -300}, {"AKST", -900}, {"AKDT", -800}, {"HAST", -1000}, {"HADT", -900},
      {"FT", 1130},  {"WST", 800},  {"AWST", 800}, {"WDT", 900},   {"AWDT", 900},  {"CXT", 700},    {"SGT", 800},
  };
  tables_t t;
  t.day_names.insert(std::begin(days), std::end(days));
  for (int i = 0; i < 12; ++i)
    t.month_names.emplace(months[i], i);
  for (auto const& [name, offset] : rfc822)
    t.rfc822_zones.emplace(name, offset);
  for (auto const& [name, offset] : other)
    t.other_zones.emplace(name, offset);
  return t;
}

} // namespace

bool less_than_stricmp::operator()(char const* a, char const* b) const {
  for (int i = 0; i < 3; ++i) {
    auto const x = static_cast<unsigned char>(text::to_lower(a[i]));
    auto const y = static_cast<unsigned char>(text::to_lower(b[i]));
    if (x != y)
      return x < y;
  }
  return false;
}

bool zone_less_t::operator()(std::string_view a, std::string_view b) const {
  return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
    return static_cast<unsigned char>(text::to_upper(x)) < static_cast<unsigned char>(text::to_upper(y));
  });
}

tables_t const& tables() {
  static tables_t const instance = build();
  return instance;
}

} // namespace date
