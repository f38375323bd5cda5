#include "email/body.h"

#include <vector>

#include "email/decode.h"
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

using quern::error::handler_t;

std::string walk(char const* begin, char const* end, header_map_t& headers, bool top_level, std::size_t depth,
                 handler_t* problems);

// The text of a nested entity: its own header block, then its body.
std::string walk_nested(char const* begin, char const* end, std::size_t depth, handler_t* problems) {
  header_map_t headers = quick_parse_headers(begin, end, subpart_headers(), problems);
  return walk(begin, end, headers, false, depth, problems);
}

std::string walk(char const* begin, char const* end, header_map_t& headers, bool top_level, std::size_t depth,
                 handler_t* problems) {
  if (depth > max_nesting_depth)
    return no_text_marker;
  std::string type = entry(headers, "#type");
  std::string subtype = entry(headers, "#subtype");
  std::string result;

  std::vector<char> buffer;
  if (type == "multipart" || type == "message" || type == "text") {
    std::string const& encoding = entry(headers, "#encoding");
    if ((encoding == "base64" || encoding == "quoted-printable") &&
        decode(begin, end, top_level, type, subtype, encoding, entry(headers, "#charset"), buffer, problems)) {
      begin = buffer.data();
      end = begin + buffer.size();
    }
  }

  if (type == "multipart") {
    bool const walk_all = subtype == "mixed" && end - begin < 20'000'000;
    auto ranges = parse_subparts(begin, end, entry(headers, "#boundary"), !walk_all, problems);
    // The first range is the preamble and the last whatever follows the
    // parts; neither is text of the message.
    if (ranges.size() >= 2) {
      ranges.pop_back();
      ranges.erase(ranges.begin());
    } else {
      ranges.clear();
    }
    if (subtype == "mixed") {
      for (auto const& [first, last] : ranges)
        if (std::string text = walk_nested(first, last, depth + 1, problems); has_text(text))
          result += text;
    } else if (subtype == "alternative") {
      for (auto it = ranges.rbegin(); it != ranges.rend(); ++it)
        if (std::string text = walk_nested(it->first, it->second, depth + 1, problems); has_text(text)) {
          result = std::move(text);
          break;
        }
    } else if (!ranges.empty()) {
      if (std::string text = walk_nested(ranges.front().first, ranges.front().second, depth + 1, problems);
          has_text(text))
        result = std::move(text);
    }
  } else if (type == "message" && subtype == "rfc822") {
    std::string text = walk_nested(begin, end, depth + 1, problems);
    if (has_text(text))
      result = std::move(text);
  } else if (type == "text" && subtype == "plain" && entry(headers, "#disposition") == "inline") {
    // The importer never applies format=flowed: the text is only
    // canonicalised, and undeclared 8-bit text that is not UTF-8 is left to
    // the converter's own choice (the fallback names no charset).
    decode_text(
        begin, end, buffer, subtype, false, false, entry(headers, "#charset"), [] { return std::string(); }, problems);
    result.assign(buffer.begin(), buffer.end());
  }
  return result.empty() ? std::string(no_text_marker) : result;
}

} // namespace

std::string parse_body(char const* begin, char const* end, header_map_t& headers, bool top_level,
                       quern::error::handler_t* problems) {
  return walk(begin, end, headers, top_level, 0, problems);
}

} // namespace email
