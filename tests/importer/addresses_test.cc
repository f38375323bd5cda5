#include "importer/addresses.h"

#include <gtest/gtest.h>

#include "importer/import.h"
#include "tests/support/temp_file.h"

namespace {

using list = std::vector<std::string>;
namespace attribute = importer::attribute;

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
    list names{"kept"}, emails{"kept"};
    importer::parse_addresses(c.value, names, emails);
    names.erase(names.begin());
    emails.erase(emails.begin());
    EXPECT_EQ(names, c.names) << c.value;
    EXPECT_EQ(emails, c.emails) << c.value;
  }
}

list list_of(importer::attribute_set_t const& attributes, std::string_view name) {
  auto const* value = attributes.find(name);
  auto const* elements = value ? std::get_if<list>(value) : nullptr;
  return elements ? *elements : list{"<absent>"};
}

TEST(parse_addresses, recipients_accumulate_in_header_order) {
  test_support::temp_file_t const file("From: Ann <ann@x>\n"
                                       "Bcc: bob@y\n"
                                       "To: Bob <bob@y>\n"
                                       "Cc: carol@z (Carol)\n"
                                       "\nbody\n");
  importer::attribute_set_t attributes;
  importer::import_file(file.path(), attributes);
  EXPECT_EQ(list_of(attributes, attribute::authors), list{"Ann"});
  EXPECT_EQ(list_of(attributes, attribute::author_email_addresses), list{"ann@x"});
  EXPECT_EQ(list_of(attributes, attribute::recipients), (list{"Bob", "Carol"}));
  EXPECT_EQ(list_of(attributes, attribute::recipient_email_addresses), (list{"bob@y", "carol@z", "bob@y"}));
}

TEST(parse_addresses, an_empty_from_makes_no_author_lists) {
  test_support::temp_file_t const file("From: \nTo: ann@x\n\nbody\n");
  importer::attribute_set_t attributes;
  importer::import_file(file.path(), attributes);
  EXPECT_EQ(attributes.find(attribute::authors), nullptr);
  EXPECT_EQ(attributes.find(attribute::author_email_addresses), nullptr);
  EXPECT_EQ(list_of(attributes, attribute::recipient_email_addresses), list{"ann@x"});
  EXPECT_EQ(attributes.find(attribute::recipients), nullptr);
}

} // namespace
