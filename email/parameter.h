// SPDX-License-Identifier: MIT
// Reading one named parameter of a content header.
//
// The grammar is a forgiving subset of MIME parameters: "; name = value",
// the name matched case-insensitively with every space inside it ignored,
// the value either a quoted string (backslash escapes) or the bytes up to the
// next space or ';'. There are no continuations, no charset/language tags and
// no comments. A name's search for its '=' runs over ';', so "; x; a=b"
// reads the name "x;a", which is what mail programs of this lineage did.
//
// The scan moves from one parameter to the next in a loop, so a header with a
// million parameters costs linear time and constant stack.
#pragma once

#include <string>

namespace email {

// begin must point at the ';' that opens a parameter; name must be lower
// case. On a match the value is stored (a quoted value replaces, a bare one
// is appended); otherwise value is left untouched.
void parse_parameter(char const* begin, char const* end, std::string const& name, std::string& value);

// True when begin is on '"' and a closing '"' follows: value is replaced by
// the unescaped contents. Otherwise false and value is untouched.
bool parse_quoted_string(char const* begin, char const* end, std::string& value);

// Appends the bytes up to the first SP, ';' or end to value; always true.
bool parse_string(char const* begin, char const* end, std::string& value);

} // namespace email
