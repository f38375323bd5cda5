// SPDX-License-Identifier: MIT
// Finding the display name and the e-mail of one mailbox.
//
// The address is first cut into tokens in text order: quoted strings,
// single-quoted strings, comments, angle addresses and bare words. The
// choice is then made walking the tokens backwards: the last token that
// looks like an address (an '@', no '<', and the last token read was not
// quoted) is the e-mail, and the run of ordinary tokens before it, with the
// spacing as written, is the name. Comments only name the address when
// nothing better is there. A few repairs follow: group syntax ("List:;")
// keeps its name, a lone word becomes the address, brackets and quotes that
// the name leaves open are taken in, a copy of the address inside the name
// is cut out, and a name that sits inside double quotes is widened to them so
// that dequoting removes them.
//
// Hostile input must stay linear. A quoted string or a bracket whose closing
// byte is missing is skipped and the scan resumes right after its opening
// byte, so the same failing scan could be repeated for every byte of the
// value. Two small predictors remember what a failed scan proved and answer
// later attempts without scanning. A comment's own text is examined for a
// duplicated address by reading it as an address itself; that nesting is
// bounded (deeper comments are kept as plain comments), so the stack depth
// does not depend on the input.
#include "header/address.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <boost/algorithm/searching/knuth_morris_pratt.hpp>

#include "text/ascii.h"

namespace header {
namespace {

// Comments inside comments deeper than this are not read as addresses. Real
// mail nests comments once or twice.
constexpr std::size_t max_comment_depth = 8;

constexpr std::string_view left_to_right_embedding = "\xE2\x80\xAA";
constexpr std::string_view mailto_prefix = "mailto:";

using text::skip_blanks;

bool contains(match_t const& m, char c) {
  return m.first != m.last && std::memchr(m.first, c, m.size()) != nullptr;
}

bool same_bytes(match_t const& a, match_t const& b) {
  return a.size() == b.size() && std::equal(a.first, a.last, b.first);
}

// A bracketed token (opener raises the depth, closer lowers it) fails when the
// bytes after its start never drop below the starting depth. After one such
// failure the answer for every start in the range is computed in a single
// backward pass: with d = +1 for an opener, -1 for a closer, the scan from q
// closes iff d[q] + M(q+1) < 0, where M(i) = min(0, d[i] + M(i+1)).
class nesting_predictor_t {
public:
  nesting_predictor_t(char opener, char closer, bool enabled) : opener_(opener), closer_(closer), enabled_(enabled) {}

  bool known_to_fail(char const* q, char const* end) const {
    return base_ && (q == end || !closes_[static_cast<std::size_t>(q - base_)]);
  }

  void failed(char const*, char const* base, char const* end) {
    if (base_ || !enabled_)
      return;
    base_ = base;
    closes_.assign(static_cast<std::size_t>(end - base), 0);
    std::int64_t lowest = 0; // M(i+1)
    for (char const* p = end; p != base;) {
      --p;
      std::int64_t const d = *p == opener_ ? 1 : *p == closer_ ? -1 : 0;
      closes_[static_cast<std::size_t>(p - base)] = d + lowest < 0 ? 1 : 0;
      lowest = std::min<std::int64_t>(0, d + lowest);
    }
  }

private:
  char opener_, closer_;
  bool enabled_;
  char const* base_ = nullptr;
  std::vector<unsigned char> closes_; // a byte each: bit access cost more than the memory
};

// A quoted token with backslash escapes that ran to the end from f proves
// that every later quote is escaped when seen from f. A later scan from q can
// only see a quote differently inside the run of backslashes it starts on:
// it succeeds only when that run has even length and ends on the quote.
class escape_predictor_t {
public:
  escape_predictor_t(char terminator, bool enabled) : terminator_(terminator), enabled_(enabled) {}

  bool known_to_fail(char const* q, char const* end) const {
    if (!failed_from_)
      return false;
    char const* x = q;
    while (x != end && *x == '\\')
      ++x;
    return x == end || *x != terminator_ || (x - q) % 2 != 0;
  }

  void failed(char const* q, char const*, char const*) {
    if (!failed_from_ && enabled_)
      failed_from_ = q;
  }

private:
  char terminator_;
  bool enabled_;
  char const* failed_from_ = nullptr;
};

// A token that needs its closing byte; p is just after the opening byte.
template <typename Predictor>
bool read_closed(char const*& p, char const* base, char const* end, char opener, char const* terminators, bool escapes,
                 Predictor& predictor, match_t& token) {
  if (predictor.known_to_fail(p, end))
    return false;
  char const* const stop = scan_token_stop(p, end, opener, terminators, escapes);
  if (stop == end) {
    predictor.failed(p, base, end);
    return false;
  }
  return finish_token(p, stop, end, opener, terminators, true, token);
}

// First case-insensitive occurrence of needle in haystack, or haystack.last.
// Short needles are searched directly; long ones on lower-cased copies with
// Knuth-Morris-Pratt, whose cost stays linear for repetitive hostile text.
char const* search_ignoring_case(match_t const& haystack, match_t const& needle) {
  auto const equal = [](char a, char b) { return text::to_lower(a) == text::to_lower(b); };
  if (needle.size() <= 16)
    return std::search(haystack.first, haystack.last, needle.first, needle.last, equal);
  std::string const folded = text::to_lower_copy({haystack.first, haystack.size()});
  std::string const pattern = text::to_lower_copy({needle.first, needle.size()});
  auto const found =
      boost::algorithm::knuth_morris_pratt_search(folded.begin(), folded.end(), pattern.begin(), pattern.end());
  return haystack.first + (found.first - folded.begin());
}

bool is_peelable_pair(char open, char close) {
  return (open == '"' && close == '"') || (open == '\'' && close == '\'') || (open == '(' && close == ')') ||
         (open == '<' && close == '>');
}

// How an extraction runs: its comment nesting and whether failed scans may
// answer later ones (always, except in the reference the tests compare with).
struct pass_t {
  std::size_t depth;
  bool shortcuts;
};

std::pair<match_t, match_t> extract(char const*& position, char const* end, pass_t pass);

// Where a comment that reads as nothing ends, p being just past its "(":
// blanks, k >= 1 openings, k closings, blanks, ")". Such a comment peels to
// nothing, and so does each comment nested in it, one per opening; reading
// them one after another would scan to the end k times. None of them gives a
// token, so the whole run can be passed over at once. Null for any other
// comment.
char const* past_empty_nest(char const* p, char const* end) {
  p = skip_blanks(p, end);
  char const* const openings = p;
  while (p != end && *p == '(')
    ++p;
  std::size_t const depth = static_cast<std::size_t>(p - openings);
  if (depth == 0 || static_cast<std::size_t>(end - p) < depth ||
      std::find_if(p, p + depth, [](char c) { return c != ')'; }) != p + depth)
    return nullptr;
  p = skip_blanks(p + depth, end);
  return p != end && *p == ')' ? p + 1 : nullptr;
}

std::vector<match_t> tokenize(char const* range_start, char const* p, char const* end, pass_t pass, bool& last_quoted) {
  std::vector<match_t> tokens;
  tokens.reserve(5);
  escape_predictor_t double_quotes('"', pass.shortcuts), single_quotes('\'', pass.shortcuts);
  nesting_predictor_t comments('(', ')', pass.shortcuts), angles('<', '>', pass.shortcuts);
  while (p != end) {
    char const c = *p;
    match_t token;
    if (c == '"' || c == '\'') {
      ++p;
      char const terminators[] = {c, '\0'};
      auto& predictor = c == '"' ? double_quotes : single_quotes;
      if (read_closed(p, range_start, end, '\0', terminators, true, predictor, token)) {
        tokens.push_back(token);
        last_quoted = true;
      }
    } else if (c == '(') {
      ++p;
      // Openings known not to close, one after another, are passed over in
      // one go: each would be read, fail at once and be skipped.
      while (p != end && *p == '(' && comments.known_to_fail(p, end))
        ++p;
      if (read_closed(p, range_start, end, '(', ")", false, comments, token)) {
        // A comment that repeats the leading address names it: "a@b (Ann <a@b>)".
        if (!tokens.empty() && pass.depth < max_comment_depth) {
          char const* inner = token.first;
          auto const [name, email] = extract(inner, token.last, {pass.depth + 1, pass.shortcuts});
          if (email.found() && same_bytes(email, tokens.front()))
            token = name;
        }
        token.comment = true;
        tokens.push_back(token);
        last_quoted = false;
      } else if (char const* past = pass.shortcuts ? past_empty_nest(p, end) : nullptr) {
        p = past;
      }
    } else if (c == ')' || c == '>') {
      ++p;
    } else if (c == '<') {
      ++p;
      if (read_closed(p, range_start, end, '<', ">", false, angles, token)) {
        token.angle = true;
        tokens.push_back(token);
        last_quoted = false;
      }
    } else {
      char const* const stop = scan_token_stop(p, end, '\0', "\"(< ", false);
      if (finish_token(p, stop, end, '\0', "\"(< ", false, token)) {
        tokens.push_back(token);
        last_quoted = false;
      } else {
        p = stop; // a word of nothing but NULs: move on
      }
    }
    p = skip_blanks(p, end);
  }
  return tokens;
}

// Walks the tokens backwards: the last address-looking token is the e-mail,
// the ordinary tokens before it grow the name. grown tells whether the name
// took in more than one token.
std::pair<match_t, match_t> choose(std::vector<match_t> const& tokens, bool last_quoted, bool& grown) {
  match_t name, email;
  for (auto it = tokens.rbegin(); it != tokens.rend(); ++it) {
    match_t const& token = *it;
    bool const address_like = !last_quoted && !token.empty() && contains(token, '@') && !contains(token, '<');
    if (address_like) {
      if (!email.found() || email.comment) {
        if (email.found() && !name.found())
          name = email;
        email = token;
      } else if (!name.found() || name.comment) {
        name = token;
      } else {
        name.first = token.first;
        name.angle = token.angle;
        name.comment = token.comment;
        grown = true;
      }
    } else if (!name.found()) {
      name = token;
    } else if (token.comment) {
      continue;
    } else if (token.size() == 1 && (*token.first == '\0' || *token.first == '"' || *token.first == '\'')) {
      continue;
    } else if (name.comment || std::find(token.last, name.first, '\0') != name.first) {
      name = token;
    } else {
      name.first = token.first;
      grown = true;
    }
  }
  return {name, email};
}

// Group syntax "List: ;" keeps the list name; a lone word is an address.
void repair_group_or_word(match_t& name, match_t& email) {
  if (!name.found())
    return;
  if (!name.empty() && name.last[-1] == ';') {
    char const* q = name.last - 1;
    while (q != name.first && is_blank(q[-1]))
      --q;
    if (q != name.first && q[-1] == ':')
      name.last = q - 1;
  } else if (!email.found() && std::find(name.first, name.last, ' ') == name.last) {
    std::swap(name, email);
  }
}

// The address repeated inside the name: "a@b" <a@b>, Ann (a@b) <a@b>. The
// copy goes, with the brackets or quotes right around it and the spaces
// next to it.
void cut_repeated_address(match_t& name, match_t const& email) {
  if (!name.found() || !email.found() || email.empty() || email.size() > name.size())
    return;
  char const* const hit = search_ignoring_case(name, email);
  if (hit == name.last)
    return;
  char const* before = hit;
  char const* after = hit + email.size();
  while (before != name.first && after != name.last && is_peelable_pair(before[-1], *after)) {
    --before;
    ++after;
  }
  while (before != name.first && before[-1] == ' ')
    --before;
  while (after != name.last && *after == ' ')
    ++after;
  if (before != name.first)
    name.last = before;
  else if (after == name.last)
    name = {};
  else
    name.first = after;
  if (name.found())
    sanitize_quotes(name.first, name.last);
}

// A name that is only a left-to-right embedding goes; one that sits inside
// double quotes in [range_start, end) is widened to them, so that dequoting
// removes them.
void finish_name(match_t& name, char const* range_start, char const* end) {
  if (name.found() && std::string_view(name.first, name.size()) == left_to_right_embedding)
    name = {};
  if (name.found() && name.first != range_start && name.last != end && (name.first[-1] == '"' || *name.last == '"')) {
    --name.first;
    ++name.last;
  }
}

std::pair<match_t, match_t> extract(char const*& position, char const* end, pass_t pass) {
  char const* const range_start = position;
  char const* const p = skip_blanks(position, end);
  position = end;
  if (p == end)
    return {};
  bool last_quoted = false;
  std::vector<match_t> const tokens = tokenize(range_start, p, end, pass, last_quoted);
  bool grown = false;
  auto [name, email] = choose(tokens, last_quoted, grown);
  repair_group_or_word(name, email);
  if (grown && name.found()) {
    include_unbalanced_symbols(name.first, name.last, range_start, end);
    sanitize_quotes(name.first, name.last);
  }
  cut_repeated_address(name, email);
  finish_name(name, range_start, end);
  return {name, email};
}

match_t whole_or_empty(char const* first, char const* last) {
  return first == last ? match_t{} : match_t{first, last};
}

// Where the host part of "scheme://host/path" begins: one byte past the
// first '/', or end when that is at or past the end.
char const* server_start(char const* first, char const* end) {
  char const* const slash = std::find(first, end, '/');
  return end - slash <= 2 ? end : slash + 2;
}

} // namespace

std::pair<match_t, match_t> address_name_and_email_function(char const*& position, char const* end) {
  return extract(position, end, {0, true});
}

namespace detail {
std::pair<match_t, match_t> address_name_and_email_unpredicted(char const*& position, char const* end) {
  return extract(position, end, {0, false});
}
} // namespace detail

match_t address_name_function(char const*& position, char const* end) {
  return address_name_and_email_function(position, end).first;
}

match_t address_email_function(char const*& position, char const* end) {
  return address_name_and_email_function(position, end).second;
}

void include_unbalanced_symbols(char const*& first, char const*& last, char const* lower, char const* upper) {
  std::size_t double_quotes = 0, single_quotes = 0, open_parens = 0, close_parens = 0, open_angles = 0,
              close_angles = 0;
  auto const count = [&](char c) {
    double_quotes += c == '"';
    single_quotes += c == '\'';
    open_parens += c == '(';
    close_parens += c == ')';
    open_angles += c == '<';
    close_angles += c == '>';
  };
  std::for_each(first, last, count);
  while (first != lower) {
    char const c = first[-1];
    bool const take = (c == '"' && first != last && double_quotes % 2) ||
                      (c == '\'' && first != last && single_quotes % 2) || (c == '(' && close_parens > open_parens) ||
                      (c == '<' && close_angles > open_angles);
    if (!take)
      break;
    --first;
    count(c);
  }
  while (last != upper) {
    char const c = *last;
    // Forwards the test is made for '(' rather than ')': a name left open by
    // "(" also swallows the openers after it. Indexes built with the earlier
    // behaviour hold such names, so it is kept.
    bool const take = (c == '"' && first != last && double_quotes % 2) ||
                      (c == '\'' && first != last && single_quotes % 2) || (c == '(' && open_parens > close_parens) ||
                      (c == '>' && open_angles > close_angles);
    if (!take)
      break;
    ++last;
    count(c);
  }
}

match_t mailto_function(char const*& position, char const* end) {
  char const* const first = position;
  position = end;
  if (std::string_view(first, static_cast<std::size_t>(end - first)).starts_with(mailto_prefix))
    return {first + mailto_prefix.size(), end};
  return {};
}

match_t protocol_function(char const*& position, char const* end) {
  char const* const first = position;
  position = end;
  return whole_or_empty(first, std::find(first, end, ':'));
}

match_t server_function(char const*& position, char const* end) {
  char const* const start = server_start(position, end);
  position = end;
  return whole_or_empty(start, std::find(start, end, '/'));
}

match_t path_function(char const*& position, char const* end) {
  char const* const start = server_start(position, end);
  position = end;
  char const* const slash = std::find(start, end, '/');
  return slash == end ? match_t{} : match_t{slash + 1, end};
}

} // namespace header
