// SPDX-License-Identifier: MIT
// Encoded words (RFC 2047) in unstructured header values.
//
// decode_header_line turns a raw, unfolded header value into UTF-8. It makes
// two forward passes. The first (merge_encoded_words) joins every run of
// adjacent encoded words that share charset and encoding into one word, so a
// multi-byte character or a base64 quantum split across two words decodes
// whole. The second walks the value: text before the first "=" is converted
// with the caller's declared charset, each encoded word is Q- or B-decoded
// and converted with its own charset, white space between two encoded words
// is dropped, and any other text between them is converted as undeclared.
// The conversion policy applies to every piece; under policy_t::guess the
// fallback names the charset the message's other raw header text was found
// in (or nothing).
//
// find_encoded_word is strict about the shape (=?charset?Q|B?text?=, no "?"
// inside the text, charset made of a-z 0-9 : . _ -), but forgiving where a
// sender's intent is clear: an empty charset means UTF-8, single quotes
// around it are dropped, and a Q word with raw control or 8-bit bytes is
// still decoded. A candidate that fails is literal text; the search resumes
// just after its "=", so "=?=?utf-8?q?x?=" still finds the word at the
// second "=". Every candidate costs at most the distance to the next "?"
// or "=" it needs, so the whole search stays linear in the value's length.
#pragma once

#include <algorithm>
#include <functional>
#include <iterator>
#include <string>

#include "charset/convert.h"
#include "email/base64.h"
#include "email/quoted_printable.h"
#include "error/handler.h"

namespace email {

struct encoded_word_t {
  char const* first = nullptr;      // the "=" of "=?"
  char const* last = nullptr;       // one past "?="; null when nothing was found
  char const* text_first = nullptr; // the encoded text
  char const* text_last = nullptr;  // the "?" of the closing "?="
  char encoding = 0;                // 'q' or 'b' (a NUL letter is read as 'q')
  std::string charset;              // lower case, quotes removed
};

// The first valid encoded word in [first, last).
encoded_word_t find_encoded_word(char const* first, char const* last, quern::error::handler_t* problems);

// Appends [first, last) to out with every run of adjacent, compatible encoded
// words joined into one. Returns false (out meaningless) when nothing merged.
bool merge_encoded_words(char const* first, char const* last, std::string& out);

// "iso-8859-1": what undeclared 8-bit header text is taken as when it is not
// UTF-8.
std::string default_fallback_charset();

// True when [first, last) is empty or only white space (C locale).
bool is_all_space(char const* first, char const* last);

// The decoded bytes of one encoded word, not yet converted.
std::string decode_word_text(encoded_word_t const& word, quern::error::handler_t* problems);

template <typename OutputIt>
OutputIt decode_header_line(char const* first, char const* last, OutputIt out, quern::error::handler_t* problems,
                            std::string const& charset,
                            std::function<std::string()> const& fallback_charset = default_fallback_charset,
                            charset::policy_t policy = charset::policy_t::labelled) {
  std::string merged;
  if (merge_encoded_words(first, last, merged)) {
    first = merged.data();
    last = first + merged.size();
  }
  auto const convert = [&](char const* from, char const* to, std::string const& name) {
    if (from != to)
      charset::convert_to_utf8(from, to, out, name, fallback_charset, problems, policy);
  };

  char const* pos = std::find(first, last, '=');
  convert(first, pos, charset);
  bool first_word = true;
  while (pos != last) {
    encoded_word_t const word = find_encoded_word(pos, last, problems);
    if (!word.last) {
      convert(pos, last, charset);
      break;
    }
    // White space between two encoded words separates them and is not text;
    // anything else between them is undeclared text.
    if (first_word || !is_all_space(pos, word.first))
      convert(pos, word.first, std::string());
    std::string const decoded = decode_word_text(word, problems);
    convert(decoded.data(), decoded.data() + decoded.size(), word.charset);
    pos = word.last;
    first_word = false;
  }
  return out;
}

} // namespace email
