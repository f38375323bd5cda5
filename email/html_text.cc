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

struct reader_t {
  xmlParserCtxtPtr context = nullptr;
  std::string text;
  std::size_t hidden = 0; // open elements whose content is dropped
  enum class gap_t { none, space, line } gap = gap_t::none;

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
};

reader_t& reader_of(void* user) {
  return *static_cast<reader_t*>(user);
}

std::string_view name_of(xmlChar const* name) {
  return name ? std::string_view(reinterpret_cast<char const*>(name)) : std::string_view();
}

void on_start(void* user, xmlChar const* raw_name, xmlChar const** /*attributes*/) {
  reader_t& reader = reader_of(user);
  // The parser's own stack of open elements, which it also closes itself.
  if (reader.context->nameNr > static_cast<int>(max_html_depth)) {
    xmlStopParser(reader.context);
    return;
  }
  std::string_view const name = name_of(raw_name);
  if (is_hidden(name))
    ++reader.hidden;
  else if (is_block(name))
    reader.widen_gap(reader_t::gap_t::line);
  else if (is_cell(name))
    reader.widen_gap(reader_t::gap_t::space);
}

void on_end(void* user, xmlChar const* raw_name) {
  reader_t& reader = reader_of(user);
  std::string_view const name = name_of(raw_name);
  if (is_hidden(name)) {
    if (reader.hidden > 0)
      --reader.hidden;
  } else if (is_block(name)) {
    reader.widen_gap(reader_t::gap_t::line);
  } else if (is_cell(name)) {
    reader.widen_gap(reader_t::gap_t::space);
  }
}

void on_characters(void* user, xmlChar const* characters, int size) {
  reader_t& reader = reader_of(user);
  if (reader.hidden == 0 && size > 0)
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
    } else {
      *out++ = *start;
      p = start + 1;
    }
  }
  return out;
}

std::string html_to_text(std::vector<char>& document) {
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

  if (!reader.text.empty())
    reader.text += '\n';
  return std::move(reader.text);
}

} // namespace email
