// SPDX-License-Identifier: MIT
// The desktop-search plug-in driven as the search service drives it: through
// the factory and function table, registrations counted by the CoreFoundation
// stand-in; the dictionary GetMetadataForFile writes must equal the core's
// attribute set (names, values, kinds) for odd files, the samples and the
// corpus, under a default zone far from UTC so that local time shows.
#include <algorithm>
#include <cmath>
#include <cstring>

#include <gtest/gtest.h>

#import <Foundation/Foundation.h>

#include <CoreServices/CoreServices.h>

#include "hosts/cli/output.h"
#include "hosts/mac/import_file.h"
#include "hosts/mac/metadata_importer.h"
#include "hosts/mac/plugin.h"
#include "importer/import.h"
#include "tests/support/messages.h"
#include "tests/support/temp_file.h"

namespace {

constexpr char const* importer_type = "8B08C4BF-415B-11D8-B3F9-0003936726FC";

CFUUIDBytes bytes_of(char const* text) {
  CFUUIDRef uuid = CFUUIDCreateFromString(kCFAllocatorDefault, (CFStringRef)text);
  CFUUIDBytes const bytes = CFUUIDGetUUIDBytes(uuid);
  CFRelease(uuid);
  return bytes;
}

TEST(mac_plugin, an_instance_lives_from_factory_to_last_release) {
  void* instance = nullptr;
  for (char const* type : {"8B08C4BF-415B-11D8-B3F9-0003936726FD", importer_type}) {
    CFUUIDRef uuid = CFUUIDCreateFromString(kCFAllocatorDefault, (CFStringRef)type);
    instance = MetadataImporterPluginFactory(kCFAllocatorDefault, uuid);
    CFRelease(uuid);
    ASSERT_EQ(instance != nullptr, type == importer_type) << type;
  }
  EXPECT_EQ(standin_registrations, 1);
  CFUUIDBytes const ours = bytes_of(TIDEWELL_IMPORTER_FACTORY_UUID);
  EXPECT_EQ(std::memcmp(&ours, &standin_last_factory, sizeof ours), 0) << "registered under the bundle's factory";
  MDImporterInterfaceStruct const* table = *static_cast<MDImporterInterfaceStruct**>(instance);
  EXPECT_EQ(table->ImporterImportData, &GetMetadataForFile);

  // The importer interface and IUnknown are the same object and count one
  // reference each; any other interface is refused and counts none.
  for (char const* iid :
       {"6EBC27C4-899C-11D8-84AE-0003936726FC", "00000000-0000-0000-C000-000000000046", importer_type}) {
    bool const known = iid != importer_type;
    LPVOID granted = &granted;
    EXPECT_EQ(table->QueryInterface(instance, bytes_of(iid), &granted), known ? S_OK : E_NOINTERFACE) << iid;
    EXPECT_EQ(granted, known ? instance : nullptr) << iid;
  }
  EXPECT_EQ(table->AddRef(instance), 4u);
  for (ULONG left : {3u, 2u, 1u, 0u}) {
    EXPECT_EQ(standin_registrations, 1);
    EXPECT_EQ(table->Release(instance), left);
  }
  EXPECT_EQ(standin_registrations, 0);
}

std::string utf8(NSString* text) {
  NSData* bytes = [text dataUsingEncoding:NSUTF8StringEncoding];
  return std::string(static_cast<char const*>([bytes bytes]), [bytes length]);
}

// A value in the core's terms: a value of another kind becomes a string
// naming its class, and a list element that is no string throws.
importer::attribute_value_t value_of(id value) {
  if ([value isKindOfClass:[NSDate class]])
    return importer::instant_t(std::chrono::seconds(std::llround([value timeIntervalSince1970])));
  if (![value isKindOfClass:[NSArray class]])
    return [value isKindOfClass:[NSString class]] ? utf8(value) : "<" + utf8([[value class] description]) + ">";
  std::vector<std::string> list;
  for (NSUInteger i = 0; i < [value count]; ++i)
    list.push_back(std::get<std::string>(value_of([value objectAtIndex:i])));
  return list;
}

// Imports the file both ways; fails with both records when they differ.
void expect_same_both_ways(std::string const& path, char const* type = "com.apple.mail.email") {
  NSAutoreleasePool* pool = [[NSAutoreleasePool alloc] init];
  [NSTimeZone setDefaultTimeZone:[NSTimeZone timeZoneWithName:@"Asia/Tokyo"]];
  cli::record_t core{path, false, {}}, plugin{path, false, {}};
  core.imported = importer::get_metadata_for_file(core.attributes, type, path);
  NSMutableDictionary* attributes = [NSMutableDictionary dictionary];
  plugin.imported =
      GetMetadataForFile(nullptr, (CFMutableDictionaryRef)attributes, (CFStringRef)[NSString stringWithUTF8String:type],
                         (CFStringRef)[NSString stringWithUTF8String:path.c_str()]);
  NSArray* keys = [attributes allKeys];
  for (NSUInteger i = 0; i < [keys count]; ++i)
    plugin.attributes.set(utf8([keys objectAtIndex:i]), value_of([attributes objectForKey:[keys objectAtIndex:i]]));
  [pool drain];
  EXPECT_TRUE(core.imported == plugin.imported && std::equal(core.attributes.begin(), core.attributes.end(),
                                                             plugin.attributes.begin(), plugin.attributes.end()))
      << type << "\ncore:   " << cli::to_json_line(core) << "plugin: " << cli::to_json_line(plugin);
}

TEST(mac_same_as_core, content_types_made_sample_and_corpus_messages) {
  test_support::temp_file_t const empty(""),
      made("Received: by b; Thu, 29 Feb 2024 23:59:59 -0800\nSubject: \xEF\xBB\xBF\xEF\xBB\xBFHi\xEF\xBB\xBF\n"
           "From: Ann <ann@x>\nBcc: bob@y\nTo: Bob <bob@y>\nCc: carol@z, =?utf-8?q?=ED=B0=80?= <dan@z>\n"
           "Date: 1 Jan 999 00:00:00 +0000\n\n\xEF\xBB\xBFHello\n");
  for (char const* type :
       {"com.apple.mail.emlx", "public.email-message", "COM.APPLE.MAIL.EMAIL", "com.apple.mail.email ", ""})
    expect_same_both_ways(made.path(), type);
  std::vector<std::string> paths{"/nonexistent/tidewell/message.eml", TIDEWELL_SOURCE_DIR, empty.path(), made.path()};
  for (auto const& path : test_support::message_paths())
    paths.push_back(path);
  testing::internal::CaptureStderr();
  for (std::size_t i = 0; i < paths.size() && !HasFailure(); ++i)
    expect_same_both_ways(paths[i]);
  testing::internal::GetCapturedStderr();
}

// The rows over header maps no message yields, into attributes that already
// hold a subject, a text and a creation date: the dictionary ends as the
// core's set does, with the same values replaced, removed and kept. The
// dates are ones the platform's lenient formatter would read.
TEST(mac_same_as_core, rows_over_made_header_maps) {
  std::vector<email::header_map_t> const maps{
      {{"subject", "\xEF\xBB\xBFHi"},
       {"#text", "x"},
       {"date", " 999-01-01 00:00:00"},
       {"received", "2024-02-29 23:59:59x"},
       {"from", "\xFF <ann@x>"},
       {"to", "Bob <bob@y>"},
       {"cc", "Cy <c\xFF@z>"}},
      {{"subject", "\xED\xA0\x80"}, {"#text", email::no_text_marker}, {"date", "2024-02-29 23:59:59"}, {"bcc", "\xFF"}},
  };
  importer::instant_t const earlier(std::chrono::seconds(1000000000));
  for (email::header_map_t const& headers : maps) {
    NSAutoreleasePool* pool = [[NSAutoreleasePool alloc] init];
    cli::record_t core{"core", true, {}}, plugin{"plugin", true, {}};
    NSMutableDictionary* attributes = [NSMutableDictionary dictionary];
    for (std::string_view name : {importer::attribute::subject, importer::attribute::text_content}) {
      core.attributes.set(name, std::string("old"));
      [attributes setObject:@"old" forKey:[NSString stringWithUTF8String:std::string(name).c_str()]];
    }
    core.attributes.set(importer::attribute::content_creation_date, earlier);
    [attributes setObject:[NSDate dateWithTimeIntervalSince1970:1000000000] forKey:@"kMDItemContentCreationDate"];

    importer::attribute_sink_t sink(core.attributes);
    email::header_map_t copy = headers;
    importer::apply_rows(copy, sink);
    importer::mac::store_attributes(headers, attributes);
    NSArray* keys = [attributes allKeys];
    for (NSUInteger i = 0; i < [keys count]; ++i)
      plugin.attributes.set(utf8([keys objectAtIndex:i]), value_of([attributes objectForKey:[keys objectAtIndex:i]]));
    [pool drain];
    EXPECT_TRUE(
        std::equal(core.attributes.begin(), core.attributes.end(), plugin.attributes.begin(), plugin.attributes.end()))
        << "core:   " << cli::to_json_line(core) << "plugin: " << cli::to_json_line(plugin);
  }
}

} // namespace
