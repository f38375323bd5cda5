// SPDX-License-Identifier: MIT
// Conversion of any labelled byte range to UTF-8.
//
// The charset label of a mail is a hint, not a fact. convert_to_utf8 looks at
// the bytes before it trusts the label:
//  - text labelled with an ASCII name (or nothing) that holds 8-bit bytes is
//    UTF-8 if it is structurally valid UTF-8, else it is in the caller's
//    fallback charset; undeclared text with ESC "$" is ISO-2022-JP when the
//    caller's fallback allows it;
//  - text labelled with some other charset that holds more than a handful of
//    8-bit bytes and is valid UTF-8 was mislabelled and is read as UTF-8 (a few
//    high bytes can form valid UTF-8 by chance, so a small count keeps the
//    label);
//  - a few common non-standard labels are renamed, Japanese charsets go to
//    their own converter, and everything else goes to iconv in strict mode.
//    Where the strict pass stops, the rest is converted again tolerantly (each
//    undecodable byte spelled out as the text <U+XX>); if that replaces more
//    than a tenth of the remainder the label was wrong and the rest is read as
//    ISO-8859-1, which decodes every byte.
// The function never fails; every doubt becomes a problem record when a
// collector is given, and nothing is built when it is not.
//
// Inputs must be contiguous (pointers, string or vector iterators); outputs
// are back-inserting iterators. The work happens in convert.cc on pointers.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "charset/iconv_convert.h"
#include "charset/sink.h"
#include "error/handler.h"

namespace charset {

// The charset names that mean "7-bit ASCII", the empty name (no charset
// declared) included.
class ascii_encodings_t {
public:
  ascii_encodings_t();
  ~ascii_encodings_t();
  bool is_ascii(std::string_view name) const { return names_.find(name) != names_.end(); }

private:
  std::set<std::string, std::less<>> names_;
};

extern ascii_encodings_t const ascii_encodings;

// More 8-bit bytes than this in a text labelled with a legacy charset make
// the label doubtful enough to test the text for UTF-8.
inline constexpr std::uint64_t max_valid_8bit_chars = 10;

using fallback_charset_t = std::function<std::string()>;

// How far a conversion may depart from the rules above. labelled keeps them
// exactly (the desktop reading's text depends on them byte for byte); guess
// lets the full reading read text the way a person's mail program would show
// it where the label is missing, wrong or too narrow:
//  - 8-bit text that is valid UTF-8 is UTF-8 under any label (but UTF-16,
//    UTF-32 and UTF-7), and UTF-8 with a few ill-formed sequences (three
//    well-formed multi-byte characters or more for each) is UTF-8 with a
//    U+FFFD for each of them;
//  - other 8-bit text under no label, an ASCII name or a name iconv does not
//    know is in the charset detect_charset finds (detect.h), or, when the
//    caller's fallback names one other than ISO-8859-1 or ASCII, in that
//    one; when neither says, windows-1252;
//  - ISO-8859-1 is read as windows-1252, as browsers and mail programs do;
//  - where a label's strict conversion fails, a few bad bytes become U+FFFD;
//    more than a tenth make the rest be read as detected (or windows-1252).
// Text that declares its charset correctly takes the labelled path with
// only a check for UTF-8 in front; the detector is not asked about it.
enum class policy_t { labelled, guess };

namespace detail {

void convert_to_utf8(char const* first, char const* last, sink_t out, std::string charset,
                     fallback_charset_t const& fallback_charset, quern::error::handler_t* problems, policy_t policy);

} // namespace detail

// Appends the UTF-8 form of [first, last), read as charset (lower case; empty
// when none was declared), to out. fallback_charset names the charset to
// assume for 8-bit text that is not UTF-8; it may be called several times and
// must be set.
template <typename InputIt, typename OutputIt>
void convert_to_utf8(InputIt first, InputIt last, OutputIt out, std::string charset,
                     fallback_charset_t const& fallback_charset, quern::error::handler_t* problems,
                     policy_t policy = policy_t::labelled) {
  char const* const begin = detail::address(first);
  detail::convert_to_utf8(begin, begin + (last - first), sink_t(out), std::move(charset), fallback_charset, problems,
                          policy);
}

} // namespace charset
