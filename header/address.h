// SPDX-License-Identifier: MIT
// Display name and e-mail address of one mailbox, and small URL splitters.
//
// address_name_and_email_function reads the whole range as one address and
// returns two ranges into it: the display name and the e-mail. It accepts
// every form real mail carries ("Name <addr>", "addr (Name)", bare address,
// bare name, quoted names, group syntax) and the broken variants, and never
// fails: whatever it cannot find comes back as an empty match. The name range
// may include one surrounding double quote on each side, so callers dequote
// it with dequote_string.
#pragma once

#include <utility>

#include "header/token.h"

namespace header {

// (name, e-mail) of the address in [position, end); position is set to end.
std::pair<match_t, match_t> address_name_and_email_function(char const*& position, char const* end);

namespace detail {
// address_name_and_email_function without the shortcuts by which a failed
// scan answers later ones. Quadratic on hostile input; the reference that
// the fast path is tested against.
std::pair<match_t, match_t> address_name_and_email_unpredicted(char const*& position, char const* end);
} // namespace detail

// The name half and the e-mail half of address_name_and_email_function.
match_t address_name_function(char const*& position, char const* end);
match_t address_email_function(char const*& position, char const* end);

// Widens [first, last) over quotes, brackets and angle brackets next to it
// that the range itself leaves unbalanced, within [lower, upper).
void include_unbalanced_symbols(char const*& first, char const*& last, char const* lower, char const* upper);

// The text after a leading "mailto:" (case-sensitive), else empty.
match_t mailto_function(char const*& position, char const* end);
// The text before the first ':' (all of it without one).
match_t protocol_function(char const*& position, char const* end);
// The host part of "scheme://host/path": after the first '/' and one more
// byte, up to the next '/'.
match_t server_function(char const*& position, char const* end);
// What follows the '/' after the host part.
match_t path_function(char const*& position, char const* end);

} // namespace header
