// SPDX-License-Identifier: MIT
// Which charset a text without a usable label is in.
//
// Mail with no charset, an ASCII name over 8-bit bytes, a name nobody knows
// or a name its bytes do not fit still has to be shown the way its writer
// saw it. detect_charset asks a statistical detector, which looks at which
// byte sequences are frequent in each language's texts, and passes on its
// answer only when it is one of the charsets mail is commonly written in:
// asked about a short text, a detector readily names a rare charset that
// happens to fit the few bytes it saw, and a wrong guess shows worse than the
// windows-1252 a caller falls back to. Valid UTF-8 is the caller's to find
// first; the detector is asked only about text that is not.
#pragma once

#include <string>

namespace charset {

// The lower-case iconv name of the charset [first, last) is most likely in,
// or the empty string when no trusted charset is likely enough. Japanese
// answers are "shift_jis", "euc-jp" or "iso-2022-jp"; Chinese ones
// "gb18030" or "big5"; Latin-1 is answered as "windows-1252".
std::string detect_charset(char const* first, char const* last);

} // namespace charset
