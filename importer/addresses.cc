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

#include <iterator>

#include "email/encoded_word.h"
#include "email/headers.h"
#include "header/address.h"

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

  void read(char const* first, char const* last) {
    for (char const* p = first; p != last; ++p) {
      char const c = *p;
      if (quoted) {
        if (c == '\\' && p + 1 != last)
          ++p;
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

bool is_blank(char c) {
  return c == ' ' || c == '\t';
}

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

std::string decoded(std::string const& raw) {
  std::string text;
  email::decode_header_line(raw.data(), raw.data() + raw.size(), std::back_inserter(text), nullptr, std::string());
  email::cleanup_header_body(text);
  return text;
}

void read_mailbox(char const* first, char const* last, std::vector<std::string>& names,
                  std::vector<std::string>& emails) {
  strip_group(first, last);
  if (first == last)
    return;
  char const* cursor = first;
  auto const [name, email] = header::address_name_and_email_function(cursor, last);
  if (!email.found() || email.empty())
    return;
  names.push_back(name.found() ? decoded(header::dequote_string(name.first, name.last)) : std::string());
  emails.push_back(decoded(std::string(email.first, email.last)));
}

} // namespace

void parse_mailboxes(std::string const& value, std::vector<std::string>& names, std::vector<std::string>& emails) {
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
      read_mailbox(item.first, item.last, names, emails);
  }
}

} // namespace importer
