// SPDX-License-Identifier: MIT
// The name tables of the date parser.
//
// Day and month names are looked up with a pointer straight into the date
// text, which is not terminated after the name; the ordering compares only
// the first three characters, ignoring ASCII case, so "Monday", "MON" and
// "Monxyz" all find "mon" without the text being copied. Zone names are
// matched in full: the tables hold them in upper case and the probe is folded
// to upper case while it is compared, so the match is case-insensitive and
// exact in length. The tables are built once, on first use, and only read
// afterwards.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <boost/container/flat_map.hpp>
#include <boost/container/flat_set.hpp>

namespace date {

// Orders by the first three characters, ASCII case folded.
struct less_than_stricmp {
  bool operator()(char const* a, char const* b) const;
};

// Orders upper-case names byte-wise, folding a probe to upper case.
struct zone_less_t {
  using is_transparent = void;
  bool operator()(std::string_view a, std::string_view b) const;
};

using name_set_t = boost::container::flat_set<char const*, less_than_stricmp>;
using month_map_t = boost::container::flat_map<char const*, int, less_than_stricmp>;
using zone_map_t = boost::container::flat_map<std::string, std::int64_t, zone_less_t>;

struct tables_t {
  name_set_t day_names;
  month_map_t month_names;
  zone_map_t rfc822_zones; // the names RFC 822 defines
  zone_map_t other_zones;  // names it does not, which mail uses anyway
};

tables_t const& tables();

} // namespace date
