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
// brackets balance, which looks at every byte once.
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

// Drops a group's "display name:" from the front of an item and its closing
// ";" from the back. The colon must come before any '@', '<', quote or
// comment, so "a@x:y" and quoted colons stay as they are.
void strip_group(char const*& first, char const*& last) {
  for (char const* p = first; p != last; ++p) {
    char const c = *p;
    if (c == ':') {
      first = p + 1;
      break;
    }
    if (c == '@' || c == '<' || c == '"' || c == '(' || c == ',')
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

void read_mailbox(char const* first, char const* last, std::vector<std::string>& names,
                  std::vector<std::string>& emails, std::string const& raw_charset) {
  strip_group(first, last);
  if (first == last)
    return;
  char const* cursor = first;
  auto const [name, email] = header::address_name_and_email_function(cursor, last);
  if (!email.found() || email.empty()) {
    std::string local_name, local_address;
    if (!local_angle_address(first, last, local_name, local_address))
      return;
    names.push_back(decoded(local_name, raw_charset));
    emails.push_back(decoded(local_address, raw_charset));
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

// Reads the mailboxes of one item of the list splitter. Outside quotes,
// comments and angle brackets, a ';' ends a group and so a mailbox, and a
// comma ends a mailbox once it has an '@' or a closed angle address: the
// same rule as the splitter's, applied again to items that were joined over
// a comment, and to "Ann <ann>, Bob <bob>", which has no '@' at all.
void read_item(char const* first, char const* last, std::vector<std::string>& names, std::vector<std::string>& emails,
               std::string const& raw_charset) {
  balance_t balance;
  bool addressed = false;
  char const* start = first;
  for (char const* p = first; p != last; ++p) {
    bool const outside = !balance.open() && !balance.quoted && !balance.escaped;
    if (outside && (*p == ';' || (*p == ',' && addressed))) {
      read_mailbox(start, p, names, emails, raw_charset);
      start = p + 1;
      addressed = false;
      continue;
    }
    balance.read(p, p + 1);
    if ((outside && *p == '@') || (*p == '>' && !balance.open() && !balance.quoted))
      addressed = true;
  }
  read_mailbox(start, last, names, emails, raw_charset);
}

} // namespace

void parse_mailboxes(std::string const& value, std::vector<std::string>& names, std::vector<std::string>& emails,
                     std::string const& raw_charset) {
  char const* cursor = value.data();
  char const* const end = cursor + value.size();
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

} // namespace importer
