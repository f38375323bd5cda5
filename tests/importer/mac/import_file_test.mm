// The Foundation adapter on its own: the content-type gate, the rows over a
// header map (replacement, removal, the no-text marker, dates) and the
// recipient accumulator, checked on the objects it stores.
#include <cstdlib>
#include <ctime>
#include <string>

#include <gtest/gtest.h>

#include "email/body.h"
#include "importer/import.h"
#include "importer/mac/attribute_keys.h"
#include "importer/mac/import_file.h"
#include "importer/mac/metadata_importer.h"
#include "tests/support/temp_file.h"

namespace {

class mac_import : public testing::Test {
protected:
  void SetUp() override {
    pool_ = [[NSAutoreleasePool alloc] init];
    attributes_ = [[NSMutableDictionary alloc] init];
  }
  void TearDown() override {
    [attributes_ release];
    [pool_ drain];
  }
  NSString* string_at(NSString* key) const {
    id value = [attributes_ objectForKey:key];
    return [value isKindOfClass:[NSString class]] ? value : nil;
  }
  static std::string utf8(NSString* text) { return text ? std::string([text UTF8String]) : "<nil>"; }

  NSAutoreleasePool* pool_ = nil;
  NSMutableDictionary* attributes_ = nil;
};

NSString* ns(std::string const& text) {
  return [NSString stringWithUTF8String:text.c_str()];
}

TEST_F(mac_import, only_the_exact_mail_type_is_imported) {
  test_support::temp_file_t const message("Subject: Hello\n\nBody\n");
  struct {
    char const* type;
    bool imported;
  } const cases[] = {
      {"com.apple.mail.email", true},  {"com.apple.mail.emlx", false},   {"public.email-message", false},
      {"COM.APPLE.MAIL.EMAIL", false}, {"com.apple.mail.email ", false}, {"", false},
  };
  for (auto const& c : cases) {
    [attributes_ removeAllObjects];
    [attributes_ setObject:@"kept" forKey:@"sentinel"];
    Boolean const result = GetMetadataForFile(nullptr, (CFMutableDictionaryRef)attributes_, (CFStringRef)ns(c.type),
                                              (CFStringRef)ns(message.path()));
    EXPECT_EQ(result != 0, c.imported) << c.type;
    EXPECT_EQ([attributes_ count], c.imported ? 3u + 1u : 1u) << c.type;
  }
}

TEST_F(mac_import, subject_is_also_the_display_name_and_the_body_is_the_text) {
  test_support::temp_file_t const message("Subject: Quarterly =?utf-8?q?caf=C3=A9?=\n\nSee you there.\n");
  ASSERT_TRUE(ImportFileAtPath(ns(message.path()), attributes_, nullptr));
  auto const headers = importer::parse_email(message.path(), importer::wanted_headers());
  EXPECT_EQ(utf8(string_at((NSString*)kMDItemSubject)), headers.at("subject"));
  EXPECT_EQ(utf8(string_at((NSString*)kMDItemDisplayName)), headers.at("subject"));
  EXPECT_EQ(utf8(string_at((NSString*)kMDItemTextContent)), headers.at("#text"));
}

TEST_F(mac_import, an_empty_or_missing_file_stores_nothing) {
  test_support::temp_file_t const empty("");
  testing::internal::CaptureStderr();
  EXPECT_TRUE(GetMetadataForFile(nullptr, (CFMutableDictionaryRef)attributes_, (CFStringRef) @"com.apple.mail.email",
                                 (CFStringRef)ns(empty.path())));
  EXPECT_TRUE(GetMetadataForFile(nullptr, (CFMutableDictionaryRef)attributes_, (CFStringRef) @"com.apple.mail.email",
                                 (CFStringRef) @"/nonexistent/tidewell/message.eml"));
  testing::internal::GetCapturedStderr();
  EXPECT_EQ([attributes_ count], 0u);
}

TEST_F(mac_import, single_values_replace_remove_or_skip) {
  // Ill-formed UTF-8 makes no string, and storing no string removes the
  // earlier value; the no-text marker leaves the earlier value alone.
  [attributes_ setObject:@"old subject" forKey:(NSString*)kMDItemSubject];
  [attributes_ setObject:@"old text" forKey:(NSString*)kMDItemTextContent];
  importer::mac::store_attributes({{"subject", "bad \xC0\xAF bytes"}, {"#text", std::string(email::no_text_marker)}},
                                  attributes_);
  EXPECT_EQ([attributes_ objectForKey:(NSString*)kMDItemSubject], nil);
  EXPECT_EQ(utf8(string_at((NSString*)kMDItemTextContent)), "old text");

  importer::mac::store_attributes({{"subject", std::string("a\0b", 3)}, {"#text", ""}}, attributes_);
  EXPECT_EQ([string_at((NSString*)kMDItemSubject) length], 3u);
  EXPECT_EQ(utf8(string_at((NSString*)kMDItemTextContent)), "");
}

TEST_F(mac_import, byte_order_marks_are_kept_as_characters) {
  // Foundation drops leading marks when it decodes UTF-8; the core does not.
  for (std::string const value : {"\xEF\xBB\xBFHi", "\xEF\xBB\xBF\xEF\xBB\xBFHi", "H\xEF\xBB\xBFi"}) {
    NSString* text = importer::mac::make_string(value);
    ASSERT_NE(text, nil);
    NSData* bytes = [text dataUsingEncoding:NSUTF8StringEncoding];
    EXPECT_EQ(std::string(static_cast<char const*>([bytes bytes]), [bytes length]), value);
    [text release];
  }
}

TEST_F(mac_import, dates_are_read_as_utc_exactly_when_the_core_reads_them) {
  // Whatever the process's zone, canonical text is UTC. Each test runs in a
  // process of its own, so the zone is set before Foundation first reads it.
  setenv("TZ", "Asia/Tokyo", 1);
  tzset();
  char const* const texts[] = {
      "2003-07-01 08:52:37",  "1970-01-01 00:00:00",
      "2024-02-29 23:59:59",  "1900-03-01 12:00:00",
      "2023-02-29 00:00:00",  " 999-01-01 00:00:00",
      "2024-01-01 00:00:00x", "2024-1-1 0:0:0",
      "2024-01-01 24:00:00",  "",
      "2024-01-01T00:00:00",  "2024-01-01 00:00:00 +0200",
  };
  for (std::string const text : texts) {
    [attributes_ removeAllObjects];
    importer::mac::store_attributes({{"date", text}, {"received", text}}, attributes_);
    auto const expected = importer::parse_canonical_date(text);
    for (NSString* key : {(NSString*)kMDItemContentCreationDate, importer::mac::date_received_key()}) {
      id value = [attributes_ objectForKey:key];
      if (!expected) {
        EXPECT_EQ(value, nil) << text;
        continue;
      }
      ASSERT_TRUE([value isKindOfClass:[NSDate class]]) << text;
      EXPECT_EQ([value timeIntervalSince1970], double(expected->time_since_epoch().count())) << text;
    }
  }
  EXPECT_EQ(importer::parse_canonical_date(texts[0])->time_since_epoch().count(), 1057049557);
}

TEST_F(mac_import, recipients_collect_per_key_object_in_row_order) {
  {
    importer::mac::accumulator_t accumulator;
    NSString* recipients = (NSString*)kMDItemRecipientEmailAddresses;
    accumulator.append(recipients, "to@example.com");
    accumulator.append(recipients, "bad\xFF@example.com");
    accumulator.append(recipients, "cc@example.com");
    accumulator.append(recipients, "to@example.com");
    accumulator.append((NSString*)kMDItemAuthors, "\xFF");
    accumulator.store(attributes_);
  }
  EXPECT_EQ([attributes_ count], 1u) << "an author list with no element is not created";
  NSArray* list = [attributes_ objectForKey:(NSString*)kMDItemRecipientEmailAddresses];
  ASSERT_TRUE([list isKindOfClass:[NSArray class]]);
  ASSERT_EQ([list count], 3u);
  EXPECT_EQ(utf8([list objectAtIndex:0]), "to@example.com");
  EXPECT_EQ(utf8([list objectAtIndex:1]), "cc@example.com");
  EXPECT_EQ(utf8([list objectAtIndex:2]), "to@example.com");
}

} // namespace
