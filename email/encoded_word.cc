#include "email/encoded_word.h"

#include <cctype>
#include <cstring>

#include "charset/surrogates.h"

namespace email {
namespace {

bool is_charset_byte(char c) {
  // A NUL passes too: the membership test has always counted the set's
  // terminator, and a NUL in a charset name only makes conversion fail later.
  return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == ':' || c == '.' || c == '_' || c == '-' || c == '\0';
}

bool is_illegal_in_text(char c) {
  auto const u = static_cast<unsigned char>(c);
  return u >= 0x80 || std::iscntrl(u);
}

} // namespace

std::string default_fallback_charset() {
  return "iso-8859-1";
}

bool is_all_space(char const* first, char const* last) {
  return std::all_of(first, last, [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; });
}

encoded_word_t find_encoded_word(char const* first, char const* last, quern::error::handler_t* problems) {
  encoded_word_t word;
  char const* pos = first;
  while (pos != last) {
    char const* const start = std::find(pos, last, '=');
    if (start == last)
      return word;
    word.first = start;
    char const* p = start + 1;
    if (p == last)
      return word;
    // Where the candidate failed; the search resumes after its "=" unless
    // the failure ran into the end of the range.
    char const* failure = nullptr;
    if (*p != '?') {
      failure = p;
    } else if (p + 1 == last) {
      return word;
    } else {
      char const* const charset_first = p + 1;
      char const* q = charset_first;
      while (q != last && *q != '?' && static_cast<unsigned char>(*q) < 0x80)
        ++q;
      if (q == last || *q != '?') {
        failure = q;
      } else {
        std::string charset(charset_first, q);
        for (char& c : charset)
          c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        if (charset.empty()) {
          charset = "utf8";
          if (problems)
            problems->push_back({{"description", "Non-existing charset (UTF-8 assumed)"}, {"context", charset}});
        } else if (charset.front() == '\'' && charset.back() == '\'') {
          if (problems)
            problems->push_back({{"description", "Single quotes around charset ignored"}, {"context", charset}});
          charset = charset.size() <= 2 ? std::string() : charset.substr(1, charset.size() - 2);
        }
        char const* const charset_end = q; // the "?" after the charset
        if (!std::all_of(charset.begin(), charset.end(), is_charset_byte)) {
          failure = charset_end;
        } else {
          word.charset = std::move(charset);
          char const* letter = charset_end + 1;
          if (letter == last)
            return word;
          if (std::strchr("QqBb", *letter) == nullptr) { // strchr also finds the NUL
            failure = letter;
          } else {
            word.encoding =
                *letter == '\0' ? '\0' : static_cast<char>(std::tolower(static_cast<unsigned char>(*letter)));
            if (letter + 1 == last) {
              failure = last;
            } else if (letter[1] != '?') {
              failure = letter + 2;
            } else {
              word.text_first = letter + 2;
              if (word.text_first == last)
                return word;
              char const* const text_last = std::find(word.text_first, last, '?');
              if (text_last == last)
                return word;
              word.text_last = text_last;
              if (text_last + 1 == last) {
                failure = last;
              } else if (text_last[1] != '=') {
                failure = text_last + 2;
              } else {
                char const* const end = text_last + 2;
                if (std::none_of(word.text_first, text_last, is_illegal_in_text)) {
                  word.last = end;
                  return word;
                }
                if (word.encoding == 'q') {
                  if (problems) {
                    std::string context;
                    charset::hex_print(start, end, std::back_inserter(context));
                    problems->push_back(
                        {{"description", "Quoted-printable encoded word contains one or more illegal characters"},
                         {"context", context}});
                  }
                  word.last = end;
                  return word;
                }
                failure = end;
              }
            }
          }
        }
      }
    }
    if (failure == last)
      return word;
    pos = start + 1;
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
    problems->push_back(
        {{"description", "Quoted-printable encoded word contains one or more spaces"}, {"context", text}});
  std::replace(text.begin(), text.end(), '_', ' ');
  std::string decoded;
  decode_quoted_printable(text.begin(), text.end(), std::back_inserter(decoded), problems, false);
  return decoded;
}

} // namespace email
