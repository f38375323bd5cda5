// SPDX-License-Identifier: MIT
// Slow reference decoders for base64 and quoted-printable, for tests only.
//
// They are written for obviousness, not speed: base64 letters are looked up
// by searching the alphabet, bits are packed through an integer, and the
// tolerant line rules of the real base64 decoder are restated line by line
// (a line is decoded, kept pending or passed through as a whole). The real
// decoders are compared against them on random and real inputs.
#pragma once

#include <charconv>
#include <string>
#include <string_view>
#include <vector>

namespace test_support {

// The value of a base64 letter, or -1.
inline int base64_value(char c) {
  constexpr std::string_view letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  auto const at = letters.find(c);
  return at == std::string_view::npos ? -1 : static_cast<int>(at);
}

// Appends the bytes the 6-bit values make, most significant bit first; fewer
// than eight bits left over are dropped. Clears values.
inline void pack_sextets(std::vector<int>& values, std::string& out) {
  unsigned bits = 0;
  int count = 0;
  for (int value : values) {
    bits = (bits << 6 | static_cast<unsigned>(value)) & 0xFFFFu;
    count += 6;
    if (count >= 8) {
      count -= 8;
      out += static_cast<char>(bits >> count & 0xFFu);
    }
  }
  values.clear();
}

inline bool is_blank(char c) {
  return c == ' ' || c == '\t';
}

// Base64 in line mode. After leading LFs, each line (its LF excluded) is
// read as blanks, letters, '=' padding and blanks. It is decoded when it is
// exactly that and holds letters or continues a pending group; the group is
// packed when its letters plus padding make a multiple of four, else it stays
// pending for the next line. Any other line is copied as it is (its LF too),
// pending letters dropped, and its bytes counted in passed. A line break
// after a decoded line also eats the next line's leading blanks, so these
// are not copied; trailing blanks at the end of the input are dropped.
inline std::string base64_lines(std::string_view in, std::size_t& passed) {
  std::string out;
  std::vector<int> pending;
  passed = 0;
  bool blanks_eaten = false;
  std::size_t start = in.find_first_not_of('\n');
  while (start < in.size()) {
    std::size_t const lf = in.find('\n', start);
    bool const has_lf = lf != std::string_view::npos;
    std::string_view const line = in.substr(start, (has_lf ? lf : in.size()) - start);
    start = has_lf ? lf + 1 : in.size();
    std::size_t lead = 0, letters, equals, blanks;
    while (lead < line.size() && is_blank(line[lead]))
      ++lead;
    for (letters = lead; letters < line.size() && base64_value(line[letters]) >= 0;)
      ++letters;
    for (equals = letters; equals < line.size() && line[equals] == '=';)
      ++equals;
    for (blanks = equals; blanks < line.size() && is_blank(line[blanks]);)
      ++blanks;
    if (blanks == line.size() && (letters > lead || !pending.empty())) {
      for (std::size_t i = lead; i < letters; ++i)
        pending.push_back(base64_value(line[i]));
      if ((pending.size() + (equals - letters)) % 4 == 0)
        pack_sextets(pending, out);
      blanks_eaten = has_lf;
      continue;
    }
    if (lead == line.size() && !has_lf)
      break;
    std::string_view const copied = line.substr(blanks_eaten ? lead : 0);
    out.append(copied);
    out += has_lf ? "\n" : "";
    passed += copied.size();
    pending.clear();
    blanks_eaten = false;
  }
  pack_sextets(pending, out);
  return out;
}

// Base64 in free mode (encoded words): every run of white space or '=' after
// letters ends a group, which is packed at once. A byte that is no letter and
// no blank where a group would start, or no letter, white space or '=' inside
// a group, has the rest of its line copied from where the undecoded text
// began (blanks before a group included).
inline std::string base64_free(std::string_view in) {
  std::string out;
  std::vector<int> group;
  std::size_t p = in.find_first_not_of('\n'), undecoded = p;
  while (p < in.size()) {
    char const c = in[p];
    if (base64_value(c) >= 0) {
      group.push_back(base64_value(c));
      ++p;
    } else if (group.empty() && is_blank(c)) {
      ++p;
    } else if (!group.empty() && (c == '=' || c == ' ' || c == '\t' || c == '\r' || c == '\n')) {
      p = in.find_first_not_of('=', p);
      p = p == std::string_view::npos ? in.size() : p;
      pack_sextets(group, out);
      undecoded = p;
    } else {
      std::size_t const lf = in.find('\n', p);
      p = lf == std::string_view::npos ? in.size() : lf + 1;
      out.append(in.substr(undecoded, p - undecoded));
      group.clear();
      undecoded = p;
    }
  }
  pack_sextets(group, out);
  return out;
}

// Quoted-printable: "=" and two hex digits (either case) is a byte; "=",
// blanks and LF is nothing; "=" and blanks at the very end ends the text;
// any other "=" is itself. In binary parts every other LF becomes CR LF.
inline std::string quoted_printable(std::string_view in, bool binary) {
  std::string out;
  for (std::size_t i = 0; i < in.size(); ++i) {
    char const c = in[i];
    unsigned byte = 0;
    if (c == '\n' && binary) {
      out += "\r\n";
    } else if (c != '=') {
      out += c;
    } else if (i + 2 < in.size() && std::from_chars(&in[i + 1], &in[i + 3], byte, 16).ptr == &in[i + 3]) {
      out += static_cast<char>(byte);
      i += 2;
    } else {
      std::size_t j = i + 1;
      while (j < in.size() && is_blank(in[j]))
        ++j;
      if (j == in.size())
        break;
      if (in[j] == '\n')
        i = j;
      else
        out += '=';
    }
  }
  return out;
}

} // namespace test_support
