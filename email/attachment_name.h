// SPDX-License-Identifier: MIT
// The file name of a body part.
//
// Mail programs name an attachment in two places: the filename parameter of
// Content-Disposition (RFC 2183) and, older and still common, the name
// parameter of Content-Type. A long or non-ASCII name is written as RFC 2231
// continuations (filename*0*=utf-8''..., filename*1*=...) with a charset and
// percent-escapes, or, against the rules but widely, as RFC 2047 encoded
// words inside the quoted value, or as raw 8-bit bytes. attachment_name reads
// all of these and gives the name as UTF-8: the disposition's filename first,
// then the type's name; an extended (RFC 2231) value wins over a plain one of
// the same parameter, since a writer that sends both means the plain one as
// the fallback for old readers.
//
// Control characters in a name become spaces, so a name is one line of text.
// The scan visits each parameter once and continuations are capped at
// max_name_sections, so hostile headers cost linear time.
#pragma once

#include <cstddef>
#include <string>

#include "charset/convert.h"

namespace email {

inline constexpr std::size_t max_name_sections = 1000;

// The file name given by the raw Content-Disposition and Content-Type values
// of one part; empty when neither names a file. The full reading reads
// names under policy_t::guess, like the rest of its text.
std::string attachment_name(std::string const& disposition, std::string const& content_type,
                            charset::policy_t policy = charset::policy_t::labelled);

// The value of the parameter called name (lower case) in the raw header value
// [first, last), RFC 2231 continuations and charset applied, RFC 2047 words
// decoded; empty when the parameter is absent.
std::string parameter_text(char const* first, char const* last, std::string const& name,
                           charset::policy_t policy = charset::policy_t::labelled);

} // namespace email
