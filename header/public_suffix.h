// SPDX-License-Identifier: MIT
// Host names cut at their public suffix.
//
// The public suffix of a host is the longest ending that the Public Suffix
// List (libpsl's built-in copy, ICANN and private sections) names as a
// suffix under which anyone may register: "co.uk" for "news.bbc.co.uk",
// "github.io" for "user.github.io". The label before it is the registrable
// ("second level") name and the one before that the third level. Names are
// compared as given: the list is lower case, so callers lower-case first.
#pragma once

#include "header/token.h"

namespace header {

// Start of the longest public suffix of the host in [first, end), or end when
// even its last label is not one. A host that is itself a suffix returns
// first.
char const* get_public_suffix(char const*& first, char const* end);

// The public suffix; empty when there is none. position is set to end.
match_t psl_top_level_function(char const*& position, char const* end);
// The label just before the public suffix, without its dot; empty when the
// host is a suffix itself.
match_t psl_second_level_function(char const*& position, char const* end);
// The label before that one; empty when there is none.
match_t psl_third_level_function(char const*& position, char const* end);

} // namespace header
