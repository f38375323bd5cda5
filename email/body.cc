// SPDX-License-Identifier: MIT
// The body walker. Entities nest (multiparts in multiparts, enclosed
// messages), and a hostile message may nest them a million levels deep, so
// the walk keeps its own stack of open entities instead of recursing: the
// host's stack stays the same at any depth. Each open multipart or enclosed
// message is a frame holding the parts still to walk, what their walks are
// after and the text gathered so far; a finished entity hands its text to the
// frame below.
//
// Two things keep the walk linear in the input however deep it goes: from a
// few levels down the delimiter searches use an index of the buffer (each
// level would otherwise rescan the rest of the body for its own delimiter),
// and the bytes that decoding containers may produce are bounded by a
// multiple of the input (each level of an encoded enclosed message would
// otherwise hold a copy of nearly all of it).
#include "email/body.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <vector>

#include "charset/convert.h"
#include "email/attachment_name.h"
#include "email/base64.h"
#include "email/calendar.h"
#include "email/decode.h"
#include "email/html_text.h"
#include "email/multipart.h"
#include "email/parameter.h"
#include "text/line_ends.h"

namespace email {
namespace {

// Comparisons with literals as views: a length test first, no strlen, no call.
using namespace std::string_view_literals;

std::string entry(header_map_t const& headers, std::string_view key) {
  auto const it = headers.find(key);
  return it == headers.end() ? std::string() : it->second;
}

// The message's own header block was read into a map by the importer; its
// parts' blocks are read straight into content fields.
content_fields_t content_fields(header_map_t const& headers) {
  return {entry(headers, "#type"),        entry(headers, "#subtype"),
          entry(headers, "#charset"),     entry(headers, "#boundary"),
          entry(headers, "#encoding"),    entry(headers, "#disposition"),
          entry(headers, "content-type"), entry(headers, "content-disposition"),
          entry(headers, "content-id")};
}

bool has_text(std::string const& text) {
  return text != no_text_marker;
}

// What one walk is after besides the desktop reading's text.
struct context_t {
  bool full = false;
  bool html = false;                           // take text/html parts' text
  bool calendar = false;                       // take text/calendar parts' events
  std::vector<attachment_t>* names = nullptr;  // parts that name a file, so far
  quern::error::handler_t* problems = nullptr; // told what the decoders repair
};

reading_t reading_of(context_t const& context) {
  return context.full ? reading_t::full : reading_t::desktop;
}

// The full reading reads text past missing and wrong charset labels.
charset::policy_t policy_of(context_t const& context) {
  return context.full ? charset::policy_t::guess : charset::policy_t::labelled;
}

// The size of a part's body once its transfer encoding is undone. The
// decoded bytes are only counted; their buffer is kept per thread.
std::uint64_t decoded_size(char const* begin, char const* end, content_fields_t const& headers, reading_t reading) {
  if (headers.encoding == "7bit"sv || headers.encoding == "8bit"sv || headers.encoding == "binary"sv)
    return static_cast<std::uint64_t>(end - begin);
  // Most attachments are base64 as mail programs write it: counted, not
  // decoded (decoding them was most of the full reading's time).
  if (reading == reading_t::full && headers.encoding == "base64"sv && headers.type != "multipart"sv)
    if (auto const size = plain_base64_size(begin, end))
      return *size;
  thread_local std::vector<char> buffer;
  buffer.clear();
  std::string type = headers.type, subtype = headers.subtype;
  std::uint64_t const size =
      decode(begin, end, false, type, subtype, headers.encoding, headers.charset, buffer, nullptr, reading)
          ? buffer.size()
          : static_cast<std::uint64_t>(end - begin);
  if (buffer.capacity() > (1u << 20))
    std::vector<char>().swap(buffer);
  return size;
}

std::string without_angles(std::string const& id) {
  std::string_view view = id;
  while (!view.empty() && (view.front() == ' ' || view.front() == '\t'))
    view.remove_prefix(1);
  if (view.size() >= 2 && view.front() == '<') {
    auto const close = view.find('>');
    if (close != std::string_view::npos)
      view = view.substr(1, close - 1);
  }
  return std::string(view);
}

// Lists the part whose body is [begin, end) when it names a file.
void note_name(char const* begin, char const* end, content_fields_t const& headers, context_t const& context) {
  if (!context.names)
    return;
  std::string name = attachment_name(headers.content_disposition, headers.content_type, policy_of(context));
  if (name.empty())
    return;
  context.names->push_back({std::move(name), headers.type + '/' + headers.subtype,
                            decoded_size(begin, end, headers, reading_of(context)), without_angles(headers.content_id),
                            headers.disposition});
}

// Whether a part is shown in the message rather than attached. The desktop
// reading takes only "inline" (or no disposition); the full reading takes
// every word but "attachment", as mail programs do, so an unknown word on
// the only text part does not lose the body. Words that begin like
// "attachment" ("attachement", "attachments", a missing ';' before the
// filename) are read as the attachment they mean.
bool is_inline(std::string const& disposition, bool full) {
  return full ? !disposition.starts_with("attach") : disposition == "inline"sv;
}

// The root of a multipart/related in the full reading: the part its start
// parameter names by Content-ID, else the first part that is not an
// attachment, else the first part.
std::size_t related_root(std::vector<byte_range_t> const& parts, content_fields_t const& headers) {
  std::string start;
  if (auto const semicolon = headers.content_type.find(';'); semicolon != std::string::npos)
    parse_parameter(headers.content_type.data() + semicolon, headers.content_type.data() + headers.content_type.size(),
                    "start", start);
  start = without_angles(start);
  std::size_t shown = parts.size();
  for (std::size_t i = 0; i != parts.size() && (shown == parts.size() || !start.empty()); ++i) {
    char const* first = parts[i].first;
    content_fields_t const part = quick_parse_content_fields(first, parts[i].second, reading_t::full);
    if (!start.empty() && without_angles(part.content_id) == start)
      return i;
    if (shown == parts.size() && is_inline(part.disposition, true))
      shown = i;
  }
  return shown == parts.size() ? 0 : shown;
}

// Whether all of a multipart's parts are its text. Of the subtypes below
// only one part is (an alternative, a related root, signed or encrypted
// content, the human part of a report, ...). The full reading reads every
// other one as mixed, parallel and subtypes it has never met too: their
// parts are the message's content side by side, and reading only the first
// would lose the rest.
bool reads_every_part(std::string const& subtype, bool full) {
  static constexpr std::string_view one_part[] = {"alternative", "appledouble", "byteranges",    "encrypted",
                                                  "form-data",   "header-set",  "multilingual",  "related",
                                                  "report",      "signed",      "voice-message", "x-mixed-replace"};
  if (subtype == "mixed"sv)
    return true;
  return full && std::find(std::begin(one_part), std::end(one_part), subtype) == std::end(one_part);
}

// Whether [first, last) begins with a header field: a name and its colon,
// or a mailbox's "From " line.
bool starts_with_field(char const* first, char const* last) {
  if (last - first >= 5 && std::string_view(first, 5) == "From "sv)
    return true;
  auto const is_name_char = [](char c) { return c > ' ' && c < '\x7F' && c != ':'; };
  char const* p = std::find_if_not(first, last, is_name_char);
  if (p == first)
    return false;
  p = std::find_if_not(p, last, [](char c) { return c == ' ' || c == '\t'; });
  return p != last && *p == ':';
}

// A part's content fields. A digest's parts are enclosed messages unless
// they say otherwise: a part without a Content-Type is one, when it begins
// with a header. One that begins with prose is a note its writer left
// untyped, and read as the text it is; as a message it would be all header.
content_fields_t part_fields(char const*& first, char const* last, bool digest, reading_t reading) {
  content_fields_t fields = quick_parse_content_fields(first, last, reading);
  if (digest && fields.content_type.empty() && starts_with_field(first, last)) {
    fields.type = "message";
    fields.subtype = "rfc822";
  }
  return fields;
}

std::vector<byte_range_t> body_parts(char const* begin, char const* end, content_fields_t const& headers,
                                     bool first_only, quern::error::handler_t* problems, delimiter_index_t const* index,
                                     reading_t reading) {
  auto ranges = parse_subparts(begin, end, headers.boundary, first_only, problems, index, reading);
  // The first range is the preamble and the last whatever follows the
  // parts; neither is text of the message.
  if (ranges.size() >= 2) {
    ranges.pop_back();
    ranges.erase(ranges.begin());
  } else {
    ranges.clear();
  }
  return ranges;
}

std::string html_text(char const* begin, char const* end, std::vector<char>& buffer, std::string const& charset,
                      quern::error::handler_t* problems, charset::policy_t policy) {
  if (!buffer.empty()) {
    begin = buffer.data();
    end = begin + buffer.size();
  }
  std::vector<char> document;
  document.reserve(static_cast<std::size_t>(end - begin));
  charset::convert_to_utf8(
      begin, end, std::back_inserter(document), charset, [] { return std::string(); }, problems, policy);
  std::vector<char>().swap(buffer);
  std::string text = html_to_text(document, problems);
  std::vector<char>().swap(document);
  std::vector<char> canonical;
  canonical.reserve(text.size());
  decode_to_canonical_format(text.data(), text.data() + text.size(), "plain", false, false,
                             std::back_inserter(canonical), nullptr);
  // At most two copies of the text at a time.
  text.assign(canonical.begin(), canonical.end());
  return text;
}

// The events' text of a calendar part; the decoded bytes are read before
// they are converted, so that a fold inside a multi-byte character is undone
// first. A calendar without a declared charset is UTF-8.
std::string calendar_part_text(char const* begin, char const* end, std::vector<char>& buffer,
                               std::string const& charset, quern::error::handler_t* problems) {
  if (!buffer.empty()) {
    begin = buffer.data();
    end = begin + buffer.size();
  }
  std::string const events = calendar_text(begin, end);
  std::vector<char>().swap(buffer);
  std::vector<char> text;
  text.reserve(events.size());
  charset::convert_to_utf8(
      events.data(), events.data() + events.size(), std::back_inserter(text),
      charset == "us-ascii"sv ? std::string("utf-8") : charset, [] { return std::string(); }, problems,
      charset::policy_t::guess); // only the full reading reads calendars
  return std::string(text.begin(), text.end());
}

// The full reading reads CR LF as LF, but only in the bytes as stored: an
// encoded enclosed message is decoded after that, and with its CR LF left in
// its header block would never end (only an empty LF line ends one).
void lf_line_ends(std::vector<char>& decoded) {
  if (!text::has_crlf(decoded.data(), decoded.data() + decoded.size()))
    return;
  std::vector<char> lf;
  lf.reserve(decoded.size());
  text::crlf_to_lf(decoded.data(), decoded.data() + decoded.size(), std::back_inserter(lf));
  decoded.swap(lf);
}

// Searches at this depth and deeper use the delimiter index; shallower ones
// scan, which costs less than building the index for ordinary mail.
constexpr std::size_t indexed_depth = 8;

// How an open multipart or enclosed message makes its text of its parts'.
enum class join_t {
  all,        // multipart/mixed: every part's text, in order (the full reading puts line breaks between)
  first,      // the first part (in walking order) that has text
  first_scan, // the same, but every part is walked (for its file names)
  names,      // no text: only the parts' file names are wanted
};

// An open multipart or enclosed message: the parts still to walk and the
// text gathered so far.
struct frame_t {
  frame_t(std::vector<char> decoded, char const* first, char const* last, context_t const& walk_context, join_t how)
      : buffer(std::move(decoded)), base_begin(first), base_end(last), context(walk_context), join(how) {}

  std::vector<char> buffer; // the decoded body, when it was encoded
  char const* base_begin;   // the buffer the parts lie in
  char const* base_end;
  context_t context; // what the parts' walks are after
  join_t join = join_t::first;
  std::size_t origin = 0;          // where the entity is in the message, for problems
  std::vector<byte_range_t> parts; // in walking order
  std::size_t next = 0;
  std::vector<byte_range_t> name_parts; // walked for file names only, after the parts
  bool digest = false;                  // the parts are a digest's, enclosed messages by default
  // The one part of parts walked for text when not all are (a related
  // part's root in the full reading); the others are walked for names.
  std::size_t text_part = std::size_t(-1);
  bool html_round = false;     // the full reading's second look at the alternatives
  bool calendar_round = false; // and its third, when neither gave text
  std::string text;
};

class walker_t {
public:
  walker_t(char const* begin, char const* end, context_t const& context)
      : root_(context), decode_budget_(2 * static_cast<std::size_t>(end - begin) + (16u << 20)), root_begin_(begin),
        root_end_(end), current_(context.problems ? context.problems->offset() : 0), base_(current_) {}

  std::string walk(char const* begin, char const* end, header_map_t& headers, bool top_level) {
    std::string text;
    content_fields_t fields = content_fields(headers);
    bool done = open_entity(begin, end, begin, end, fields, top_level, root_, text);
    for (;;) {
      if (done) {
        if (stack_.empty())
          return text;
        take(stack_.back(), std::move(text));
      }
      frame_t& frame = stack_.back();
      if (frame.next == frame.parts.size() && (frame.html_round || frame.calendar_round) && frame.text.empty()) {
        // No alternative gave plain text: the first that gives HTML text
        // wins, and only when none does, the first calendar's events. The
        // names were listed by the first round.
        frame.context.html = frame.html_round;
        frame.context.calendar = !frame.html_round;
        (frame.html_round ? frame.html_round : frame.calendar_round) = false;
        frame.context.names = nullptr;
        frame.join = join_t::first;
        frame.next = 0;
      }
      bool const names_only = frame.next == frame.parts.size();
      if (names_only && frame.name_parts.empty()) {
        text = frame.text.empty() ? std::string(no_text_marker) : std::move(frame.text);
        if (index_ && !frame.buffer.empty() && index_base_ == frame.buffer.data())
          index_.reset(); // its buffer goes, and another may take its place
        stack_.pop_back();
        done = true;
        continue;
      }
      byte_range_t part;
      bool for_names = names_only || frame.join == join_t::names;
      if (names_only) {
        part = frame.name_parts.back();
        frame.name_parts.pop_back();
      } else {
        for_names = for_names || (frame.text_part != std::size_t(-1) && frame.next != frame.text_part);
        part = frame.parts[frame.next++];
      }
      char const* const base_begin = frame.base_begin;
      char const* const base_end = frame.base_end;
      bool const digest = frame.digest;
      context_t const context = frame.context;
      // A part's problems are placed at the part; a part of a decoded body
      // has no place in the message, so at the entity it was decoded from.
      std::less<char const*> const before;
      current_ = !before(part.first, root_begin_) && !before(root_end_, part.first)
                     ? base_ + static_cast<std::size_t>(part.first - root_begin_)
                     : frame.origin;
      quern::error::offset_scope_t const here(context.problems, current_);
      if (for_names) {
        done = open_names(part.first, part.second, base_begin, base_end, context, digest);
        text = no_text_marker;
        continue;
      }
      // A nested entity: its own header block, then its body.
      auto [first, last] = part;
      content_fields_t part_headers = part_fields(first, last, digest, reading_of(context));
      done = open_entity(first, last, base_begin, base_end, part_headers, false, context, text);
    }
  }

private:
  // A part's text joins the text of the entity it belongs to.
  static void take(frame_t& frame, std::string text) {
    if (!has_text(text) || frame.join == join_t::names)
      return;
    if (frame.join == join_t::all) {
      if (frame.text.empty()) {
        frame.text = std::move(text);
      } else {
        // A part's last line break belongs to the delimiter after it: the
        // full reading puts one back where neither text has one at the
        // join, so the last word of one part and the first of the next stay
        // two words.
        if (frame.context.full && !text.empty() && frame.text.back() != '\n' && text.front() != '\n')
          frame.text += '\n';
        frame.text += text;
      }
    } else if (frame.text.empty()) {
      frame.text = std::move(text);
      if (frame.join == join_t::first)
        frame.next = frame.parts.size();
    }
  }

  // Starts the walk of the entity [begin, end), which lies in the buffer
  // [base_begin, base_end): a leaf sets its text at once (true); a container
  // becomes a frame whose parts come next (false).
  bool open_entity(char const* begin, char const* end, char const* base_begin, char const* base_end,
                   content_fields_t& headers, bool top_level, context_t const& context, std::string& text) {
    text = no_text_marker;
    if (stack_.size() > max_nesting_depth)
      return true;
    // Decoding may rewrite both (to application/octet-stream).
    std::string& type = headers.type;
    std::string& subtype = headers.subtype;
    if (type != "multipart"sv)
      note_name(begin, end, headers, context);

    // A text part that cannot be chosen gives no text whatever its bytes;
    // when nobody listens for the problems its decoding would find, it is not
    // decoded. Most base64 in real mail is text attachments (CSV, calendars).
    bool const inline_part = is_inline(headers.disposition, context.full);
    bool const plain_wanted = subtype == "plain"sv && inline_part;
    bool const html_wanted = context.html && subtype == "html"sv && inline_part;
    bool const calendar_wanted = context.calendar && subtype == "calendar"sv && inline_part;
    std::vector<char> buffer;
    if (type == "multipart"sv || type == "message"sv ||
        (type == "text"sv && (plain_wanted || html_wanted || calendar_wanted || context.problems))) {
      std::string const& encoding = headers.encoding;
      if (encoding == "base64"sv || encoding == "quoted-printable"sv) {
        // Decoding a container copies nearly all of it, once per level.
        if (type != "text"sv && static_cast<std::size_t>(end - begin) > decode_budget_)
          return true;
        if (decode(begin, end, top_level, type, subtype, encoding, headers.charset, buffer, context.problems,
                   reading_of(context))) {
          if (context.full && type == "message"sv)
            lf_line_ends(buffer);
          begin = buffer.data();
          end = begin + buffer.size();
          if (type != "text"sv) {
            decode_budget_ -= std::min(decode_budget_, buffer.size());
            base_begin = begin;
            base_end = end;
          }
        }
      }
    }

    if (type == "multipart"sv) {
      open_multipart(begin, end, base_begin, base_end, std::move(buffer), headers, subtype, context);
      return false;
    }
    if (type == "message"sv && subtype == "rfc822"sv) {
      // Pointers into the buffer stay valid: moving a vector keeps its
      // storage.
      frame_t frame(std::move(buffer), base_begin, base_end, context, join_t::first);
      frame.parts.emplace_back(begin, end);
      frame.origin = current_;
      stack_.push_back(std::move(frame));
      return false;
    }
    if (type == "text"sv && plain_wanted) {
      // The importer never applies format=flowed: the text is only
      // canonicalised, and undeclared 8-bit text that is not UTF-8 is left to
      // the converter's own choice (the fallback names no charset).
      decode_text(
          begin, end, buffer, subtype, false, false, headers.charset, [] { return std::string(); }, context.problems,
          policy_of(context));
      // From the pointer, not the iterators: assigning from vector iterators
      // builds a temporary string first, a third copy of a large text.
      if (!buffer.empty())
        text.assign(buffer.data(), buffer.size());
    } else if (type == "text"sv && html_wanted) {
      text = html_text(begin, end, buffer, headers.charset, context.problems, policy_of(context));
      if (text.empty())
        text = no_text_marker;
    } else if (type == "text"sv && calendar_wanted) {
      text = calendar_part_text(begin, end, buffer, headers.charset, context.problems);
      if (text.empty())
        text = no_text_marker;
    }
    return true;
  }

  // A multipart's parts: all of a mixed one (below 20,000,000 bytes), one
  // alternative, or else the first part. The full reading reads a digest
  // (each of its parts a message of its own) and subtypes it does not know
  // as mixed.
  void open_multipart(char const* begin, char const* end, char const* base_begin, char const* base_end,
                      std::vector<char> buffer, content_fields_t const& headers, std::string const& subtype,
                      context_t const& context) {
    frame_t frame(std::move(buffer), base_begin, base_end, context, join_t::first);
    frame.origin = current_;
    frame.digest = context.full && subtype == "digest"sv;
    bool const walk_all = reads_every_part(subtype, context.full) && end - begin < 20'000'000;
    // The full reading looks at every part: for names, and for alternatives.
    frame.parts = body_parts(begin, end, headers, !walk_all && !context.full, context.problems,
                             index_for(base_begin, base_end, begin, end), reading_of(context));
    if (walk_all) {
      frame.join = join_t::all;
    } else if (subtype == "alternative"sv && context.full) {
      // The first alternative that gives plain text, else the first that
      // gives HTML text, else the first calendar. HTML ranks above the
      // calendar: beside a calendar it is the invitation as its sender
      // wrote it for people, with the same title, place and notes.
      frame.join = join_t::first_scan;
      frame.context.html = false;
      frame.context.calendar = false;
      frame.html_round = context.html;
      frame.calendar_round = context.calendar;
    } else if (subtype == "related"sv && context.full && !frame.parts.empty()) {
      // The root need not be the first part; the others are walked for
      // their names in place, so the names keep their order.
      std::size_t const root = related_root(frame.parts, headers);
      if (context.names) {
        frame.join = join_t::first_scan;
        frame.text_part = root;
      } else {
        frame.parts = {frame.parts[root]};
      }
    } else if (subtype == "alternative"sv) {
      std::reverse(frame.parts.begin(), frame.parts.end());
    } else if (!frame.parts.empty()) {
      if (context.names)
        frame.name_parts.assign(frame.parts.rbegin(), frame.parts.rend() - 1); // taken from the back
      frame.parts.resize(1);
    }
    stack_.push_back(std::move(frame));
  }

  // Only the file names of a part whose text is not wanted: true when done,
  // false when its parts come next.
  bool open_names(char const* begin, char const* end, char const* base_begin, char const* base_end,
                  context_t const& context, bool digest) {
    if (stack_.size() > max_nesting_depth)
      return true;
    content_fields_t const headers = part_fields(begin, end, digest, reading_of(context));
    if (headers.type == "message"sv && headers.subtype == "rfc822"sv)
      return open_message_names(begin, end, base_begin, base_end, headers, context);
    if (headers.type != "multipart"sv) {
      note_name(begin, end, headers, context);
      return true;
    }
    frame_t frame({}, base_begin, base_end, context, join_t::names);
    frame.origin = current_;
    frame.digest = context.full && headers.subtype == "digest"sv;
    frame.parts = body_parts(begin, end, headers, false, nullptr, index_for(base_begin, base_end, begin, end),
                             reading_of(context));
    stack_.push_back(std::move(frame));
    return false;
  }

  // An enclosed message whose text is not wanted: its own parts may name
  // files. It is decoded, when it is encoded, within the same budget as the
  // text walk's enclosed messages, and its frame counts towards the same
  // nesting bound.
  bool open_message_names(char const* begin, char const* end, char const* base_begin, char const* base_end,
                          content_fields_t const& headers, context_t const& context) {
    note_name(begin, end, headers, context);
    std::vector<char> buffer;
    if (headers.encoding == "base64"sv || headers.encoding == "quoted-printable"sv) {
      if (static_cast<std::size_t>(end - begin) > decode_budget_)
        return true;
      std::string type = headers.type, subtype = headers.subtype;
      if (decode(begin, end, false, type, subtype, headers.encoding, headers.charset, buffer, nullptr,
                 reading_of(context))) {
        if (context.full && type == "message"sv)
          lf_line_ends(buffer);
        begin = buffer.data();
        end = begin + buffer.size();
        decode_budget_ -= std::min(decode_budget_, buffer.size());
        base_begin = begin;
        base_end = end;
      }
    }
    frame_t frame(std::move(buffer), base_begin, base_end, context, join_t::names);
    frame.origin = current_;
    frame.parts.emplace_back(begin, end);
    stack_.push_back(std::move(frame));
    return false;
  }

  // The index for searches in [begin, end) of the buffer [base_begin,
  // base_end), deep enough down to need one.
  delimiter_index_t const* index_for(char const* base_begin, char const* base_end, char const* begin, char const* end) {
    if (stack_.size() < indexed_depth)
      return nullptr;
    if (!index_ || index_base_ != base_begin) {
      index_ = std::make_unique<delimiter_index_t>(base_begin, base_end);
      index_base_ = base_begin;
    }
    return index_->covers(begin, end) ? index_.get() : nullptr;
  }

  context_t root_;
  std::size_t decode_budget_;
  std::vector<frame_t> stack_;
  std::unique_ptr<delimiter_index_t> index_;
  char const* index_base_ = nullptr;
  char const* root_begin_; // the bytes the walk started on
  char const* root_end_;
  std::size_t current_; // the offset of the entity being opened
  std::size_t base_;    // the offset of root_begin_ in the message
};

} // namespace

std::string parse_body(char const* begin, char const* end, header_map_t& headers, bool top_level,
                       quern::error::handler_t* problems) {
  context_t context;
  context.problems = problems;
  return walker_t(begin, end, context).walk(begin, end, headers, top_level);
}

body_t read_body(char const* begin, char const* end, header_map_t& headers, bool top_level, reading_t reading,
                 bool attachments, quern::error::handler_t* problems) {
  body_t body;
  context_t context;
  if (reading == reading_t::full)
    context = {true, true, true, attachments ? &body.attachments : nullptr, nullptr};
  context.problems = problems;
  std::string text = walker_t(begin, end, context).walk(begin, end, headers, top_level);
  if (has_text(text))
    body.text = std::move(text);
  return body;
}

} // namespace email
