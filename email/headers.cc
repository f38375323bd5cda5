// SPDX-License-Identifier: MIT
#include "email/headers.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <optional>
#include <utility>

#include "charset/detect.h"
#include "charset/utf8.h"
#include "date/rfc822_date.h"
#include "email/attachment_name.h"
#include "email/encoded_word.h"
#include "email/parameter.h"
#include "text/ascii.h"

namespace email {

using namespace std::string_view_literals;

namespace {

using text::is_blank;

void lower_in_place(std::string& s) {
  std::ranges::transform(s, s.begin(), text::to_lower);
}

// Whether the lower-case form of [first, last) is in wanted, without a copy
// for any name that fits on the stack.
bool is_wanted(char const* first, char const* last, header_set_t const& wanted) {
  char lowered[64];
  auto const length = static_cast<std::size_t>(last - first);
  if (length > sizeof lowered) {
    std::string name(first, last);
    lower_in_place(name);
    return wanted.contains(name);
  }
  std::transform(first, last, lowered, text::to_lower);
  return wanted.contains(std::string_view(lowered, length));
}

// One past the end of the field whose value starts at p: the value runs to
// an LF, and on past it while the next line starts with SP or TAB.
char const* field_end(char const* p, char const* last) {
  for (;;) {
    auto const* lf = static_cast<char const*>(std::memchr(p, '\n', static_cast<std::size_t>(last - p)));
    if (!lf)
      return last;
    p = lf + 1;
    if (p == last || !is_blank(*p))
      return p;
  }
}

// The canonical UTC text of a date, or "" when it cannot be read; zoned,
// when given, receives the date with its zone.
std::string canonical_date(char const* first, char const* last, reading_t reading, quern::error::handler_t* problems,
                           std::optional<date::zoned_t>* zoned = nullptr) {
  date::rules_t const rules = reading == reading_t::full ? date::rules_t::full() : date::rules_t();
  date::rfc822_date_t const parsed(first, last, problems, rules);
  if (zoned)
    *zoned = parsed.zoned();
  return parsed.canonical_format();
}

void store_received(header_map_t& map, std::string const& value, reading_t reading, quern::error::handler_t* problems,
                    header_dates_t* dates) {
  auto const semicolon = value.rfind(';');
  if (semicolon == std::string::npos)
    return;
  auto const begin =
      std::find_if(value.begin() + static_cast<std::ptrdiff_t>(semicolon) + 1, value.end(), text::is_alnum);
  std::optional<date::zoned_t> zoned;
  std::string canonical = canonical_date(value.data() + (begin - value.begin()), value.data() + value.size(), reading,
                                         problems, dates ? &zoned : nullptr);
  // An unreadable date stores nothing, so a later Received field may still
  // supply one.
  if (!canonical.empty()) {
    map.insert_or_assign("received", std::move(canonical));
    if (dates)
      dates->received = zoned;
  }
}

// A body part's map holds a handful of entries: a look at each, lengths
// first, costs less than a binary search whose every step compares strings.
std::string const* find_value(header_map_t const& map, std::string_view key) {
  if (map.size() > 8) {
    auto const it = map.find(key);
    return it == map.end() ? nullptr : &it->second;
  }
  for (auto const& [name, value] : map)
    if (name.size() == key.size() && std::string_view(name) == key)
      return &value;
  return nullptr;
}

// The derived keys of one block, gathered in key order before they go into
// the map.
enum derived_key_t { boundary_key, charset_key, disposition_key, encoding_key, subtype_key, type_key, derived_keys };
constexpr std::array<std::string_view, derived_keys> derived_names{"#boundary", "#charset", "#disposition",
                                                                   "#encoding", "#subtype", "#type"};
using derived_t = std::array<std::optional<std::string>, derived_keys>;

// The media type, subtype, charset and boundary of a Content-Type value (or
// of none), each with its MIME default. Where the plain parameter scan finds
// no boundary, the full reading looks again with the reader of file names:
// it passes over empty parameters ("mixed;; boundary=b") and reads a value
// written as RFC 2231 sections ("boundary*=us-ascii''b"). Without a
// boundary a multipart has no parts, and the message no text.
void derive_content_type(std::string const* value, std::string& type, std::string& subtype, std::string& charset,
                         std::string& boundary, reading_t reading) {
  type = "text";
  subtype = "plain";
  charset = "us-ascii";
  boundary.clear();
  if (!value)
    return;
  auto const semicolon = value->find(';');
  // The media type without its spaces, lower-cased, split at its first
  // slash; without a slash the defaults stand.
  std::string_view const media = std::string_view(*value).substr(0, semicolon);
  if (media.find('/') != std::string_view::npos) {
    type.clear();
    subtype.clear();
    std::string* side = &type;
    for (char const c : media) {
      if (c == '/' && side == &type)
        side = &subtype;
      else if (c != ' ')
        side->push_back(text::to_lower(c));
    }
  }
  if (semicolon == std::string::npos)
    return;
  char const* params = value->data() + semicolon;
  char const* end = value->data() + value->size();
  if (type == "multipart"sv) {
    parse_parameter(params, end, "boundary", boundary);
    if (boundary.empty() && reading == reading_t::full)
      boundary = parameter_text(params, end, "boundary", ::charset::policy_t::guess);
  } else if (type == "text"sv) {
    std::string declared;
    parse_parameter(params, end, "charset", declared);
    if (!declared.empty()) {
      charset = std::move(declared);
      lower_in_place(charset);
    }
  }
}

// Content-Transfer-Encoding and the disposition word: lower case, no spaces,
// the default when nothing is left.
std::string derive_word(std::string const* value, char const* fallback, bool stop_at_semicolon) {
  std::string word;
  if (value) {
    std::string_view written = *value;
    if (stop_at_semicolon)
      written = written.substr(0, written.find(';'));
    word.reserve(written.size());
    for (char const c : written)
      if (c != ' ')
        word.push_back(text::to_lower(c));
  }
  if (word.empty())
    word = fallback;
  return word;
}

using sequence_t = header_map_t::sequence_type;

// The derived values in front of fields that all sort after them, in the
// room the map was given.
sequence_t put_in_front(sequence_t fields, derived_t& derived, std::size_t count) {
  fields.insert(fields.begin(), count, {});
  auto slot = fields.begin();
  for (std::size_t key = 0; key != derived_keys; ++key)
    if (derived[key]) {
      slot->first = derived_names[key];
      slot->second = std::move(*derived[key]);
      ++slot;
    }
  return fields;
}

// The derived values merged with fields in key order; a derived key
// replaces a field of the same name.
sequence_t merge_in(sequence_t fields, derived_t& derived) {
  sequence_t merged;
  merged.reserve(fields.size() + derived_keys);
  auto field = fields.begin();
  for (std::size_t key = 0; key != derived_keys; ++key) {
    if (!derived[key])
      continue;
    std::string_view const name = derived_names[key];
    for (; field != fields.end() && std::string_view(field->first) < name; ++field)
      merged.push_back(std::move(*field));
    if (field != fields.end() && field->first == name)
      ++field;
    merged.emplace_back(std::string(name), std::move(*derived[key]));
  }
  for (; field != fields.end(); ++field)
    merged.push_back(std::move(*field));
  return merged;
}

// The derived keys join the map in one pass: inserted one at a time, each
// would search the map and move the entries after it, which cost more than
// deriving them in a message of many small parts. Usually every field's
// name sorts after every derived one ("#" before the letters) and they all
// go in front.
void insert_derived(header_map_t& map, derived_t& derived) {
  auto const count = static_cast<std::size_t>(
      std::count_if(derived.begin(), derived.end(), [](auto const& value) { return value.has_value(); }));
  if (count == 0)
    return;
  sequence_t fields = map.extract_sequence();
  bool const after = fields.empty() || std::string_view(fields.front().first) > derived_names.back();
  map.adopt_sequence(boost::container::ordered_unique_range,
                     after ? put_in_front(std::move(fields), derived, count) : merge_in(std::move(fields), derived));
}

} // namespace

header_map_t quick_parse_headers(char const*& first, char const* last, header_set_t const& wanted,
                                 quern::error::handler_t* problems) {
  return quick_parse_headers(first, last, wanted, reading_t::desktop, problems);
}

bool is_address_field(std::string_view name) {
  return name == "from"sv || name == "to"sv || name == "cc"sv || name == "bcc"sv || name == "sender"sv ||
         name == "reply-to"sv;
}

namespace {

// One field of the header block: its name as written, and its value without
// the blanks after the colon or the final LF.
struct field_t {
  char const* name_first;
  char const* name_last;
  char const* value_first;
  char const* value_last;
};

// Reads the field that starts at p; returns where the next one starts. The
// full reading takes the blanks before a colon out of the name: old mailers
// wrote "Subject :", and the field is no less the subject for it.
char const* scan_field(char const* p, char const* last, field_t& field, reading_t reading) {
  field.name_first = p;
  while (p != last && *p != ':' && *p != '\n')
    ++p;
  field.name_last = p;
  if (p != last && *p == ':') {
    if (reading == reading_t::full)
      while (field.name_last != field.name_first && is_blank(field.name_last[-1]))
        --field.name_last;
    ++p;
  }
  while (p != last && *p == ' ')
    ++p;
  field.value_first = p;
  p = field_end(p, last);
  field.value_last = p;
  if (field.value_last != field.value_first && field.value_last[-1] == '\n')
    --field.value_last;
  return p;
}

// Calls visit with each field of the header block at first, up to the empty
// line or last; leaves first at the body.
template <typename Visit> void for_each_field(char const*& first, char const* last, reading_t reading, Visit visit) {
  char const* p = first;
  while (p != last) {
    if (*p == '\n') {
      ++p;
      break;
    }
    field_t field;
    p = scan_field(p, last, field, reading);
    visit(field);
  }
  first = p;
}

bool has_raw_8bit(char const* first, char const* last) {
  return std::any_of(first, last, [](char c) { return static_cast<unsigned char>(c) >= 0x80; }) &&
         !utf8::is_valid(first, last);
}

// The charset of a header block's raw 8-bit text that is not UTF-8, found
// once for all of it: one value alone (a name, a subject) is often too short
// for the detector to be sure, and the values of one block were written by
// one program in one charset. Looked for only when a value needs it; empty
// when the detector is not sure.
class raw_charset_t {
public:
  raw_charset_t(char const* block, char const* last, header_set_t const& wanted)
      : block_(block), last_(last), wanted_(wanted) {}

  std::string const& operator()() {
    if (!found_) {
      found_ = true;
      std::string text;
      char const* p = block_;
      for_each_field(p, last_, reading_t::full, [&](field_t const& field) {
        if (is_wanted(field.name_first, field.name_last, wanted_) && has_raw_8bit(field.value_first, field.value_last))
          text.append(field.value_first, field.value_last).append(1, '\n');
      });
      name_ = charset::detect_charset(text.data(), text.data() + text.size());
    }
    return name_;
  }

private:
  char const* block_;
  char const* last_;
  header_set_t const& wanted_;
  bool found_ = false;
  std::string name_;
};

// The stored form of a wanted field's value: content fields and (in the full
// reading) address fields raw, everything else with its encoded words decoded
// (in the full reading past missing or wrong charset labels, raw 8-bit text in
// the block's charset).
std::string field_value(std::string const& name, field_t const& field, reading_t reading,
                        quern::error::handler_t* problems, std::function<std::string()> const& raw_fallback) {
  std::string value;
  if (field.value_first == field.value_last)
    return value;
  // An address field in ISO-2022 escapes is converted whole first: its
  // escape sequences hold '(' and '$', which would read as syntax.
  bool const keep_address = reading == reading_t::full && is_address_field(name) &&
                            std::find(field.value_first, field.value_last, '\x1B') == field.value_last;
  if (name.starts_with("content-") || keep_address)
    value.assign(field.value_first, field.value_last);
  else if (reading == reading_t::full)
    decode_header_line(field.value_first, field.value_last, std::back_inserter(value), problems, std::string(),
                       raw_fallback, charset::policy_t::guess);
  else
    decode_header_line(field.value_first, field.value_last, std::back_inserter(value), problems, std::string());
  cleanup_header_body(value);
  return value;
}

// The full reading keeps every one of repeated address fields (three To
// lines are broken but common, and each names recipients), in order, one
// per line. An unfolded value holds no LF, so the list reader cuts them
// apart again and reads each on its own: a quote or bracket that one field
// leaves open cannot take in the next.
void append_address_field(header_map_t& map, std::string const& name, std::string value) {
  auto const [it, inserted] = map.try_emplace(name, std::move(value));
  if (inserted || value.empty())
    return;
  if (!it->second.empty())
    it->second.push_back('\n');
  it->second += value;
}

// The keys derived from the raw fields once the block is read: the content
// keys, and the Date value replaced by its canonical text (or removed).
void derive_keys(header_map_t& map, header_set_t const& wanted, reading_t reading, quern::error::handler_t* problems,
                 header_dates_t* dates) {
  // Which of the four fields are wanted, in one pass over the (small) set
  // rather than a search for each.
  bool type = false, encoding = false, disposition = false, date = false;
  for (std::string_view const name : wanted) {
    type = type || name == "content-type"sv;
    encoding = encoding || name == "content-transfer-encoding"sv;
    disposition = disposition || name == "content-disposition"sv;
    date = date || name == "date"sv;
  }
  derived_t derived;
  if (type) {
    std::string media, subtype, charset, boundary;
    derive_content_type(find_value(map, "content-type"), media, subtype, charset, boundary, reading);
    derived[type_key] = std::move(media);
    derived[subtype_key] = std::move(subtype);
    derived[charset_key] = std::move(charset);
    derived[boundary_key] = std::move(boundary);
  }
  if (encoding)
    derived[encoding_key] = derive_word(find_value(map, "content-transfer-encoding"), "7bit", false);
  if (disposition)
    derived[disposition_key] = derive_word(find_value(map, "content-disposition"), "inline", true);
  insert_derived(map, derived);
  if (!date)
    return;
  if (auto it = map.find(std::string_view("date")); it != map.end()) {
    std::string const raw = std::move(it->second);
    map.erase(it);
    std::string canonical =
        canonical_date(raw.data(), raw.data() + raw.size(), reading, problems, dates ? &dates->date : nullptr);
    if (!canonical.empty())
      map.emplace("date", std::move(canonical));
  }
}

} // namespace

header_map_t quick_parse_headers(char const*& first, char const* last, header_set_t const& wanted, reading_t reading,
                                 quern::error::handler_t* problems, header_dates_t* dates) {
  header_map_t map;
  // Room for every wanted field and derived key: a map that grows one entry
  // at a time moves all of its strings at each step.
  map.reserve(wanted.size() + derived_keys);
  std::string name;
  // Problems are placed at their field: the caller's offset is where the
  // block starts.
  char const* const block = first;
  std::size_t const base = problems ? problems->offset() : 0;
  auto const at = [&](char const* p) { return base + static_cast<std::size_t>(p - block); };
  std::size_t date_offset = base;
  raw_charset_t raw_charset(first, last, wanted);
  // What undeclared 8-bit text in a value is read as: the block's charset,
  // or (when the detector was not sure of it) what the value itself shows.
  std::function<std::string()> const raw_fallback = [&raw_charset] {
    return raw_charset().empty() ? default_fallback_charset() : raw_charset();
  };
  bool raw_addresses = false; // an address field kept raw holds 8-bit text that is not UTF-8
  for_each_field(first, last, reading, [&](field_t const& field) {
    // Most fields are not wanted: they are looked up lower-cased on the
    // stack and only a wanted name is copied.
    if (!is_wanted(field.name_first, field.name_last, wanted))
      return;
    name.assign(field.name_first, field.name_last);
    lower_in_place(name);
    bool const received = name == "received"sv;
    if (received && (map.contains("received") || map.contains("date")))
      return;
    quern::error::offset_scope_t const here(problems, at(field.name_first));
    if (name == "date"sv)
      date_offset = at(field.name_first);
    std::string value = field_value(name, field, reading, problems, raw_fallback);
    raw_addresses = raw_addresses || (reading == reading_t::full && is_address_field(name) &&
                                      has_raw_8bit(field.value_first, field.value_last));
    if (received)
      store_received(map, value, reading, problems, dates);
    else if (reading == reading_t::full && is_address_field(name))
      append_address_field(map, name, std::move(value));
    else
      map.insert_or_assign(name, std::move(value));
  });
  quern::error::offset_scope_t const here(problems, date_offset);
  derive_keys(map, wanted, reading, problems, dates);
  if (raw_addresses && !raw_charset().empty())
    map.insert_or_assign(std::string(raw_charset_key), raw_charset());
  return map;
}

content_fields_t quick_parse_content_fields(char const*& first, char const* last, reading_t reading) {
  content_fields_t fields;
  std::string encoding;
  for_each_field(first, last, reading, [&](field_t const& field) {
    auto const name = std::string_view(field.name_first, static_cast<std::size_t>(field.name_last - field.name_first));
    std::string* value = nullptr;
    if (text::equals_lower(name, "content-type"sv))
      value = &fields.content_type;
    else if (text::equals_lower(name, "content-transfer-encoding"sv))
      value = &encoding;
    else if (text::equals_lower(name, "content-disposition"sv))
      value = &fields.content_disposition;
    else if (text::equals_lower(name, "content-id"sv))
      value = &fields.content_id;
    else
      return;
    // The last of several fields of one name wins, as in the map.
    value->assign(field.value_first, field.value_last);
    cleanup_header_body(*value);
  });
  derive_content_type(&fields.content_type, fields.type, fields.subtype, fields.charset, fields.boundary, reading);
  fields.encoding = derive_word(&encoding, "7bit", false);
  fields.disposition = derive_word(&fields.content_disposition, "inline", true);
  return fields;
}

void cleanup_header_body(std::string& value) {
  if (value.find('\n') != std::string::npos) {
    // What came last decides how a blank after a line break is written: a
    // fold becomes one space, or nothing when the line already ended in one.
    enum class state_t { normal, blank, blank_then_break, line_break };
    state_t state = state_t::normal;
    std::string unfolded;
    unfolded.reserve(value.size());
    for (char const c : value) {
      if (c == '\r' || c == '\n') {
        state = state == state_t::blank ? state_t::blank_then_break : state_t::line_break;
      } else if (is_blank(c)) {
        if (state == state_t::line_break)
          unfolded.push_back(' ');
        else if (state != state_t::blank_then_break)
          unfolded.push_back(c);
        state = state_t::blank;
      } else {
        unfolded.push_back(c);
        state = state_t::normal;
      }
    }
    value.swap(unfolded);
  }
  if (value.find('\0') != std::string::npos)
    std::erase(value, '\0');
  while (!value.empty() && text::is_space(value.back()))
    value.pop_back();
}

} // namespace email
