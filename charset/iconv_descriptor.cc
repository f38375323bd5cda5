// SPDX-License-Identifier: MIT
// Per-thread descriptor cache, charset name mapping and the ISO-2022 escape
// tables.
//
// The cache is a short list scanned linearly: a thread converts between few
// charset pairs, almost always to UTF-8. Idle descriptors beyond a small
// number are closed, least recently used first, so a message naming many odd
// charsets cannot make the cache grow. Every descriptor is returned to its
// initial shift state when released, so the next user sees it as freshly
// opened. glibc's byte-order-detecting decoders (UTF-16, UTF-32 and UNICODE
// without an order in the name) remember the order of the first text they
// read, whatever the reset: their descriptors are closed after each use, or
// one message's byte-order mark would decide how the next text reads.
#include "charset/iconv_descriptor.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "error/diagnostics.h"
#include "text/ascii.h"

namespace charset::detail {

struct descriptor_t::slot_t {
  std::string from;
  std::string to;
  iconv_t cd;
  bool busy;
  std::uint64_t last_use;
};

namespace {

constexpr std::size_t max_idle_descriptors = 32;

void close_descriptor(iconv_t cd) {
  if (iconv_close(cd) != 0)
    quern::error::warn("Error: Could not deallocate iconv conversion descriptor.\n");
}

// Lower-case letters and digits only: "ISO_2022-JP" and "iso2022jp" are the
// same name to iconv.
std::string normalized(std::string_view name) {
  std::string result;
  for (char c : name)
    if (text::is_alnum(c))
      result += text::to_lower(c);
  return result;
}

// True for the names whose glibc decoder keeps the byte order it detected
// across a reset.
bool remembers_byte_order(std::string const& name) {
  std::string const key = normalized(name);
  return key == "utf16" || key == "utf32" || key == "unicode" || key == "csunicode";
}

// The name to hand to iconv_open, or false when the name must not reach it.
bool native_name(std::string const& name, std::string& native) {
  // Charset names hold letters, digits and "-_.:" only. A slash would start
  // conversion flags (//IGNORE, //TRANSLIT) that change strictness, and glibc
  // drops blanks and most punctuation before its lookup, which would make
  // "iso-8859-1 " or "utf(8)" known names.
  if (!std::all_of(name.begin(), name.end(), [](char c) {
        return text::is_alnum(c) || std::string_view("-_.:").find(c) != std::string_view::npos;
      }))
    return false;
  // Nothing declared: only 7-bit text is converted under this name, and it
  // must not depend on the process locale.
  if (name.empty()) {
    native = "ANSI_X3.4-1968";
    return true;
  }
#ifndef _LIBICONV_VERSION
  // glibc has no converter of these names; the ones named here cover their
  // character sets (JIS X 0212 in ISO-2022-JP-2, JIS X 0213:2004 in -3).
  std::string const key = normalized(name);
  if (key == "iso2022jp1") {
    native = "ISO-2022-JP-2";
    return true;
  }
  if (key == "iso2022jp4") {
    native = "ISO-2022-JP-3";
    return true;
  }
#endif
  native = name;
  return true;
}

class cache_t {
public:
  cache_t() = default;
  cache_t(cache_t const&) = delete;
  cache_t& operator=(cache_t const&) = delete;
  ~cache_t() {
    for (auto& slot : slots_)
      close_descriptor(slot->cd);
  }

  descriptor_t::slot_t* acquire(std::string const& from, std::string const& to) {
    for (auto& slot : slots_)
      if (!slot->busy && slot->from == from && slot->to == to) {
        slot->busy = true;
        slot->last_use = ++clock_;
        return slot.get();
      }
    std::string native_from, native_to;
    if (!native_name(from, native_from) || !native_name(to, native_to))
      return nullptr;
    iconv_t const cd = iconv_open(native_to.c_str(), native_from.c_str());
    if (cd == reinterpret_cast<iconv_t>(-1))
      return nullptr;
    trim();
    slots_.push_back(std::make_unique<descriptor_t::slot_t>(descriptor_t::slot_t{from, to, cd, true, ++clock_}));
    return slots_.back().get();
  }

  void release(descriptor_t::slot_t* slot) {
    if (remembers_byte_order(slot->from) || remembers_byte_order(slot->to)) {
      close_descriptor(slot->cd);
      slots_.erase(std::find_if(slots_.begin(), slots_.end(), [slot](auto const& s) { return s.get() == slot; }));
      return;
    }
    iconv(slot->cd, nullptr, nullptr, nullptr, nullptr);
    slot->busy = false;
  }

private:
  // Makes room for one more idle descriptor.
  void trim() {
    while (std::count_if(slots_.begin(), slots_.end(), [](auto const& s) { return !s->busy; }) >=
           static_cast<std::ptrdiff_t>(max_idle_descriptors)) {
      auto oldest = slots_.end();
      for (auto it = slots_.begin(); it != slots_.end(); ++it)
        if (!(*it)->busy && (oldest == slots_.end() || (*it)->last_use < (*oldest)->last_use))
          oldest = it;
      close_descriptor((*oldest)->cd);
      slots_.erase(oldest);
    }
  }

  std::vector<std::unique_ptr<descriptor_t::slot_t>> slots_;
  std::uint64_t clock_ = 0;
};

cache_t& cache() {
  thread_local cache_t instance;
  return instance;
}

} // namespace

descriptor_t::~descriptor_t() {
  if (slot_)
    cache().release(slot_);
}

descriptor_t& descriptor_t::operator=(descriptor_t&& other) noexcept {
  if (this != &other) {
    if (slot_)
      cache().release(slot_);
    slot_ = other.slot_;
    other.slot_ = nullptr;
  }
  return *this;
}

iconv_t descriptor_t::get() const {
  return slot_->cd;
}

descriptor_t open_descriptor(std::string const& from, std::string const& to) {
  return descriptor_t(cache().acquire(from, to));
}

char const* defined_escapes(std::string_view charset) {
  std::string const key = normalized(charset);
  if (key == "iso2022jp" || key == "csiso2022jp")
    return "(B (J $@ $B";
  if (key == "iso2022jp1")
    return "(B (J $@ $B $(D";
  if (key == "iso2022jp2" || key == "csiso2022jp2")
    return "(B (J $@ $B $A $(C $(D .A .F N";
  if (key == "iso2022jp3" || key == "iso2022jp4")
    return "(B (J (I $@ $B $(O $(P $(Q";
  if (key == "iso2022kr" || key == "csiso2022kr")
    return "$)C";
  if (key == "iso2022cn" || key == "csiso2022cn")
    return "$)A $)G $*H N";
  if (key == "iso2022cnext")
    return "$)A $)G $*H $)E $+I $+J $+K $+L $+M N O";
  // Some other ISO-2022 flavour: no escape is trusted.
  if (key.find("2022") != std::string::npos)
    return "";
  return nullptr;
}

escape_set_t parse_escapes(char const* escapes) {
  escape_set_t set;
  for (char const* entry = escapes; *entry != '\0' && set.count != set.sizes.size();) {
    std::size_t size = 0;
    for (; entry[size] != '\0' && entry[size] != ' ' && size != set.bytes[0].size(); ++size)
      set.bytes[set.count][size] = entry[size];
    set.sizes[set.count++] = static_cast<unsigned char>(size);
    entry += size;
    if (*entry == ' ')
      ++entry;
  }
  return set;
}

escape_t classify_escape(escape_set_t const& escapes, char const* p, char const* last, std::size_t& length) {
  std::size_t const available = static_cast<std::size_t>(last - p) - 1;
  bool truncated = false;
  for (std::size_t entry = 0; entry != escapes.count; ++entry) {
    if (available != 0 && escapes.bytes[entry][0] != p[1])
      continue; // most entries differ in their first byte
    std::size_t const size = escapes.sizes[entry];
    std::size_t const compared = std::min(size, available);
    std::size_t same = 0;
    while (same != compared && p[1 + same] == escapes.bytes[entry][same])
      ++same;
    if (same == size) {
      length = size + 1;
      return escape_t::defined;
    }
    if (same == compared)
      truncated = true; // the input ends inside this escape
  }
  return truncated ? escape_t::truncated : escape_t::undefined;
}

shift_t shift_of(char const* escape, std::size_t length) {
  std::string_view const sequence(escape + 1, length - 1);
  if (sequence == "N")
    return {false, run_t::single, 1};
  if (sequence.front() == '$')
    return {true, run_t::two_byte, 0};
  if (sequence.front() == '(')
    return {true, sequence == "(I" ? run_t::katakana : run_t::single, 0};
  return {}; // a designation into G2
}

bool has_japanese_runs(std::string_view charset) {
  std::string const key = normalized(charset);
  return key.starts_with("iso2022jp") || key.starts_with("csiso2022jp");
}

namespace {

bool stray_in_euc_kr(unsigned char c) {
  return c >= 0x80 && c <= 0x9F;
}

// 0x8E and 0x8F are EUC-JP's single shifts into its other code sets.
bool stray_in_euc_jp(unsigned char c) {
  return c >= 0x80 && c <= 0x9F && c != 0x8E && c != 0x8F;
}

bool stray_in_big5(unsigned char c) {
  return c == 0x80;
}

} // namespace

stray_byte_t stray_bytes(std::string_view charset) {
  std::string const key = normalized(charset);
  if (key == "euckr" || key == "cseuckr")
    return &stray_in_euc_kr;
  if (key == "eucjp" || key == "cseucpkdfmtjapanese" || key == "ujis")
    return &stray_in_euc_jp;
  if (key == "big5" || key == "bigfive" || key == "cnbig5" || key == "csbig5")
    return &stray_in_big5;
  return nullptr;
}

bool is_utf8_name(std::string_view charset) {
  return normalized(charset) == "utf8";
}

} // namespace charset::detail
