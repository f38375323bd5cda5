// SPDX-License-Identifier: MIT
#include "email/decode.h"

#include <algorithm>

#include "charset/convert.h"
#include "email/base64.h"
#include "email/flowed.h"
#include "email/quoted_printable.h"
#include "email/uuencode.h"
#include "text/format.h"

namespace email {

using namespace std::string_view_literals;

namespace {

bool is_known_encoding(std::string const& e) {
  switch (e.size()) {
  case 4:
    return e == "7bit"sv || e == "8bit"sv;
  case 6:
    return e == "binary"sv || e == "base64"sv;
  case 10:
    return e == "x-uuencode"sv;
  case 16:
    return e == "quoted-printable"sv;
  default:
    return false;
  }
}

using quern::error::code_t, quern::error::pattern_of;

// description: the code's pattern filled in; empty for a plain text.
void report(quern::error::handler_t* problems, code_t code, std::string description = {}) {
  if (!problems)
    return;
  if (description.empty())
    problems->push_back(code, {});
  else
    problems->push_back(code, {{"description", std::move(description)}});
}

} // namespace

bool decode(char const* begin, char const* end, bool top_level, std::string& type, std::string& subtype,
            std::string const& encoding, std::string const& charset, std::vector<char>& out,
            quern::error::handler_t* problems, reading_t reading) {
  std::string enc = encoding;
  if (!is_known_encoding(enc)) {
    if (auto const blank = enc.find_first_of(" \t"); blank != std::string::npos) {
      enc.erase(blank);
      report(problems, code_t::encoding_multiple_words,
             text::format(pattern_of<code_t::encoding_multiple_words>, encoding.c_str()));
    }
    if (!is_known_encoding(enc)) {
      if (enc == charset) {
        report(problems, code_t::encoding_is_charset,
               text::format(pattern_of<code_t::encoding_is_charset>, enc.c_str()));
        enc = "7bit";
      } else if (type != "multipart"sv && type != "message"sv) {
        report(problems, code_t::encoding_unknown, text::format(pattern_of<code_t::encoding_unknown>, enc.c_str()));
        type = "application";
        subtype = "octet-stream";
        enc = "binary";
      } else {
        report(problems, code_t::encoding_unknown_in_container,
               text::format(pattern_of<code_t::encoding_unknown_in_container>, enc.c_str(), type.c_str(),
                            subtype.c_str()));
        enc = "7bit";
      }
    }
  }
  // Only an enclosed message is walked into; other message types are data.
  if (type == "message"sv && subtype != "rfc822"sv) {
    type = "application";
    subtype = "octet-stream";
  }
  // An encoded enclosed message is decoded where the rules forbid it: inside
  // a multipart always, and in the full reading at the top level too, where
  // a message that is only an encoded message would otherwise give nothing.
  if (enc == "quoted-printable"sv || enc == "base64"sv) {
    if (type == "message"sv && (!top_level || reading == reading_t::full)) {
      report(problems, code_t::encoding_allowed_anyway,
             text::format(pattern_of<code_t::encoding_allowed_anyway>, enc.c_str(), type.c_str()));
    } else if (type == "message"sv || type == "multipart"sv) {
      report(problems, code_t::encoding_not_allowed,
             text::format(pattern_of<code_t::encoding_not_allowed>, enc.c_str(), type.c_str()));
      enc = "7bit";
    }
  }
  bool const binary = type != "multipart"sv && type != "message"sv && type != "text"sv;
  return mime_decode(begin, end, std::back_inserter(out), enc, problems, binary, reading);
}

bool mime_decode(char const* first, char const* last, std::back_insert_iterator<std::vector<char>> out,
                 std::string const& encoding, quern::error::handler_t* problems, bool binary, reading_t reading) {
  if (encoding == "quoted-printable"sv) {
    decode_quoted_printable(first, last, out, problems, binary);
    return true;
  }
  if (encoding == "base64"sv) {
    decode_base_64_append(first, last, true, charset::detail::container_access_t<std::vector<char>>::of(out), problems,
                          reading == reading_t::full);
    return true;
  }
  if (encoding == "x-uuencode"sv) {
    if (problems)
      problems->push_back(code_t::encoding_uuencode, {{"context", encoding}});
    decode_uuencoded_text(first, last, out);
    return true;
  }
  return false;
}

void decode_text(char const* begin, char const* end, std::vector<char>& buffer, std::string const& subtype, bool flowed,
                 bool delsp, std::string const& charset, std::function<std::string()> const& fallback,
                 quern::error::handler_t* problems, charset::policy_t policy) {
  if (!buffer.empty()) {
    begin = buffer.data();
    end = begin + buffer.size();
  }
  // The converted text is kept per thread between calls: a message of many
  // small parts would otherwise allocate it for each. A large one is let go.
  thread_local std::vector<char> converted;
  converted.clear();
  converted.reserve(static_cast<std::size_t>(end - begin));
  charset::convert_to_utf8(begin, end, std::back_inserter(converted), charset, fallback, problems, policy);
  // The decoded bytes make room for the canonical text: a large body is held
  // twice at most.
  buffer.clear();
  if (buffer.capacity() < converted.size())
    std::vector<char>().swap(buffer); // let go before the larger one comes
  if (!converted.empty()) {
    buffer.reserve(converted.size());
    decode_to_canonical_format(converted.data(), converted.data() + converted.size(), subtype, flowed, delsp,
                               std::back_inserter(buffer), problems);
  }
  if (converted.capacity() > (1u << 20))
    std::vector<char>().swap(converted);
}

void decode_to_canonical_format(char const* begin, char const* end, std::string const& subtype, bool flowed, bool delsp,
                                std::back_insert_iterator<std::vector<char>> out, quern::error::handler_t* problems) {
  if (subtype == "plain"sv) {
    if (delsp && !flowed) {
      // The text lacks its closing quote; it is kept as it always read.
      report(problems, code_t::delsp_without_flowed);
      format_deflow(begin, end, out, false, false, false);
    } else {
      format_deflow(begin, end, out, flowed, delsp, false);
    }
    return;
  }
  if (subtype == "html"sv) {
    if (flowed)
      report(problems, code_t::flowed_in_html);
    if (delsp)
      report(problems, code_t::delsp_in_html);
  }
  std::copy(begin, end, out);
}

} // namespace email
