// Address fields to flat lists of display names and e-mail addresses.
//
// PLACEHOLDER until address syntax lands: appends nothing. The signature is
// final.
#pragma once

#include <string>
#include <vector>

namespace importer {

inline void parse_addresses(std::string const& /*value*/, std::vector<std::string>& /*names*/,
                            std::vector<std::string>& /*emails*/) {}

} // namespace importer
