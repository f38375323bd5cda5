// SPDX-License-Identifier: MIT
#include "email/body.h"

#include <vector>

#include "charset/convert.h"
#include "email/attachment_name.h"
#include "email/decode.h"
#include "email/html_text.h"
#include "email/multipart.h"

namespace email {
namespace {

std::string const& entry(header_map_t const& headers, std::string_view key) {
  static std::string const empty;
  auto const it = headers.find(key);
  return it == headers.end() ? empty : it->second;
}

header_set_t const& subpart_headers() {
  static header_set_t const wanted{"content-type", "content-transfer-encoding", "content-disposition"};
  return wanted;
}

bool has_text(std::string const& text) {
  return text != no_text_marker;
}

// What one walk is after besides the desktop reading's text.
struct context_t {
  bool full = false;
  bool html = false;                           // take text/html parts' text
  std::vector<std::string>* names = nullptr;   // file names found so far
  quern::error::handler_t* problems = nullptr; // told what the decoders repair
};

std::string walk(char const* begin, char const* end, header_map_t& headers, bool top_level, std::size_t depth,
                 context_t& context);

// The text of a nested entity: its own header block, then its body.
std::string walk_nested(char const* begin, char const* end, std::size_t depth, context_t& context) {
  header_map_t headers = quick_parse_headers(begin, end, subpart_headers(),
                                             context.full ? reading_t::full : reading_t::desktop, context.problems);
  return walk(begin, end, headers, false, depth, context);
}

void note_name(header_map_t const& headers, context_t& context) {
  if (!context.names)
    return;
  if (std::string name = attachment_name(entry(headers, "content-disposition"), entry(headers, "content-type"));
      !name.empty())
    context.names->push_back(std::move(name));
}

std::vector<byte_range_t> body_parts(char const* begin, char const* end, header_map_t const& headers, bool first_only,
                                     quern::error::handler_t* problems) {
  auto ranges = parse_subparts(begin, end, entry(headers, "#boundary"), first_only, problems);
  // The first range is the preamble and the last whatever follows the
  // parts; neither is text of the message.
  if (ranges.size() >= 2) {
    ranges.pop_back();
    ranges.erase(ranges.begin());
  } else {
    ranges.clear();
  }
  return ranges;
}

// Only the file names of a part whose text is not wanted.
void walk_names(char const* begin, char const* end, std::size_t depth, context_t& context) {
  if (depth > max_nesting_depth)
    return;
  header_map_t headers = quick_parse_headers(begin, end, subpart_headers(), reading_t::full);
  std::string const& type = entry(headers, "#type");
  if (type == "multipart") {
    for (auto const& [first, last] : body_parts(begin, end, headers, false, nullptr))
      walk_names(first, last, depth + 1, context);
  } else {
    note_name(headers, context);
  }
}

// The full reading's multipart/alternative: the first alternative that gives
// plain text, else the first that gives HTML text.
std::string pick_alternative(std::vector<byte_range_t> const& parts, std::size_t depth, context_t& context) {
  bool const html = context.html;
  context.html = false;
  std::string result;
  for (auto const& [first, last] : parts)
    if (std::string text = walk_nested(first, last, depth, context); has_text(text) && result.empty())
      result = std::move(text);
  context.html = html;
  if (!result.empty() || !html)
    return result;
  // The names were listed by the first round.
  auto* const names = context.names;
  context.names = nullptr;
  for (auto const& [first, last] : parts)
    if (std::string text = walk_nested(first, last, depth, context); has_text(text)) {
      result = std::move(text);
      break;
    }
  context.names = names;
  return result;
}

std::string html_text(char const* begin, char const* end, std::vector<char>& buffer, std::string const& charset,
                      quern::error::handler_t* problems) {
  if (!buffer.empty()) {
    begin = buffer.data();
    end = begin + buffer.size();
  }
  std::vector<char> document;
  document.reserve(static_cast<std::size_t>(end - begin));
  charset::convert_to_utf8(
      begin, end, std::back_inserter(document), charset, [] { return std::string(); }, problems);
  std::vector<char>().swap(buffer);
  std::string text = html_to_text(document);
  std::vector<char>().swap(document);
  std::vector<char> canonical;
  canonical.reserve(text.size());
  decode_to_canonical_format(text.data(), text.data() + text.size(), "plain", false, false,
                             std::back_inserter(canonical), nullptr);
  // At most two copies of the text at a time.
  text.assign(canonical.begin(), canonical.end());
  return text;
}

// The text of a multipart entity: all parts of a mixed one joined (below
// 20,000,000 bytes), one alternative, or else the first part.
std::string walk_multipart(char const* begin, char const* end, header_map_t const& headers, std::string const& subtype,
                           std::size_t depth, context_t& context) {
  std::string result;
  bool const walk_all = subtype == "mixed" && end - begin < 20'000'000;
  // The full reading looks at every part: for names, and for alternatives.
  auto const ranges = body_parts(begin, end, headers, !walk_all && !context.full, context.problems);
  if (subtype == "mixed" && walk_all) {
    for (auto const& [first, last] : ranges)
      if (std::string text = walk_nested(first, last, depth + 1, context); has_text(text))
        result += text;
  } else if (subtype == "alternative" && context.full) {
    result = pick_alternative(ranges, depth + 1, context);
  } else if (subtype == "alternative") {
    for (auto it = ranges.rbegin(); it != ranges.rend(); ++it)
      if (std::string text = walk_nested(it->first, it->second, depth + 1, context); has_text(text)) {
        result = std::move(text);
        break;
      }
  } else if (!ranges.empty()) {
    if (std::string text = walk_nested(ranges.front().first, ranges.front().second, depth + 1, context); has_text(text))
      result = std::move(text);
    if (context.names)
      for (auto it = ranges.begin() + 1; it != ranges.end(); ++it)
        walk_names(it->first, it->second, depth + 1, context);
  }
  return result;
}

std::string walk(char const* begin, char const* end, header_map_t& headers, bool top_level, std::size_t depth,
                 context_t& context) {
  if (depth > max_nesting_depth)
    return no_text_marker;
  std::string type = entry(headers, "#type");
  std::string subtype = entry(headers, "#subtype");
  std::string result;
  if (type != "multipart")
    note_name(headers, context);

  // A text part that cannot be chosen gives no text whatever its bytes; when
  // nobody listens for the problems its decoding would find, it is not
  // decoded. Most base64 in real mail is text attachments (CSV, calendars).
  bool const inline_part = entry(headers, "#disposition") == "inline";
  bool const plain_wanted = subtype == "plain" && inline_part;
  bool const html_wanted = context.html && subtype == "html" && inline_part;
  std::vector<char> buffer;
  if (type == "multipart" || type == "message" ||
      (type == "text" && (plain_wanted || html_wanted || context.problems))) {
    std::string const& encoding = entry(headers, "#encoding");
    if ((encoding == "base64" || encoding == "quoted-printable") &&
        decode(begin, end, top_level, type, subtype, encoding, entry(headers, "#charset"), buffer, context.problems)) {
      begin = buffer.data();
      end = begin + buffer.size();
    }
  }

  if (type == "multipart") {
    result = walk_multipart(begin, end, headers, subtype, depth, context);
  } else if (type == "message" && subtype == "rfc822") {
    std::string text = walk_nested(begin, end, depth + 1, context);
    if (has_text(text))
      result = std::move(text);
  } else if (type == "text" && plain_wanted) {
    // The importer never applies format=flowed: the text is only
    // canonicalised, and undeclared 8-bit text that is not UTF-8 is left to
    // the converter's own choice (the fallback names no charset).
    decode_text(
        begin, end, buffer, subtype, false, false, entry(headers, "#charset"), [] { return std::string(); },
        context.problems);
    result.assign(buffer.begin(), buffer.end());
  } else if (type == "text" && html_wanted) {
    result = html_text(begin, end, buffer, entry(headers, "#charset"), context.problems);
  }
  return result.empty() ? std::string(no_text_marker) : result;
}

} // namespace

std::string parse_body(char const* begin, char const* end, header_map_t& headers, bool top_level,
                       quern::error::handler_t* problems) {
  context_t context;
  context.problems = problems;
  return walk(begin, end, headers, top_level, 0, context);
}

std::string parse_body(char const* begin, char const* end, header_map_t& headers, bool top_level, reading_t reading,
                       std::vector<std::string>* attachment_names, quern::error::handler_t* problems) {
  context_t context;
  if (reading == reading_t::full)
    context = {true, true, attachment_names, nullptr};
  context.problems = problems;
  return walk(begin, end, headers, top_level, 0, context);
}

} // namespace email
