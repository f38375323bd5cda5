// The plug-in object driven the way the search service drives it: through
// the factory and the function table, with registrations and UUID objects
// counted by the CoreFoundation stand-in.
#include <cstring>

#include <gtest/gtest.h>

#import <Foundation/Foundation.h>

#include <CoreServices/CoreServices.h>

#include "importer/mac/plugin.h"

namespace {

CFUUIDRef importer_type() {
  return CFUUIDGetConstantUUIDWithBytes(kCFAllocatorDefault, 0x8B, 0x08, 0xC4, 0xBF, 0x41, 0x5B, 0x11, 0xD8, 0xB3, 0xF9,
                                        0x00, 0x03, 0x93, 0x67, 0x26, 0xFC);
}
CFUUIDBytes importer_interface() {
  return CFUUIDGetUUIDBytes(CFUUIDGetConstantUUIDWithBytes(kCFAllocatorDefault, 0x6E, 0xBC, 0x27, 0xC4, 0x89, 0x9C,
                                                           0x11, 0xD8, 0x84, 0xAE, 0x00, 0x03, 0x93, 0x67, 0x26, 0xFC));
}
CFUUIDBytes iunknown() {
  return CFUUIDGetUUIDBytes(CFUUIDGetConstantUUIDWithBytes(kCFAllocatorDefault, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                                                           0x00, 0x00, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46));
}

MDImporterInterfaceStruct const* table_of(void* instance) {
  return *static_cast<MDImporterInterfaceStruct**>(instance);
}

TEST(mac_plugin, the_factory_makes_only_importers) {
  CFUUIDRef other = CFUUIDCreateFromString(kCFAllocatorDefault, CFSTR("8B08C4BF-415B-11D8-B3F9-0003936726FD"));
  EXPECT_EQ(MetadataImporterPluginFactory(kCFAllocatorDefault, other), nullptr);
  CFRelease(other);
  EXPECT_EQ(standin_registrations(), 0);
  EXPECT_EQ(standin_live_uuids(), 0);
}

TEST(mac_plugin, an_instance_lives_from_factory_to_last_release) {
  void* instance = MetadataImporterPluginFactory(kCFAllocatorDefault, importer_type());
  ASSERT_NE(instance, nullptr);
  EXPECT_EQ(standin_registrations(), 1);
  CFUUIDRef ours = CFUUIDCreateFromString(kCFAllocatorDefault, CFSTR(TIDEWELL_IMPORTER_FACTORY_UUID));
  CFUUIDBytes const expected = CFUUIDGetUUIDBytes(ours), registered = standin_last_factory();
  EXPECT_EQ(std::memcmp(&expected, &registered, sizeof expected), 0) << "registered under the bundle's factory";
  CFRelease(ours);

  MDImporterInterfaceStruct const* table = table_of(instance);
  EXPECT_EQ(table->_reserved, nullptr);
  EXPECT_EQ(table->QueryInterface, &MetadataImporterQueryInterface);
  EXPECT_EQ(table->AddRef, &MetadataImporterPluginAddRef);
  EXPECT_EQ(table->Release, &MetadataImporterPluginRelease);

  // Both interfaces are the same object and count one reference each.
  for (CFUUIDBytes const& iid : {importer_interface(), iunknown()}) {
    LPVOID granted = nullptr;
    EXPECT_EQ(table->QueryInterface(instance, iid, &granted), S_OK);
    EXPECT_EQ(granted, instance);
  }
  LPVOID refused = instance;
  EXPECT_EQ(table->QueryInterface(instance, CFUUIDGetUUIDBytes(importer_type()), &refused), E_NOINTERFACE);
  EXPECT_EQ(refused, nullptr);

  EXPECT_EQ(table->AddRef(instance), 4u) << "factory, two queries, this call; the refused query added none";
  EXPECT_EQ(table->Release(instance), 3u);
  EXPECT_EQ(table->Release(instance), 2u);
  EXPECT_EQ(table->Release(instance), 1u);
  EXPECT_EQ(standin_registrations(), 1);
  EXPECT_EQ(table->Release(instance), 0u);
  EXPECT_EQ(standin_registrations(), 0);
  EXPECT_EQ(standin_live_uuids(), 0) << "every UUID object made was released";
}

TEST(mac_plugin, the_fifth_slot_imports) {
  NSAutoreleasePool* pool = [[NSAutoreleasePool alloc] init];
  void* instance = MetadataImporterPluginFactory(kCFAllocatorDefault, importer_type());
  ASSERT_NE(instance, nullptr);
  NSMutableDictionary* attributes = [[NSMutableDictionary alloc] init];
  NSString* path = [NSString stringWithUTF8String:TIDEWELL_SOURCE_DIR "/examples/plain.eml"];
  auto const import = table_of(instance)->ImporterImportData;
  EXPECT_FALSE(
      import(instance, (CFMutableDictionaryRef)attributes, (CFStringRef) @"public.plain-text", (CFStringRef)path));
  EXPECT_EQ([attributes count], 0u);
  EXPECT_TRUE(
      import(instance, (CFMutableDictionaryRef)attributes, (CFStringRef) @"com.apple.mail.email", (CFStringRef)path));
  EXPECT_TRUE([[attributes objectForKey:@"kMDItemSubject"] isKindOfClass:[NSString class]]);
  [attributes release];
  EXPECT_EQ(table_of(instance)->Release(instance), 0u);
  [pool drain];
}

} // namespace
