// SPDX-License-Identifier: MIT
// Single-byte charsets through a table of 256 UTF-8 forms.
//
// Text in a single-byte charset (the ISO 8859 family, most Windows code
// pages, KOI8) gives the same UTF-8 whether iconv converts it a buffer at a
// time or each byte is looked up in a table of its UTF-8 form, and the table
// costs one load per byte instead of a trip through a converter module. The
// table is filled once per thread and charset by asking iconv for every byte
// on its own, so it says exactly what iconv says. A byte iconv does not
// decode has no entry, and a text holding one is left to iconv and its error
// handling. Only charsets whose bytes iconv decodes independently of their
// neighbours qualify: the code pages that combine a letter with the
// diacritic after it (1255, 1258) are not among them.
#pragma once

#include <string>

#include "charset/sink.h"

namespace charset::detail {

// Appends the UTF-8 form of [first, last) read as charset and returns true,
// when charset is a single-byte charset and every byte has a mapping;
// otherwise appends nothing and returns false.
bool convert_single_byte(char const* first, char const* last, sink_t const& out, std::string const& charset);

} // namespace charset::detail
