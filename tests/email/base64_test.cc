// SPDX-License-Identifier: MIT
#include "email/base64.h"
#include "email/uuencode.h"

#include <optional>

#include "error/diagnostics.h"

#include <random>

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

// The counted size of a plain base64 body is the decoded one, on bodies
// made of the bytes that decide it (letters, padding, line ends, blanks, a
// CR, a stray '-'); bodies it does not count are left to the decoder.
TEST(base64, plain_size_is_the_decoded_size) {
  std::mt19937 random(25);
  char const bytes[] = "QUJDRA+/\n\n\n==  \r-";
  std::size_t counted = 0;
  auto const check = [&](std::string const& body) {
    std::vector<char> decoded;
    email::decode_base_64_append(body.data(), body.data() + body.size(), true, decoded, nullptr, true);
    if (auto const size = email::plain_base64_size(body.data(), body.data() + body.size())) {
      ++counted;
      EXPECT_EQ(*size, decoded.size()) << body;
    }
  };
  for (std::string const body : {"", "\n\n", "QUJD", "QUJDRA==", "QUJD\nRA==\n\n", "QU\nJD\n\nRA", "QUJD=", "=QUJD",
                                 "QUJD\n=\n", "QUJD==QUJD", "QUJD\r\n", "QUJD RA=="})
    check(body);
  for (int i = 0; i < 200'000; ++i) {
    std::string body(random() % 24, ' ');
    for (char& c : body)
      c = bytes[random() % 8 == 0 ? 8 + random() % 9 : random() % 8];
    check(body);
  }
  EXPECT_GT(counted, 20'000u); // the counted shapes were met, not only the others
}

} // namespace
