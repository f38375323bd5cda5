// SPDX-License-Identifier: MIT
#include "email/attachment_name.h"

#include <algorithm>
#include <iterator>
#include <map>

#include "charset/convert.h"
#include "email/encoded_word.h"
#include "header/token.h"
#include "text/ascii.h"

namespace email {
namespace {

struct section_t {
  std::string bytes;
  bool encoded = false; // percent-escapes still to undo
};

// One parameter "name = value" split into its lower-case name and its value,
// dequoted when quoted.
struct parameter_t {
  std::string name;
  std::string value;
};

parameter_t split_parameter(header::match_t const& m) {
  char const* const equals = std::find(m.first, m.last, '=');
  char const* name_last = equals;
  while (name_last != m.first && text::is_blank(name_last[-1]))
    --name_last;
  parameter_t p;
  p.name.reserve(static_cast<std::size_t>(name_last - m.first));
  std::transform(m.first, name_last, std::back_inserter(p.name), text::to_lower);
  char const* value = equals == m.last ? m.last : equals + 1;
  while (value != m.last && (*value == ' ' || *value == '\t'))
    ++value;
  p.value = value != m.last && *value == '"' ? header::dequote_string(value, m.last) : std::string(value, m.last);
  return p;
}

int hex_value(char c) {
  if (c >= '0' && c <= '9')
    return c - '0';
  c = text::to_lower(c);
  return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

void percent_decode(std::string const& in, std::string& out) {
  for (std::size_t i = 0; i < in.size(); ++i) {
    if (in[i] == '%' && i + 2 < in.size() && hex_value(in[i + 1]) >= 0 && hex_value(in[i + 2]) >= 0) {
      out += static_cast<char>(hex_value(in[i + 1]) * 16 + hex_value(in[i + 2]));
      i += 2;
    } else {
      out += in[i];
    }
  }
}

// The section number of "name*N" or "name*N*"; -1 for "name*" (a single
// extended value), -2 when the parameter is not one of name's.
int section_of(std::string const& parameter, std::string const& name, bool& encoded) {
  if (parameter.size() <= name.size() || parameter.compare(0, name.size(), name) != 0 || parameter[name.size()] != '*')
    return -2;
  std::string_view rest(parameter);
  rest.remove_prefix(name.size() + 1);
  encoded = rest.empty() || rest.back() == '*';
  if (rest.empty())
    return -1;
  if (encoded)
    rest.remove_suffix(1);
  if (rest.empty() || rest.size() > 4 ||
      !std::all_of(rest.begin(), rest.end(), [](char c) { return c >= '0' && c <= '9'; }))
    return -2;
  return std::stoi(std::string(rest));
}

// The extended value: "charset'language'bytes" in the first section.
std::string join_extended(std::map<int, section_t> const& sections, charset::policy_t policy) {
  std::string charset, bytes;
  bool first = true;
  for (auto const& [number, section] : sections) {
    std::string piece = section.bytes;
    if (first && section.encoded) {
      auto const quote = piece.find('\'');
      auto const second = quote == std::string::npos ? std::string::npos : piece.find('\'', quote + 1);
      if (second != std::string::npos) {
        charset = piece.substr(0, quote);
        std::transform(charset.begin(), charset.end(), charset.begin(), text::to_lower);
        piece.erase(0, second + 1);
      }
    }
    first = false;
    if (section.encoded)
      percent_decode(piece, bytes);
    else
      bytes += piece;
  }
  std::string text;
  charset::convert_to_utf8(bytes.data(), bytes.data() + bytes.size(), std::back_inserter(text), charset,
                           default_fallback_charset, nullptr, policy);
  return text;
}

std::string one_line(std::string text) {
  for (char& c : text)
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F)
      c = ' ';
  auto const first = text.find_first_not_of(' ');
  if (first == std::string::npos)
    return {};
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

} // namespace

std::string parameter_text(char const* first, char const* last, std::string const& name, charset::policy_t policy) {
  char const* position = std::find(first, last, ';');
  std::map<int, section_t> sections;
  std::string plain;
  bool has_plain = false;
  while (position != last) {
    header::match_t const m = header::parameter_split_function(position, last);
    if (!m.found() || m.first == m.last)
      break;
    parameter_t p = split_parameter(m);
    if (p.name == name) {
      if (!has_plain)
        plain = std::move(p.value), has_plain = true;
      continue;
    }
    bool encoded = false;
    int const number = section_of(p.name, name, encoded);
    if (number == -2 || sections.size() >= max_name_sections)
      continue;
    sections.try_emplace(number, section_t{std::move(p.value), encoded});
  }
  if (!sections.empty()) {
    // A lone "name*" stands for section 0.
    if (auto single = sections.find(-1); single != sections.end()) {
      section_t value = std::move(single->second);
      sections.clear();
      sections.emplace(0, std::move(value));
    }
    if (std::string text = join_extended(sections, policy); !text.empty())
      return text;
  }
  std::string text;
  decode_header_line(plain.data(), plain.data() + plain.size(), std::back_inserter(text), nullptr, std::string(),
                     default_fallback_charset, policy);
  return text;
}

std::string attachment_name(std::string const& disposition, std::string const& content_type, charset::policy_t policy) {
  std::string name =
      one_line(parameter_text(disposition.data(), disposition.data() + disposition.size(), "filename", policy));
  if (name.empty())
    name = one_line(parameter_text(content_type.data(), content_type.data() + content_type.size(), "name", policy));
  return name;
}

} // namespace email
