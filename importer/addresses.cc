// SPDX-License-Identifier: MIT
// Driving the single-address reader over a header value.
//
// In the desktop reading the loop is written for a reader that stops after
// each address, but header::address_name_and_email_function consumes its
// whole range, so it runs once per value. Names are dequoted; addresses are
// copied unchanged.
//
// The full reading splits the list first and reads each item on its own. The
// list splitter cuts at a comma after an '@' without looking into comments
// or angle brackets, so "a@x (Smith, Ann)" would lose its comment's second
// half to a mailbox of its own; items are therefore joined again until their
// brackets balance, which looks at every byte once. A mailbox whose address
// holds comments or folding white space is cut into lexemes once and written
// again without them before the extractor reads it, since the extractor takes
// a comment for the end of a word.
#include "importer/addresses.h"

#include <algorithm>
#include <iterator>

#include "email/encoded_word.h"
#include "email/headers.h"
#include "header/address.h"
#include "text/ascii.h"

namespace importer {

void parse_addresses(std::string const& value, std::vector<std::string>& names, std::vector<std::string>& emails) {
  if (value.empty())
    return;
  char const* cursor = value.data();
  char const* const end = cursor + value.size();
  while (cursor != end) {
    auto const [name, email] = header::address_name_and_email_function(cursor, end);
    if (name.found())
      names.push_back(header::dequote_string(name.first, name.last));
    if (email.found())
      emails.emplace_back(email.first, email.last);
  }
}

} // namespace importer

namespace importer {
namespace {

// How far a stretch of an item leaves comments and angle brackets open,
// carried across the stretches that make up one item.
struct balance_t {
  long comments = 0;
  long angles = 0;
  bool quoted = false;
  bool escaped = false; // the next byte is taken literally

  void read(char const* first, char const* last) {
    for (char const* p = first; p != last; ++p) {
      char const c = *p;
      if (escaped) {
        escaped = false;
      } else if (quoted) {
        if (c == '\\')
          escaped = true;
        else if (c == '"')
          quoted = false;
      } else if (c == '"' && comments == 0) {
        quoted = true;
      } else if (c == '(') {
        ++comments;
      } else if (c == ')' && comments > 0) {
        --comments;
      } else if (c == '<' && comments == 0) {
        ++angles;
      } else if (c == '>' && angles > 0 && comments == 0) {
        --angles;
      }
    }
  }
  bool open() const { return comments > 0 || angles > 0; }
};

using text::is_blank;

// Where the quoted string or comment opened at p ends (one past its closing
// byte), or null when it does not close. Comments nest; a backslash takes the
// next byte literally in both.
char const* closed_end(char const* p, char const* last) {
  char const opener = *p;
  char const closer = opener == '(' ? ')' : '"';
  long depth = 0;
  for (; p != last; ++p) {
    if (*p == '\\' && depth > 0) {
      if (++p == last)
        return nullptr;
    } else if (*p == closer && depth > 0) {
      if (--depth == 0)
        return p + 1;
    } else if (*p == opener && (opener == '(' || depth == 0)) {
      ++depth;
    }
  }
  return nullptr;
}

// Drops a group's "display name:" from the front of an item and its closing
// ";" from the back. The colon must come before any '@', '<' or quote,
// so "a@x:y" and quoted colons stay as they are; comments before it are
// passed over ("Undisclosed recipients (none) :;"), a colon in one is no
// group's.
void strip_group(char const*& first, char const*& last) {
  for (char const* p = first; p != last; ++p) {
    char const c = *p;
    if (c == ':') {
      first = p + 1;
      break;
    }
    if (c == '(') {
      char const* const end = closed_end(p, last);
      if (!end)
        break;
      p = end - 1;
      continue;
    }
    if (c == '@' || c == '<' || c == '"' || c == ',')
      break;
  }
  while (last != first && is_blank(last[-1]))
    --last;
  while (last != first && last[-1] == ';') {
    --last;
    while (last != first && is_blank(last[-1]))
      --last;
  }
  while (first != last && is_blank(*first))
    ++first;
}

// One lexical piece of a mailbox, for finding what lies inside its address.
struct lexeme_t {
  enum kind_t { blank, comment, word, special } kind;
  char const* first;
  char const* last;
  bool inside_angles;
  bool dropped = false;
};

bool is_special(char c) {
  return c == '<' || c == '>' || c == '@' || c == '.' || c == ',' || c == ';' || c == ':' || c == '[' || c == ']' ||
         c == ')';
}

// The mailbox cut into lexemes, or nothing when a quote or comment in it does
// not close: such a mailbox is left to the extractor as written.
bool lex(char const* first, char const* last, std::vector<lexeme_t>& out) {
  long angles = 0;
  for (char const* p = first; p != last;) {
    char const* next = p + 1;
    lexeme_t::kind_t kind = lexeme_t::special;
    if (is_blank(*p)) {
      kind = lexeme_t::blank;
      next = std::find_if_not(p, last, is_blank);
    } else if (*p == '(' || *p == '"') {
      next = closed_end(p, last);
      if (!next)
        return false;
      kind = *p == '(' ? lexeme_t::comment : lexeme_t::word;
    } else if (!is_special(*p)) {
      kind = lexeme_t::word;
      next = std::find_if(p, last, [](char c) { return is_blank(c) || is_special(c) || c == '(' || c == '"'; });
    }
    angles -= kind == lexeme_t::special && *p == '>' && angles > 0;
    out.push_back({kind, p, next, angles > 0});
    angles += kind == lexeme_t::special && *p == '<';
    p = next;
  }
  return true;
}

// Marks the blanks and comments between the pieces of the address around the
// '@' at lexemes[at]: words joined by dots, and the '@'. Walks from the '@'
// away in direction step (-1 or +1) until the pieces stop alternating. Left of
// the '@' a blank next to a dot ends the walk outside angle brackets, so that
// "Mr. pete@x" keeps its name; next to the '@' and in the domain a blank is
// only folding. Each walk stops at the next '@', so every lexeme is walked
// at most twice.
void mark_address_gaps(std::vector<lexeme_t>& lexemes, std::ptrdiff_t at, std::ptrdiff_t step) {
  bool want_word = true;
  std::ptrdiff_t gap_start = at;
  bool gap_blank = false;
  auto const size = static_cast<std::ptrdiff_t>(lexemes.size());
  for (std::ptrdiff_t i = at + step; i >= 0 && i < size; i += step) {
    lexeme_t const& l = lexemes[static_cast<std::size_t>(i)];
    if (l.kind == lexeme_t::blank || l.kind == lexeme_t::comment) {
      gap_blank = gap_blank || l.kind == lexeme_t::blank;
      continue;
    }
    bool const fits = want_word ? l.kind == lexeme_t::word : (l.kind == lexeme_t::special && *l.first == '.');
    if (!fits || (gap_blank && step < 0 && gap_start != at && !l.inside_angles))
      return;
    for (std::ptrdiff_t j = gap_start + step; j != i; j += step)
      lexemes[static_cast<std::size_t>(j)].dropped = true;
    gap_start = i;
    gap_blank = false;
    want_word = !want_word;
  }
}

// The mailbox with the comments and folding white space that sit inside its
// address taken out: "pete(his account)@silly.test" and "pete @ silly . test"
// are pete@silly.test. Where the mailbox has an angle address only the text
// between the brackets is its address, and every comment there goes. Other
// comments stay, so one after the address can still name it. False, with
// rewritten untouched, when there is nothing to take out.
bool without_address_folding(char const* first, char const* last, std::string& rewritten) {
  bool folded = std::find(first, last, '(') != last;
  for (char const* p = first; p != last && !folded; ++p)
    folded = (*p == '@' || *p == '.') && ((p != first && is_blank(p[-1])) || (p + 1 != last && is_blank(p[1])));
  if (!folded)
    return false;
  std::vector<lexeme_t> lexemes;
  if (!lex(first, last, lexemes))
    return false;
  bool const angled = std::any_of(lexemes.begin(), lexemes.end(), [](lexeme_t const& l) { return l.inside_angles; });
  bool dropped = false;
  for (std::size_t i = 0; i < lexemes.size(); ++i) {
    lexeme_t& l = lexemes[i];
    if (l.inside_angles != angled)
      continue;
    if (l.kind == lexeme_t::comment && angled)
      l.dropped = true;
    if (l.kind == lexeme_t::special && *l.first == '@') {
      mark_address_gaps(lexemes, static_cast<std::ptrdiff_t>(i), -1);
      mark_address_gaps(lexemes, static_cast<std::ptrdiff_t>(i), +1);
    }
  }
  for (lexeme_t const& l : lexemes)
    dropped = dropped || l.dropped;
  if (!dropped)
    return false;
  rewritten.clear();
  for (lexeme_t const& l : lexemes)
    if (!l.dropped)
      rewritten.append(l.first, l.last);
  return true;
}

// The text of a comment that is all that follows a lone word, as in
// "root (Cron Daemon)"; false when there is none.
bool trailing_comment(char const* after, char const* last, header::match_t& text) {
  after = text::skip_blanks(after, last);
  if (after == last || *after != '(')
    return false;
  char const* const end = closed_end(after, last);
  if (!end || text::skip_blanks(end, last) != last)
    return false;
  text = {text::skip_blanks(after + 1, end - 1), end - 1};
  while (text.last != text.first && is_blank(text.last[-1]))
    --text.last;
  return text.first != text.last;
}

// A piece of a mailbox as UTF-8, its raw 8-bit text read in raw_charset (the
// header block's, when it was found) or as the guessing reading finds it.
std::string decoded(std::string const& raw, std::string const& raw_charset) {
  std::string text;
  email::decode_header_line(
      raw.data(), raw.data() + raw.size(), std::back_inserter(text), nullptr, std::string(),
      [&raw_charset] { return raw_charset.empty() ? email::default_fallback_charset() : raw_charset; },
      charset::policy_t::guess);
  email::cleanup_header_body(text);
  return text;
}

// The last closed angle address with an '@' in it, outside quotes and
// comments, wherever it stands: "<a@x> name=\"junk\"" has text after it that
// the extractor takes for the end of a name. False when there is none.
bool inner_angle_address(char const* first, char const* last, char const*& open, char const*& close) {
  char const* opened = nullptr;
  bool found = false;
  for (char const* p = first; p != last; ++p) {
    if ((*p == '"' || *p == '(') && !opened) {
      char const* const end = closed_end(p, last);
      if (!end)
        break;
      p = end - 1;
    } else if (*p == '<') {
      opened = p;
    } else if (*p == '>' && opened) {
      if (std::find(opened, p, '@') != p) {
        open = opened;
        close = p;
        found = true;
      }
      opened = nullptr;
    }
  }
  return found;
}

// "Name <local>": an address without a domain, which the extractor does not
// take for one. The last angle-bracketed text at the end of the item is it.
bool local_angle_address(char const* first, char const* last, std::string& name, std::string& address) {
  char const* end = last;
  while (end != first && is_blank(end[-1]))
    --end;
  if (end == first || end[-1] != '>')
    return false;
  char const* const open =
      std::find(std::make_reverse_iterator(end - 1), std::make_reverse_iterator(first), '<').base();
  if (open == first || open == end - 1)
    return false;
  address.assign(open, end - 1);
  char const* name_last = open - 1;
  while (name_last != first && is_blank(name_last[-1]))
    --name_last;
  name = header::dequote_string(first, name_last);
  return true;
}

// A name without an address stays a mailbox with an empty address: "John
// Doe", "Undisclosed recipients" and "MAILER-DAEMON <>" all name who sent or
// got the message, and so does a lone word ("postmaster", "xyz, abc"). A
// word in angle brackets is a local address, and so is a word with a comment
// after it ("root (Cron Daemon)"), which the comment names.
void read_mailbox(char const* first, char const* last, std::vector<std::string>& names,
                  std::vector<std::string>& emails, std::string const& raw_charset) {
  strip_group(first, last);
  if (first == last)
    return;
  std::string rewritten;
  if (without_address_folding(first, last, rewritten)) {
    first = rewritten.data();
    last = first + rewritten.size();
  }
  // "MAILER-DAEMON <>": the empty address of a bounce, after a name.
  char const* end = last;
  while (end != first && is_blank(end[-1]))
    --end;
  if (end - first > 2 && end[-1] == '>' && end[-2] == '<') {
    std::string display = decoded(header::dequote_string(first, end - 2), raw_charset);
    if (!display.empty()) {
      names.push_back(std::move(display));
      emails.emplace_back();
    }
    return;
  }
  char const* cursor = first;
  auto [name, email] = header::address_name_and_email_function(cursor, last);
  if (!email.found() || email.empty()) {
    std::string local_name, local_address;
    char const *open = nullptr, *close = nullptr;
    if (local_angle_address(first, last, local_name, local_address)) {
      names.push_back(decoded(local_name, raw_charset));
      emails.push_back(decoded(local_address, raw_charset));
    } else if (inner_angle_address(first, last, open, close)) {
      names.push_back(decoded(header::dequote_string(first, open), raw_charset));
      emails.push_back(decoded(std::string(open + 1, close), raw_charset));
    } else if (name.found() && !name.empty() && !name.comment) {
      // A comment alone ("(no To-header on input)") is a remark, no name.
      std::string display = decoded(header::dequote_string(name.first, name.last), raw_charset);
      if (!display.empty()) {
        names.push_back(std::move(display));
        emails.emplace_back();
      }
    }
    return;
  }
  bool const local = std::find(email.first, email.last, '@') == email.last;
  if (local && email.comment)
    return; // a lone comment, taken for a word
  if (!name.found() && local)
    trailing_comment(email.last, last, name);
  // A bare word with neither a domain nor brackets nor a name beside it
  // ("xyz, abc", "postmaster") is what its writer called the recipient, not
  // an address anyone outside that host could write to: a name.
  if (local && !name.found() && std::find(first, last, '<') == last) {
    std::string display = decoded(std::string(email.first, email.last), raw_charset);
    if (!display.empty()) {
      names.push_back(std::move(display));
      emails.emplace_back();
    }
    return;
  }
  std::string display =
      name.found() ? decoded(header::dequote_string(name.first, name.last), raw_charset) : std::string();
  // "Just A Name, bob@y" is one item: its comma is no part of the name.
  while (!display.empty() && (display.back() == ',' || is_blank(display.back())))
    display.pop_back();
  names.push_back(std::move(display));
  emails.push_back(decoded(std::string(email.first, email.last), raw_charset));
}

// Reads one run of the list that holds at most one address, given the
// commas in it that ended no mailbox. The commas join only a name written
// "Doe, John <j@x>": before an address with a display name in front of its
// angle brackets. Otherwise each comma ends a mailbox ("xyz, abc" is two,
// "John Doe, bob@y" a name and an address).
void read_run(char const* first, char const* last, std::vector<char const*> const& commas, bool named,
              std::vector<std::string>& names, std::vector<std::string>& emails, std::string const& raw_charset) {
  if (named) {
    read_mailbox(first, last, names, emails, raw_charset);
    return;
  }
  for (char const* comma : commas) {
    read_mailbox(first, comma, names, emails, raw_charset);
    first = comma + 1;
  }
  read_mailbox(first, last, names, emails, raw_charset);
}

// Reads the mailboxes of one item of the list splitter. Outside quotes,
// comments and angle brackets, a ';' ends a group and so a mailbox, and a
// comma ends a mailbox once it has an '@' or a closed angle address: the
// same rule as the splitter's, applied again to items that were joined over
// a comment, and to "Ann <ann>, Bob <bob>", which has no '@' at all. The
// other commas are left to read_run.
void read_item(char const* first, char const* last, std::vector<std::string>& names, std::vector<std::string>& emails,
               std::string const& raw_charset) {
  // Most items are one mailbox with no comma or semicolon anywhere: nothing
  // to cut, so no byte-by-byte walk.
  if (std::find_if(first, last, [](char c) { return c == ',' || c == ';'; }) == last) {
    read_mailbox(first, last, names, emails, raw_charset);
    return;
  }
  balance_t balance;
  bool addressed = false;
  bool text = false;  // the text since the last comma has more than blanks
  bool named = false; // and that text comes before an angle address
  std::vector<char const*> commas;
  char const* start = first;
  for (char const* p = first; p != last; ++p) {
    bool const outside = !balance.open() && !balance.quoted && !balance.escaped;
    if (outside && (*p == ';' || *p == ',')) {
      if (*p == ',' && !addressed) {
        commas.push_back(p);
        text = named = false;
        continue;
      }
      read_run(start, p, commas, addressed && named, names, emails, raw_charset);
      start = p + 1;
      addressed = text = named = false;
      commas.clear();
      continue;
    }
    if (outside && *p == '<')
      named = text;
    else if (*p == '>' && balance.angles == 1 && p != first && p[-1] == '<')
      named = false; // "<>" is no address a name could be split around
    else if (!is_blank(*p) && balance.angles == 0)
      text = true;
    balance.read(p, p + 1);
    if ((outside && *p == '@') || (*p == '>' && !balance.open() && !balance.quoted))
      addressed = true;
  }
  read_run(start, last, commas, addressed && named, names, emails, raw_charset);
}

// The list of one field.
void read_list(char const* cursor, char const* end, std::vector<std::string>& names, std::vector<std::string>& emails,
               std::string const& raw_charset) {
  while (cursor != end) {
    header::match_t item = header::address_split_function(cursor, end);
    balance_t balance;
    balance.read(item.first, item.last);
    while (balance.open() && cursor != end) {
      char const* const joined = item.last;
      header::match_t const next = header::address_split_function(cursor, end);
      balance.read(joined, next.last);
      item.last = next.last;
    }
    if (item.first != item.last)
      read_item(item.first, item.last, names, emails, raw_charset);
  }
}

} // namespace

void parse_mailboxes(std::string const& value, std::vector<std::string>& names, std::vector<std::string>& emails,
                     std::string const& raw_charset) {
  char const* first = value.data();
  char const* const end = first + value.size();
  while (first != end) {
    char const* const line = std::find(first, end, '\n');
    read_list(first, line, names, emails, raw_charset);
    first = line == end ? end : line + 1;
  }
}

} // namespace importer
