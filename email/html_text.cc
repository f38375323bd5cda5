// SPDX-License-Identifier: MIT
#include "email/html_text.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <mutex>
#include <string_view>

#include <libxml/HTMLparser.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>

#include "text/ascii.h"
#include "text/format.h"

namespace email {
namespace {

// Elements whose content is never shown.
bool is_hidden(std::string_view name) {
  return name == "script" || name == "style" || name == "head" || name == "title" || name == "template";
}

// Elements that stand on lines of their own.
bool is_block(std::string_view name) {
  static constexpr std::array<std::string_view, 27> blocks{
      "address", "article", "blockquote", "br",      "dd",    "div",   "dl",     "dt", "footer",
      "h1",      "h2",      "h3",         "h4",      "h5",    "h6",    "header", "hr", "li",
      "ol",      "p",       "pre",        "section", "table", "tbody", "tr",     "ul", "caption"};
  for (std::string_view const block : blocks)
    if (name == block)
      return true;
  return false;
}

bool is_cell(std::string_view name) {
  return name == "td" || name == "th";
}

// Elements whose content the parser reads as raw text up to their end tag.
bool is_raw_text(std::string_view name) {
  return name == "script" || name == "style";
}

struct reader_t {
  xmlParserCtxtPtr context = nullptr;
  std::string text;
  std::size_t hidden = 0; // open elements whose content is dropped
  enum class gap_t { none, space, line } gap = gap_t::none;
  // Set when an element would have gone deeper than max_html_depth: the
  // parser stops, and the flat reader goes on from resume, inside the start
  // tag of the element named deep_name, just past its attributes.
  bool too_deep = false;
  std::size_t resume = 0;
  std::string deep_name;

  void widen_gap(gap_t wanted) {
    if (wanted > gap)
      gap = wanted;
  }

  void write(char const* p, std::size_t size) {
    char const* const end = p + size;
    while (p != end) {
      auto const byte = static_cast<unsigned char>(*p);
      std::size_t space = 0;
      if (byte == ' ' || byte == '\t' || byte == '\n' || byte == '\r' || byte == '\f')
        space = 1;
      else if (byte == 0xC2 && end - p >= 2 && static_cast<unsigned char>(p[1]) == 0xA0)
        space = 2; // U+00A0 NO-BREAK SPACE, as &nbsp; decodes
      if (space) {
        widen_gap(gap_t::space);
        p += space;
        continue;
      }
      if (!text.empty() && text.back() != '\n') {
        if (gap == gap_t::line)
          text += '\n';
        else if (gap == gap_t::space)
          text += ' ';
      }
      gap = gap_t::none;
      text += *p++;
    }
  }

  void start(std::string_view name) {
    if (is_hidden(name))
      ++hidden;
    else if (is_block(name))
      widen_gap(gap_t::line);
    else if (is_cell(name))
      widen_gap(gap_t::space);
  }

  void end(std::string_view name) {
    if (is_hidden(name)) {
      if (hidden > 0)
        --hidden;
    } else if (is_block(name)) {
      widen_gap(gap_t::line);
    } else if (is_cell(name)) {
      widen_gap(gap_t::space);
    }
  }
};

reader_t& reader_of(void* user) {
  return *static_cast<reader_t*>(user);
}

std::string_view name_of(xmlChar const* name) {
  return name ? std::string_view(reinterpret_cast<char const*>(name)) : std::string_view();
}

void on_start(void* user, xmlChar const* raw_name, xmlChar const** /*attributes*/) {
  reader_t& reader = reader_of(user);
  if (reader.too_deep)
    return;
  std::string_view const name = name_of(raw_name);
  // The parser's own stack of open elements, which it also closes itself.
  if (reader.context->nameNr > static_cast<int>(max_html_depth)) {
    // Taken before stopping, which empties the parser's input.
    long const consumed = xmlByteConsumed(reader.context);
    reader.too_deep = true;
    reader.resume = consumed > 0 ? static_cast<std::size_t>(consumed) : 0;
    reader.deep_name = name;
    xmlStopParser(reader.context);
    return;
  }
  reader.start(name);
}

void on_end(void* user, xmlChar const* raw_name) {
  reader_t& reader = reader_of(user);
  // Once stopped, the parser may still close what it holds open; the flat
  // reader sees those end tags itself where the document has them.
  if (!reader.too_deep)
    reader.end(name_of(raw_name));
}

void on_characters(void* user, xmlChar const* characters, int size) {
  reader_t& reader = reader_of(user);
  if (!reader.too_deep && reader.hidden == 0 && size > 0)
    reader.write(reinterpret_cast<char const*>(characters), static_cast<std::size_t>(size));
}

void ignore_message(void*, char const*, ...) {}
void ignore_error(void*, xmlErrorPtr) {}

htmlSAXHandler const& handler() {
  static htmlSAXHandler const sax = [] {
    htmlSAXHandler h;
    std::memset(&h, 0, sizeof h);
    h.startElement = on_start;
    h.endElement = on_end;
    h.characters = on_characters;
    h.cdataBlock = on_characters;
    h.ignorableWhitespace = on_characters;
    h.warning = ignore_message;
    h.error = ignore_message;
    h.fatalError = ignore_message;
    h.serror = ignore_error;
    h.initialized = XML_SAX2_MAGIC;
    return h;
  }();
  return sax;
}

bool is_name_byte(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
         c == ':' || c == '.';
}

bool is_letter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// A code point the parser accepts from a character reference.
bool is_xml_char(unsigned long c) {
  return c == 0x9 || c == 0xA || c == 0xD || (c >= 0x20 && c <= 0xD7FF) || (c >= 0xE000 && c <= 0xFFFD) ||
         (c >= 0x10000 && c <= 0x10FFFF);
}

void append_utf8(std::string& out, unsigned long code_point) {
  if (code_point < 0x80) {
    out += static_cast<char>(code_point);
  } else if (code_point < 0x800) {
    out += static_cast<char>(0xC0 | (code_point >> 6));
    out += static_cast<char>(0x80 | (code_point & 0x3F));
  } else if (code_point < 0x10000) {
    out += static_cast<char>(0xE0 | (code_point >> 12));
    out += static_cast<char>(0x80 | ((code_point >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (code_point & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (code_point >> 18));
    out += static_cast<char>(0x80 | ((code_point >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((code_point >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (code_point & 0x3F));
  }
}

// The rest of a document whose nesting outgrew the parser's stack, read as a
// flat run of tags and text. Entities are decoded as the parser does: a named
// one only with its ';' and when known, a numeric one with or without it.
// Every byte is looked at a bounded number of times.
class flat_reader_t {
public:
  flat_reader_t(reader_t& reader, char const* first, char const* last) : reader_(reader), p_(first), last_(last) {}

  // The parser stopped inside the start tag of name, past its attributes.
  void run(std::string_view name) {
    finish_start_tag(name);
    while (p_ != last_) {
      if (*p_ == '<')
        tag();
      else
        characters();
    }
  }

private:
  reader_t& reader_;
  char const* p_;
  char const* const last_;
  std::string name_;    // the tag being read, lower case
  std::string decoded_; // an entity's text

  void write(char const* first, char const* last) {
    if (reader_.hidden == 0 && first != last)
      reader_.write(first, static_cast<std::size_t>(last - first));
  }

  void characters() {
    char const* const stop = std::find(p_, last_, '<');
    while (p_ != stop) {
      char const* const amp = std::find(p_, stop, '&');
      write(p_, amp);
      p_ = amp;
      if (amp != stop)
        entity(stop);
    }
  }

  // At '&', in text that ends at stop.
  void entity(char const* stop) {
    char const* const amp = p_++;
    if (p_ != stop && *p_ == '#') {
      // A character reference: its digits, then an optional ';'. One that
      // names no character leaves nothing.
      bool const hex = ++p_ != stop && (*p_ == 'x' || *p_ == 'X');
      if (hex)
        ++p_;
      unsigned long value = 0;
      for (; p_ != stop; ++p_) {
        char const c = static_cast<char>(*p_ | 0x20);
        int const digit = *p_ >= '0' && *p_ <= '9' ? *p_ - '0' : hex && c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
        if (digit < 0)
          break;
        value = std::min(value * (hex ? 16 : 10) + static_cast<unsigned>(digit), 0x110000UL);
      }
      if (p_ != stop && *p_ == ';')
        ++p_;
      if (is_xml_char(value)) {
        decoded_.clear();
        append_utf8(decoded_, value);
        write(decoded_.data(), decoded_.data() + decoded_.size());
      }
      return;
    }
    // A named one counts only with its ';'; an unknown name is kept as
    // written.
    char const* const name = p_;
    p_ = std::find_if_not(p_, stop, [](char c) { return is_letter(c) || (c >= '0' && c <= '9'); });
    if (p_ == name || p_ == stop || *p_ != ';') {
      write(amp, p_);
      return;
    }
    std::string const key(name, p_++);
    if (htmlEntityDesc const* const found = htmlEntityLookup(reinterpret_cast<xmlChar const*>(key.c_str()))) {
      decoded_.clear();
      append_utf8(decoded_, found->value);
      write(decoded_.data(), decoded_.data() + decoded_.size());
    } else {
      write(amp, p_);
    }
  }

  // At '<'.
  void tag() {
    char const* const open = p_++;
    bool const closing = p_ != last_ && *p_ == '/';
    if (closing)
      ++p_;
    if (p_ != last_ && is_letter(*p_)) {
      name_.clear();
      for (; p_ != last_ && is_name_byte(*p_); ++p_)
        name_ += static_cast<char>(*p_ >= 'A' && *p_ <= 'Z' ? *p_ + ('a' - 'A') : *p_);
      if (closing) {
        p_ = std::find(p_, last_, '>');
        if (p_ != last_)
          ++p_;
        reader_.end(name_);
      } else {
        skip_attributes();
        finish_start_tag(name_);
      }
    } else if (closing || (p_ != last_ && (*p_ == '!' || *p_ == '?'))) {
      // An end tag without a name, a declaration or a processing
      // instruction: nothing a reader sees.
      p_ = std::find(p_, last_, '>');
      if (p_ != last_)
        ++p_;
    } else {
      write(open, p_); // a '<' that opens nothing is text
    }
  }

  // Up to the '>' or "/>" that ends a start tag; a quoted value may hold '>'.
  void skip_attributes() {
    while (p_ != last_ && *p_ != '>' && !(*p_ == '/' && p_ + 1 != last_ && p_[1] == '>')) {
      if (*p_ == '=') {
        p_ = std::find_if_not(p_ + 1, last_, [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; });
        if (p_ != last_ && (*p_ == '"' || *p_ == '\'')) {
          p_ = std::find(p_ + 1, last_, *p_);
          if (p_ != last_)
            ++p_;
        }
      } else {
        ++p_;
      }
    }
  }

  // At the '>' or "/>" that ends the start tag of name (or at the end).
  void finish_start_tag(std::string_view name) {
    p_ = std::find(p_, last_, '>');
    bool const self_closing = p_ != last_ && p_[-1] == '/';
    if (p_ != last_)
      ++p_;
    if (self_closing && is_hidden(name))
      return;
    if (is_raw_text(name)) {
      skip_raw_text(name);
      return;
    }
    reader_.start(name);
  }

  // Past the end tag of the raw text element name, its content unread.
  void skip_raw_text(std::string_view name) {
    while (p_ != last_) {
      p_ = std::find(p_, last_, '<');
      if (p_ == last_)
        return;
      char const* q = p_ + 1;
      if (q != last_ && *q == '/' && static_cast<std::size_t>(last_ - q - 1) >= name.size() &&
          std::equal(name.begin(), name.end(), q + 1, [](char a, char b) { return a == (b | 0x20); }) &&
          (q + 1 + name.size() == last_ || !is_name_byte(q[1 + name.size()]))) {
        p_ = std::find(q, last_, '>');
        if (p_ != last_)
          ++p_;
        return;
      }
      p_ = q;
    }
  }
};

} // namespace

namespace {

// How many bytes of a <wbr> tag start at p (any case, "<wbr/>" too), or 0.
// libxml2's HTML 4 tables do not know the element, so it would stay open;
// a long URL in a newsletter can hold hundreds of them.
std::size_t wbr_tag_size(char const* p, char const* last) {
  constexpr std::string_view name = "<wbr";
  if (static_cast<std::size_t>(last - p) < name.size() + 1)
    return 0;
  for (std::size_t i = 1; i < name.size(); ++i)
    if ((p[i] | 0x20) != name[i])
      return 0;
  char const* q = p + name.size();
  while (q != last && (*q == ' ' || *q == '/'))
    ++q;
  return q != last && *q == '>' ? static_cast<std::size_t>(q + 1 - p) : 0;
}

// How many bytes of a bogus comment start at p, or 0. A browser reads "<?",
// a "<!" that opens neither a comment nor a doctype, and a "</" not followed
// by a letter as a comment that runs to the next ">" (or the end), and drops
// "</>" altogether; libxml2 shows them as text. Spam puts them inside words
// ("V<? x >IAGRA") so that filters do not see the word a reader does.
std::size_t bogus_comment_size(char const* p, char const* last) {
  if (last - p < 3)
    return 0;
  char const kind = p[1];
  if (kind == '!') {
    constexpr std::string_view doctype = "doctype";
    bool const is_doctype =
        static_cast<std::size_t>(last - p - 2) >= doctype.size() &&
        std::equal(doctype.begin(), doctype.end(), p + 2, [](char a, char b) { return a == (b | 0x20); });
    if (is_doctype)
      return 0;
  } else if (kind == '/') {
    if (text::is_alpha(p[2]))
      return 0;
  } else if (kind != '?') {
    return 0;
  }
  char const* const close = std::find(p + 2, last, '>');
  return static_cast<std::size_t>((close == last ? last : close + 1) - p);
}

} // namespace

char* remove_comments(char* first, char* last) {
  constexpr std::string_view open = "<!--", close = "-->";
  char* out = first;
  char* p = first;
  while (p != last) {
    char* const start = std::find(p, last, '<');
    out = std::copy(p, start, out);
    if (start == last)
      break;
    if (static_cast<std::size_t>(last - start) >= open.size() && std::equal(open.begin(), open.end(), start)) {
      char* const end = std::search(start + open.size(), last, close.begin(), close.end());
      p = end == last ? last : end + close.size();
    } else if (std::size_t const wbr = wbr_tag_size(start, last)) {
      p = start + wbr;
    } else if (std::size_t const bogus = bogus_comment_size(start, last)) {
      p = start + bogus;
    } else {
      *out++ = *start;
      p = start + 1;
    }
  }
  return out;
}

std::string html_to_text(std::vector<char>& document, quern::error::handler_t* problems) {
  document.resize(
      static_cast<std::size_t>(remove_comments(document.data(), document.data() + document.size()) - document.data()));
  char const* const first = document.data();
  char const* const last = first + document.size();
  static std::once_flag initialised;
  std::call_once(initialised, [] { xmlInitParser(); });
  std::size_t const size = static_cast<std::size_t>(last - first);
  if (size == 0 || size > static_cast<std::size_t>(INT_MAX))
    return {};

  reader_t reader;
  htmlParserCtxtPtr context = htmlCreateMemoryParserCtxt(first, static_cast<int>(size));
  if (!context)
    return {};
  reader.context = context;
  // The handler table is copied into the context so that libxml2 may change
  // its own copy (the options below do).
  std::memcpy(context->sax, &handler(), sizeof(htmlSAXHandler));
  context->userData = &reader;
  htmlCtxtUseOptions(context, HTML_PARSE_RECOVER | HTML_PARSE_NONET | HTML_PARSE_NOERROR | HTML_PARSE_NOWARNING |
                                  HTML_PARSE_COMPACT | HTML_PARSE_NOIMPLIED | HTML_PARSE_IGNORE_ENC);
  xmlSwitchEncoding(context, XML_CHAR_ENCODING_UTF8);
  htmlParseDocument(context);
  if (context->myDoc)
    xmlFreeDoc(context->myDoc);
  htmlFreeParserCtxt(context);

  if (reader.too_deep) {
    flat_reader_t(reader, first + std::min(reader.resume, size), last).run(reader.deep_name);
    if (problems)
      problems->push_back(quern::error::code_t::html_too_deep,
                          {{"description", text::format(quern::error::pattern_of<quern::error::code_t::html_too_deep>,
                                                        max_html_depth)}});
  }
  if (!reader.text.empty())
    reader.text += '\n';
  return std::move(reader.text);
}

} // namespace email
