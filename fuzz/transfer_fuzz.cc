// SPDX-License-Identifier: MIT
// Any bytes through one of the three transfer decoders, chosen by the first
// byte. Decoding never yields more bytes than a bound of its input (only
// binary quoted-printable widens, LF to CR LF), and listening must not change
// the result.
#include <iterator>

#include "email/base64.h"
#include "email/quoted_printable.h"
#include "email/uuencode.h"
#include "fuzz/fuzz_support.h"

namespace {

std::string decode(int decoder, bool flag, std::vector<char> const& text, quern::error::handler_t* problems) {
  char const* const first = text.data();
  char const* const last = first + text.size();
  std::string out;
  switch (decoder) {
  case 0:
    email::decode_quoted_printable(first, last, std::back_inserter(out), problems, flag);
    break;
  case 1: {
    std::vector<char> const bytes = email::decode_base_64_data(first, last, flag, problems);
    out.assign(bytes.begin(), bytes.end());
    break;
  }
  default:
    email::decode_uuencoded_text(first, last, std::back_inserter(out));
    break;
  }
  return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  fuzz::input_t input(data, size);
  std::uint8_t const choice = input.take_byte();
  int const decoder = choice % 3;
  bool const flag = choice & 0x80;
  std::vector<char> const text = input.rest();

  std::string const quiet = decode(decoder, flag, text, nullptr);
  quern::error::handler_t problems;
  fuzz::expect_equal("a listening collector changed the decoding", quiet, decode(decoder, flag, text, &problems));
  std::size_t const bound = decoder == 0 && flag ? 2 * text.size() : text.size();
  if (quiet.size() > bound)
    fuzz::fail("decoding grew beyond its input", quiet);
  return 0;
}
