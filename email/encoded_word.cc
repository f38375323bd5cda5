// SPDX-License-Identifier: MIT
// The search for an encoded word, step by step: the opening "=?", the
// charset up to its "?", the Q or B letter and its "?", and the text up to
// "?=". Each step starts where the one before stopped and reports where it
// stopped itself and whether the candidate still stands; a candidate that
// failed anywhere before the end of the range lets the search go on after its
// "=".
#include "email/encoded_word.h"

#include <cstring>

#include "charset/surrogates.h"
#include "text/ascii.h"

namespace email {
namespace {

using quern::error::code_t;
using quern::error::handler_t;

bool is_charset_byte(char c) {
  // A NUL passes too: the membership test has always counted the set's
  // terminator, and a NUL in a charset name only makes conversion fail later.
  return text::has_class(c, text::ascii_lower | text::ascii_digit) || c == ':' || c == '.' || c == '_' || c == '-' ||
         c == '\0';
}

bool is_illegal_in_text(char c) {
  return static_cast<unsigned char>(c) >= 0x80 || text::is_control(c);
}

// Where a step stopped, and whether the candidate is still an encoded word.
struct step_t {
  char const* stop;
  bool ok;
};

// The "=?" at start; stops after it.
step_t read_opening(char const* start, char const* last) {
  char const* const p = start + 1;
  if (p == last)
    return {last, false};
  if (*p != '?')
    return {p, false};
  return {p + 1, p + 1 != last};
}

// The charset from first to the next "?" (7-bit bytes only), lower-cased and
// repaired; stops at that "?". charset is set only when the name is usable.
step_t read_charset(char const* first, char const* last, std::string& charset, handler_t* problems) {
  char const* q = first;
  while (q != last && *q != '?' && static_cast<unsigned char>(*q) < 0x80)
    ++q;
  if (q == last || *q != '?')
    return {q, false};
  std::string name = text::to_lower_copy(std::string_view(first, static_cast<std::size_t>(q - first)));
  if (name.empty()) {
    name = "utf8";
    if (problems)
      problems->push_back(code_t::encoded_word_empty_charset, {{"context", name}});
  } else if (name.front() == '\'' && name.back() == '\'') {
    if (problems)
      problems->push_back(code_t::encoded_word_quoted_charset, {{"context", name}});
    name = name.size() <= 2 ? std::string() : name.substr(1, name.size() - 2);
  }
  if (!std::all_of(name.begin(), name.end(), is_charset_byte))
    return {q, false};
  charset = std::move(name);
  return {q, true};
}

// The encoding letter at letter and the "?" after it; stops after that "?".
step_t read_encoding(char const* letter, char const* last, char& encoding) {
  if (letter == last)
    return {last, false};
  if (std::strchr("QqBb", *letter) == nullptr) // strchr also finds the NUL
    return {letter, false};
  encoding = text::to_lower(*letter);
  if (letter + 1 == last)
    return {last, false};
  return {letter + 2, letter[1] == '?'};
}

// The text from word.text_first up to "?="; stops after the "?=". A Q word
// with raw control or 8-bit bytes is still taken, with a problem recorded.
step_t read_text(char const* start, char const* last, encoded_word_t& word, handler_t* problems) {
  if (word.text_first == last)
    return {last, false};
  char const* const text_last = std::find(word.text_first, last, '?');
  if (text_last == last)
    return {last, false};
  word.text_last = text_last;
  if (text_last + 1 == last)
    return {last, false};
  char const* const end = text_last + 2;
  if (text_last[1] != '=')
    return {end, false};
  if (std::none_of(word.text_first, text_last, is_illegal_in_text))
    return {end, true};
  if (word.encoding != 'q')
    return {end, false};
  if (problems) {
    std::string context;
    charset::hex_print(start, end, std::back_inserter(context));
    problems->push_back(code_t::encoded_word_illegal_in_q, {{"context", context}});
  }
  return {end, true};
}

// One candidate from the "=" at start, its pieces stored in word as they are
// read.
step_t read_candidate(char const* start, char const* last, encoded_word_t& word, handler_t* problems) {
  step_t step = read_opening(start, last);
  if (step.ok)
    step = read_charset(step.stop, last, word.charset, problems);
  if (step.ok)
    step = read_encoding(step.stop + 1, last, word.encoding);
  if (!step.ok)
    return step;
  word.text_first = step.stop;
  return read_text(start, last, word, problems);
}

} // namespace

std::string default_fallback_charset() {
  return "iso-8859-1";
}

bool is_all_space(char const* first, char const* last) {
  return std::all_of(first, last, text::is_space);
}

encoded_word_t find_encoded_word(char const* first, char const* last, handler_t* problems) {
  encoded_word_t word;
  for (char const* start = std::find(first, last, '='); start != last; start = std::find(start + 1, last, '=')) {
    word.first = start;
    step_t const step = read_candidate(start, last, word, problems);
    if (step.ok) {
      word.last = step.stop;
      return word;
    }
    // A candidate that ran into the end leaves no later "=" to try.
    if (step.stop == last)
      return word;
  }
  return word;
}

bool merge_encoded_words(char const* first, char const* last, std::string& out) {
  bool merged = false;
  char const* pos = first;
  for (;;) {
    encoded_word_t const word = find_encoded_word(pos, last, nullptr);
    if (!word.last)
      break;
    out.append(pos, word.text_last);
    char const* tail_first = word.text_last;
    char const* tail_last = word.last;
    pos = word.last;
    for (;;) {
      encoded_word_t const next = find_encoded_word(pos, last, nullptr);
      if (!next.last || !is_all_space(pos, next.first) || next.encoding != word.encoding ||
          next.charset != word.charset)
        break;
      out.append(next.text_first, next.text_last);
      tail_first = next.text_last;
      tail_last = next.last;
      pos = next.last;
      merged = true;
    }
    out.append(tail_first, tail_last);
  }
  if (!merged)
    return false;
  out.append(pos, last);
  return true;
}

std::string decode_word_text(encoded_word_t const& word, quern::error::handler_t* problems) {
  if (word.encoding == 'b')
    return decode_base_64(word.text_first, word.text_last, problems, word.charset);
  std::string text(word.text_first, word.text_last);
  if (problems && text.find(' ') != std::string::npos)
    problems->push_back(code_t::encoded_word_space_in_q, {{"context", text}});
  std::replace(text.begin(), text.end(), '_', ' ');
  std::string decoded;
  decode_quoted_printable(text.begin(), text.end(), std::back_inserter(decoded), problems, false);
  return decoded;
}

} // namespace email
