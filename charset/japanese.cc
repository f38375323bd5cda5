// SPDX-License-Identifier: MIT
// The Japanese converter: strict passes, escape upgrades and line retries.
//
// Output made by a strict pass is held back in a pending buffer until it is
// known to be good, because a failure further on may send the lines it came
// from to the tolerant retry, and the retry must not repeat them. When the
// strict pass stops at an escape sequence of a wider ISO-2022-JP variant, the
// text from there is converted with that variant (for that stretch only) and
// the pending output is committed. Any other stop sends the line it happened
// in, together with the uncommitted lines before it, through the tolerant
// conversion straight into the output; strict conversion then resumes on the
// next line. Every step moves past at least one line, so the work is linear
// in the input however many lines fail.
#include "charset/japanese.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string_view>

#include "charset/surrogates.h"
#include "text/ascii.h"
#include "text/format.h"

namespace charset::detail {

namespace {

struct escape_row_t {
  std::string_view sequence;
  char const* charset;
};

// Escape sequences that only a wider variant defines, and that variant.
constexpr escape_row_t wider_variants[] = {
    {"\x1B$(D", "iso-2022-jp-1"}, // JIS X 0212
    {"\x1B$A", "iso-2022-jp-2"},  // GB 2312
    {"\x1B$(C", "iso-2022-jp-2"}, // KS C 5601
    {"\x1B.A", "iso-2022-jp-2"},  // ISO 8859-1 upper half
    {"\x1B.F", "iso-2022-jp-2"},  // ISO 8859-7 upper half
    {"\x1B(I", "iso-2022-jp-3"},  // half-width katakana
    {"\x1B$(O", "iso-2022-jp-3"}, // JIS X 0213 plane 1
    {"\x1B$(P", "iso-2022-jp-3"}, // JIS X 0213 plane 2
    {"\x1B$(Q", "iso-2022-jp-4"}, // JIS X 0213:2004 plane 1
};

escape_row_t const* wider_variant_at(char const* p, char const* last) {
  for (auto const& row : wider_variants)
    if (static_cast<std::size_t>(last - p) >= row.sequence.size() &&
        std::memcmp(p, row.sequence.data(), row.sequence.size()) == 0)
      return &row;
  return nullptr;
}

} // namespace

void japanese_convert(char const* first, char const* last, sink_t out, std::string charset,
                      quern::error::handler_t* problems) {
  // Without a single escape the text cannot be ISO-2022-JP; EUC-JP is what
  // such mail usually is (and 7-bit text converts unchanged either way).
  if (charset != "shift_jis" && std::find(first, last, '\x1B') == last)
    charset = "euc-jp";

  std::string pending;
  auto pending_out = std::back_inserter(pending);
  sink_t const to_pending(pending_out);
  auto const commit = [&] {
    out(pending.data(), pending.data() + pending.size());
    pending.clear();
  };

  char const* segment = first;
  char const* p = detail::convert(first, last, to_pending, charset, "UTF-8", nullptr, problems);
  while (p != last) {
    if (*p == '\x1B') {
      if (escape_row_t const* row = wider_variant_at(p, last)) {
        if (problems) {
          std::string context;
          auto const [from, to] = text::bytes_around(first, last, p, 20);
          hex_print(from, to, std::back_inserter(context));
          using quern::error::code_t;
          problems->push_back(code_t::charset_wider_variant,
                              {{"description", text::format(quern::error::pattern_of<code_t::charset_wider_variant>,
                                                            text::to_upper_copy(row->charset).c_str(),
                                                            text::to_upper_copy(charset).c_str())},
                               {"context", context}});
        }
        p = detail::convert(p, last, to_pending, row->charset, "UTF-8", nullptr, problems);
        commit();
        segment = p;
      }
    }
    char const* const line_feed = std::find(p, last, '\n');
    char const* const line_end = line_feed == last ? last : line_feed + 1;
    if (p != line_end) {
      pending.clear();
      std::uint64_t errors = 0;
      detail::convert(segment, line_end, out, charset, "UTF-8", &errors, problems);
    }
    segment = line_end;
    if (line_end == last)
      break;
    p = detail::convert(line_end, last, to_pending, charset, "UTF-8", nullptr, problems);
  }
  commit();
}

} // namespace charset::detail
