#include "importer/addresses.h"

#include <gtest/gtest.h>

namespace {

using list = std::vector<std::string>;

// One mailbox per value: a second address is not split off but read as the
// display name of the last. (Appending to what the lists hold is checked
// where To, Cc and Bcc accumulate, in the import test.)
TEST(parse_addresses, reads_one_mailbox_per_value) {
  struct {
    std::string value;
    list names, emails;
  } const cases[] = {
      {"", {}, {}},
      {"Ann Smith <ann@x>", {"Ann Smith"}, {"ann@x"}},
      {"ann@x", {}, {"ann@x"}},
      {"\"Smith, Ann\" <ann@x>", {"Smith, Ann"}, {"ann@x"}},
      {"ann@x, bob@y", {"ann@x,"}, {"bob@y"}},
      {"Team:;", {"Team"}, {}},
  };
  for (auto const& c : cases) {
    list names, emails;
    importer::parse_addresses(c.value, names, emails);
    EXPECT_EQ(names, c.names) << c.value;
    EXPECT_EQ(emails, c.emails) << c.value;
  }
}

} // namespace
