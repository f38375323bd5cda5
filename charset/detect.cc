// SPDX-License-Identifier: MIT
// detect_charset over uchardet, with its answer mapped to the names
// convert_to_utf8 reads and filtered to the charsets that scored well on
// texts of known charset (tests/charset/detect_test.cc measures them, and
// bench/detect_compare.cc against ICU's detector, which did worse on short
// texts: none of the CJK texts of 20 bytes, against all of them).
#include "charset/detect.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <utility>

#include <uchardet/uchardet.h>

#include "charset/iconv_convert.h"
#include "text/ascii.h"

#include <boost/locale/utf.hpp>

namespace charset {
namespace {

using namespace std::string_view_literals;

// The detector's name (lower case) and the name the conversion reads it by.
// Left out: the code pages and ISO 8859 parts uchardet answers for short
// Latin text it is unsure of (IBM852, ISO-8859-4, ISO-8859-10 on the
// accuracy test's Czech and Polish), and the Cyrillic ones (ISO-8859-5,
// IBM866, Mac) that mail hardly uses; windows-1252 reads such text better.
constexpr std::array<std::pair<std::string_view, std::string_view>, 21> trusted{{
    {"windows-1252", "windows-1252"},
    {"iso-8859-1", "windows-1252"},
    {"iso-8859-15", "iso-8859-15"},
    {"iso-8859-2", "iso-8859-2"},
    {"windows-1250", "windows-1250"},
    {"windows-1251", "windows-1251"},
    {"koi8-r", "koi8-r"},
    {"shift_jis", "shift_jis"},
    {"euc-jp", "euc-jp"},
    {"iso-2022-jp", "iso-2022-jp"},
    {"gb18030", "gb18030"},
    {"gb2312", "gb18030"},
    {"big5", "big5"},
    {"euc-kr", "euc-kr"},
    {"uhc", "cp949"},
    {"iso-8859-7", "iso-8859-7"},
    {"windows-1253", "windows-1253"},
    {"iso-8859-9", "iso-8859-9"},
    {"windows-1254", "windows-1254"},
    {"iso-8859-8", "iso-8859-8"},
    {"windows-1255", "windows-1255"},
}};

std::string trusted_name(std::string name) {
  name = text::to_lower_copy(name);
  for (auto const& [detected, read_as] : trusted)
    if (name == detected)
      return std::string(read_as);
  return {};
}

constexpr std::size_t max_detected = 256 * 1024;

std::string detected_name(char const* first, char const* last) {
  uchardet_t const detector = uchardet_new();
  if (!detector)
    return {};
  uchardet_handle_data(detector, first, static_cast<std::size_t>(last - first));
  uchardet_data_end(detector);
  std::string name = trusted_name(uchardet_get_charset(detector));
  uchardet_delete(detector);
  return name;
}

// Short texts: a detector has seen too few bytes to tell the 8-bit
// alphabets apart, and KOI8-R, windows-1251 and ISO-8859-7 put the two cases
// of their letters at each other's places. Read in the wrong one of them, a
// word changes case or script in its middle ("фХСТ", "τΕΣΤ" for "Тест"),
// which real words almost never do; the reading with the fewest such breaks
// wins, the detector's own answer on a tie.
constexpr std::ptrdiff_t short_text = 24; // 8-bit bytes

enum class script_t { none, latin, greek, cyrillic };
struct letter_t {
  script_t script = script_t::none;
  bool lower = false;
};

letter_t letter_of(char32_t c) {
  if ((c >= 'a' && c <= 'z') || (c >= 0xDF && c <= 0xFF && c != 0xF7))
    return {script_t::latin, true};
  if ((c >= 'A' && c <= 'Z') || (c >= 0xC0 && c <= 0xDE && c != 0xD7))
    return {script_t::latin, false};
  if (c >= 0x100 && c <= 0x17F)
    return {script_t::latin, (c & 1) == (c >= 0x139 && c <= 0x148 ? 0u : 1u)};
  if (c >= 0x386 && c <= 0x3AB)
    return {script_t::greek, false};
  if (c >= 0x3AC && c <= 0x3CE)
    return {script_t::greek, true};
  if (c >= 0x400 && c <= 0x42F)
    return {script_t::cyrillic, false};
  if (c >= 0x430 && c <= 0x45F)
    return {script_t::cyrillic, true};
  return {};
}

// The breaks inside words of [first, last) read as charset; -1 when it
// cannot be read so.
long breaks_in(char const* first, char const* last, std::string const& charset) {
  std::string utf8;
  auto out = std::back_inserter(utf8);
  if (detail::convert(first, last, sink_t(out), charset, "UTF-8", nullptr, nullptr) != last)
    return -1;
  using traits = boost::locale::utf::utf_traits<char>;
  long breaks = 0;
  letter_t before;
  for (char const *p = utf8.data(), *end = p + utf8.size(); p != end;) {
    auto const c = traits::decode(p, end);
    letter_t const now =
        c == boost::locale::utf::illegal || c == boost::locale::utf::incomplete ? letter_t() : letter_of(c);
    if (before.script != script_t::none && now.script != script_t::none &&
        (now.script != before.script || (before.lower && !now.lower)))
      ++breaks;
    before = now;
  }
  return breaks;
}

std::string fewest_breaks(char const* first, char const* last, std::string detected) {
  static constexpr std::string_view alphabets[] = {"windows-1252", "koi8-r", "windows-1251", "iso-8859-7"};
  bool const single_byte =
      detected.empty() || std::find(std::begin(alphabets), std::end(alphabets), detected) != std::end(alphabets);
  if (!single_byte)
    return detected;
  std::string best = detected.empty() ? std::string("windows-1252") : detected;
  long fewest = breaks_in(first, last, best);
  for (std::string_view const alphabet : alphabets) {
    long const breaks = breaks_in(first, last, std::string(alphabet));
    if (breaks >= 0 && (fewest < 0 || breaks < fewest)) {
      fewest = breaks;
      best = alphabet;
    }
  }
  return best == "windows-1252"sv && detected.empty() ? std::string() : best;
}

} // namespace

std::string detect_charset(char const* first, char const* last) {
  if (first == last)
    return {};
  // The start of a long text tells as much as all of it.
  last = first + std::min(static_cast<std::size_t>(last - first), max_detected);
  std::string detected = detected_name(first, last);
  if (std::count_if(first, last, [](char c) { return static_cast<unsigned char>(c) >= 0x80; }) <= short_text)
    detected = fewest_breaks(first, last, std::move(detected));
  return detected;
}

} // namespace charset
