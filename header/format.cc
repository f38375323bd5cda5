// SPDX-License-Identifier: MIT
// Formatting and splitting names with addresses.
//
// Writing trims, quotes the name as the form requires and appends the
// address in angle brackets. Reading the rfc822 form goes through the
// tolerant single-address parser; reading angle_split only looks for the last
// '<' and '>', and undoes the doubled-quote quoting of its writer.
#include "header/format.h"

#include <cstdio>
#include <cstdlib>

#include "error/diagnostics.h"
#include "header/address.h"
#include "header/token.h"

namespace header {
namespace {

std::string trim(std::string const& text, char const* set) {
  auto const first = text.find_first_not_of(set);
  if (first == std::string::npos)
    return {};
  return text.substr(first, text.find_last_not_of(set) - first + 1);
}

std::string quote_doubling(std::string const& name) {
  std::string out = "\"";
  for (char c : name) {
    if (c == '"')
      out += '"';
    out += c;
  }
  return out + '"';
}

// Undoes quote_doubling; bytes outside the quotes are kept as well.
std::string unquote_doubled(std::string const& text) {
  std::string out;
  bool inside = false;
  for (std::size_t i = 0; i < text.size();) {
    if (text[i] == '"') {
      ++i;
      if (!(inside && i < text.size() && text[i] == '"'))
        inside = !inside;
    }
    if (i < text.size())
      out += text[i++];
  }
  return out;
}

std::pair<std::string, std::string> split_rfc822(std::string const& text) {
  char const* position = text.data();
  auto const [name, email] = address_name_and_email_function(position, text.data() + text.size());
  if (!email.found() || email.empty())
    return {std::string(), text};
  return {name.found() ? dequote_string(name.first, name.last) : std::string(), std::string(email.first, email.last)};
}

std::pair<std::string, std::string> split_angle(std::string const& text) {
  auto const open = text.rfind('<');
  if (open == std::string::npos)
    return {std::string(), text};
  std::string name = trim(text.substr(0, open), " ");
  if (!name.empty() && name.front() == '"')
    name = unquote_doubled(name);
  auto const close = text.rfind('>');
  auto const length = close != std::string::npos && close > open ? close - open - 1 : std::string::npos;
  return {name, text.substr(open + 1, length)};
}

} // namespace

std::string format_name_and_address(std::string const& name, std::string const& address, name_format_t format) {
  constexpr char blanks[] = " \r\n\t";
  std::string const trimmed_name = trim(name, blanks);
  std::string const trimmed_address = trim(address, blanks);
  if (trimmed_name.empty())
    return trimmed_address;
  std::string out;
  switch (format) {
  case name_format_t::rfc822:
    out = quote_name_string(trimmed_name);
    break;
  case name_format_t::angle_split:
    out = trimmed_name.find_first_of("<>@") == std::string::npos ? trimmed_name : quote_doubling(trimmed_name);
    break;
  default:
    out = trimmed_name;
    break;
  }
  return out + " <" + trimmed_address + ">";
}

std::pair<std::string, std::string> split_name_and_address(std::string const& text, name_format_t format) {
  switch (format) {
  case name_format_t::rfc822:
    return split_rfc822(text);
  case name_format_t::display:
    // The display form cannot be read back. The desktop host stops there;
    // anyone else gets nothing rather than losing their process.
    if (!quern::error::desktop_warnings())
      return {};
    std::fputs("Fatal: Unexpectedly asked to convert name/adress in display format\n", stderr);
    std::abort();
  case name_format_t::angle_split:
    return split_angle(text);
  }
  return {};
}

std::string reformat_name_and_address(std::string const& text, name_format_t from, name_format_t to) {
  auto const [name, address] = split_name_and_address(text, from);
  return format_name_and_address(name, address, to);
}

} // namespace header
