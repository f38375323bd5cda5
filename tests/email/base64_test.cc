// SPDX-License-Identifier: MIT
#include "email/base64.h"
#include "email/uuencode.h"

#include <optional>

#include "error/diagnostics.h"

#include <gtest/gtest.h>

#include "support.h"

namespace {

// The line and free modes are compared with a slow reference in
// reference_decoders_test.cc; here, what it does not reach.
TEST(decode_base_64_data, a_megabyte_of_padding_passes_through) {
  std::string const input(1 << 20, '=');
  auto const bytes = email::decode_base_64_data(input.data(), input.data() + input.size(), true, nullptr);
  EXPECT_EQ(std::string(bytes.begin(), bytes.end()), input);
}

TEST(decode_uuencoded_text, decodes_or_gives_up) {
  std::tuple<std::string, std::string, bool> const cases[] = {
      // input, expected, whether the decoder gives up
      {"begin 644 f\n\nx\n#0V%T\n`\nend\n", "Cat", false}, // empty and one-byte lines carry nothing
      {"#0V%T``\n", std::string("Cat\0", 4), false},       // the length character is not trusted
      {"#0V%Tx\n", "Cat", false},                          // one bad byte per four good ones is tolerated
      {"#0V%x\nend\ntrailer\n", "end\ntrailer\n", true},   // giving up keeps only what follows "end"
      {"M0V%T0V%T\nend \n", "CatCat", false},              // "end " is data, not the end line
  };
  // The warning line is the desktop host's alone: nobody else's standard
  // error gets it.
  for (bool const desktop : {false, true})
    for (auto const& [input, expected, gives_up] : cases) {
      test::exact_buffer_t const buffer(input);
      std::string out;
      std::optional<quern::error::desktop_scope_t> scope;
      if (desktop)
        scope.emplace();
      testing::internal::CaptureStderr();
      email::decode_uuencoded_text(buffer.begin(), buffer.end(), std::back_inserter(out));
      std::string const warning =
          gives_up && desktop ? "Warning: Giving up on decoding uunencoded text. Too many errors.\n" : "";
      EXPECT_EQ(testing::internal::GetCapturedStderr(), warning) << input;
      EXPECT_EQ(out, expected) << input;
    }
}

} // namespace
