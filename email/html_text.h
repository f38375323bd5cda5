// SPDX-License-Identifier: MIT
// The readable text of an HTML document.
//
// Many messages carry their text only as HTML: newsletters, notifications,
// most mail written in web clients. html_to_text reads such a part with
// libxml2's HTML parser, the forgiving parser that browsers' rules were
// written down from and that Tracker's own HTML extractor uses, through its
// SAX interface, so no tree is built however large the document. The input is
// UTF-8 already (the caller converted the part's charset with our converter)
// and the parser is told so: a <meta> charset cannot override it. Network
// access is off and errors are silenced; a broken document yields what could
// be read of it.
//
// What is kept is what a reader sees: the character data outside script,
// style and head, entities decoded by the parser. Block elements (p, div, br,
// li, tr, headings, tables, lists, quotes) end a line; cells are separated by
// a space; every other run of white space, non-breaking spaces included,
// becomes one space. Lines carry no leading or trailing space.
//
// Cost stays linear in the input and memory near its size: comments are cut
// out of the caller's buffer in place before parsing (one pass; an
// unterminated comment hides the rest, as it does in a browser), so the
// parser never collects a huge comment; the text is written once; and the
// parser's stack of open elements stays below max_html_depth (a million
// nested tags would otherwise make it search a million-entry stack for every
// close tag it cannot match). The element that would go deeper hands the rest
// of the document to a flat reader that keeps no stack: it sees the same tags
// and text and follows the same rules for hidden, block and cell elements, so
// the text and its line breaks still come out; only nesting is lost, which
// matters little since the rules above look at each tag on its own.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "error/handler.h"

namespace email {

inline constexpr std::size_t max_html_depth = 512;

// The text of the UTF-8 HTML document held in document, each line ended by
// LF; empty when it holds none. The document's comments are removed in place.
// A document nested deeper than max_html_depth records html_too_deep once in
// problems, when that is not null.
std::string html_to_text(std::vector<char>& document, quern::error::handler_t* problems = nullptr);

// Removes every comment ("<!--" to "-->", or to the end when unterminated),
// every bogus comment a browser's tokenizer drops ("<?...>", "<!x...>",
// "</ ...>", "</>") and every <wbr> (an element the parser does not know, so would keep open)
// from [first, last) in place; returns the new end.
char* remove_comments(char* first, char* last);

} // namespace email
