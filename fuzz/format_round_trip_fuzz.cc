// SPDX-License-Identifier: MIT
// Name and address formatting, then splitting the text back: each form gives
// back what its writer promises.
//  - angle_split gives back the trimmed name and address for any name, as long
//    as the address holds no angle bracket (the reader splits at the last
//    '<' and '>') and the name does not itself open with a double quote
//    without needing quotes (the reader would take that quote for its own).
//  - rfc822 gives back a name of printable ASCII words, single-spaced, and a
//    plain local@domain address; a name wrapped in single quotes loses them,
//    as the reader drops one enclosing pair from any token, and a name ending
//    in ';' is read as group syntax.
// The display form is one-way by design and is only written.
#include "fuzz/fuzz_support.h"
#include "header/format.h"

namespace {

std::string trim(std::string const& text) {
  auto const first = text.find_first_not_of(" \r\n\t");
  if (first == std::string::npos)
    return {};
  return text.substr(first, text.find_last_not_of(" \r\n\t") - first + 1);
}

// Bytes mapped into an alphabet, so that rfc822 cases are well-formed.
std::string mapped(std::string const& text, std::string_view alphabet) {
  std::string out;
  for (char c : text)
    out += alphabet[static_cast<unsigned char>(c) % alphabet.size()];
  return out;
}

void expect_round_trip(std::string const& name, std::string const& address, header::name_format_t format) {
  std::string const text = header::format_name_and_address(name, address, format);
  auto const [got_name, got_address] = header::split_name_and_address(text, format);
  std::string const what = "round trip of " + text;
  fuzz::expect_equal(what.c_str(), trim(name), got_name);
  fuzz::expect_equal(what.c_str(), trim(address), got_address);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  fuzz::input_t input(data, size);
  std::uint8_t const choice = input.take_byte();
  std::string const name = input.take_until_nul();
  std::string const address = input.take_until_nul();

  // Written in every form; must not fail whatever the bytes.
  for (auto format :
       {header::name_format_t::rfc822, header::name_format_t::display, header::name_format_t::angle_split})
    (void)header::format_name_and_address(name, address, format);

  if (choice % 2 == 0) {
    std::string const trimmed = trim(name);
    bool const quoted_by_writer = trimmed.find_first_of("<>@") != std::string::npos;
    if (address.find_first_of("<>") == std::string::npos && (quoted_by_writer || !trimmed.starts_with('"')))
      expect_round_trip(name, address, header::name_format_t::angle_split);
  } else {
    constexpr std::string_view word =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.,;:'!?#$%&*+/=^`{|}~-_";
    constexpr std::string_view atom = "abcdefghijklmnopqrstuvwxyz0123456789._-";
    // Words of the name joined by single spaces.
    std::string words;
    for (char c : mapped(name, std::string(word) + "        "))
      if (c != ' ' || (!words.empty() && words.back() != ' '))
        words += c;
    std::string const local = mapped(address, atom);
    std::string const trimmed = trim(words);
    bool const single_quoted = trimmed.size() >= 2 && trimmed.front() == '\'' && trimmed.back() == '\'';
    if (!local.empty() && !single_quoted && !trimmed.ends_with(';'))
      expect_round_trip(trimmed, local + "@example.org", header::name_format_t::rfc822);
  }
  return 0;
}
