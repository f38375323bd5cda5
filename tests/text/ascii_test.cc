// SPDX-License-Identifier: MIT
#include "text/ascii.h"

#include <gtest/gtest.h>

#include <cctype>
#include <clocale>

namespace {

// The table answers what the C library answers in the C locale, for all 256
// byte values; the C library is the peer here, asked only in that locale.
TEST(ascii, classes_and_case_agree_with_the_c_locale) {
  ASSERT_NE(std::setlocale(LC_ALL, "C"), nullptr);
  for (int i = 0; i < 256; ++i) {
    char const c = static_cast<char>(i);
    SCOPED_TRACE(i);
    EXPECT_EQ(text::is_blank(c), std::isblank(i) != 0);
    EXPECT_EQ(text::is_space(c), std::isspace(i) != 0);
    EXPECT_EQ(text::is_digit(c), std::isdigit(i) != 0);
    EXPECT_EQ(text::is_alpha(c), std::isalpha(i) != 0);
    EXPECT_EQ(text::is_alnum(c), std::isalnum(i) != 0);
    EXPECT_EQ(text::is_print(c), std::isprint(i) != 0);
    EXPECT_EQ(text::is_control(c), std::iscntrl(i) != 0);
    EXPECT_EQ(static_cast<unsigned char>(text::to_lower(c)), std::tolower(i));
    EXPECT_EQ(static_cast<unsigned char>(text::to_upper(c)), std::toupper(i));
  }
}

} // namespace
