// The dictionary the plug-in writes equals the core's attribute set for the
// same message: the same attribute names, the same values and the same kinds
// (text as strings, instants as dates, lists as arrays). The check is generic
// over whatever the core produces, so it keeps holding as the core learns
// more; it runs over the sample messages and, when present, the shared corpus.
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "hosts/cli/output.h"
#include "importer/import.h"
#include "importer/mac/import_file.h"
#include "importer/mac/metadata_importer.h"

namespace {

namespace fs = std::filesystem;

std::string utf8(NSString* text) {
  NSData* bytes = [text dataUsingEncoding:NSUTF8StringEncoding];
  return std::string(static_cast<char const*>([bytes bytes]), [bytes length]);
}

// Reads the dictionary back into the core's terms; a value of an unexpected
// kind becomes a string naming the kind, so that it shows in the comparison.
importer::attribute_set_t from_dictionary(NSDictionary* attributes) {
  importer::attribute_set_t result;
  NSArray* keys = [attributes allKeys];
  for (NSUInteger i = 0; i < [keys count]; ++i) {
    NSString* key = [keys objectAtIndex:i];
    id value = [attributes objectForKey:key];
    if ([value isKindOfClass:[NSDate class]]) {
      double const seconds = [value timeIntervalSince1970];
      if (seconds == std::floor(seconds))
        result.set(utf8(key), importer::instant_t(std::chrono::seconds(static_cast<long long>(seconds))));
      else
        result.set(utf8(key), "<date with a fraction of a second>");
    } else if ([value isKindOfClass:[NSString class]]) {
      result.set(utf8(key), utf8(value));
    } else if ([value isKindOfClass:[NSArray class]]) {
      std::vector<std::string> list;
      for (NSUInteger j = 0; j < [value count]; ++j) {
        id element = [value objectAtIndex:j];
        list.push_back([element isKindOfClass:[NSString class]] ? utf8(element) : "<not a string>");
      }
      result.set(utf8(key), std::move(list));
    } else {
      result.set(utf8(key), std::string("<") + [[[value class] description] UTF8String] + ">");
    }
  }
  return result;
}

bool same(importer::attribute_set_t const& left, importer::attribute_set_t const& right) {
  if (left.size() != right.size())
    return false;
  for (auto const& [name, value] : left) {
    auto const* other = right.find(name);
    if (!other || *other != value)
      return false;
  }
  return true;
}

struct comparison_t {
  std::string path;
  std::string core;
  std::string plugin;
  bool same;
};

comparison_t compare(fs::path const& path) {
  NSAutoreleasePool* pool = [[NSAutoreleasePool alloc] init];
  cli::record_t core{path.string(), false, {}};
  core.imported = importer::get_metadata_for_file(core.attributes, importer::mail_content_type, core.path);

  NSMutableDictionary* attributes = [[NSMutableDictionary alloc] init];
  NSString* file = [NSString stringWithUTF8String:path.c_str()];
  cli::record_t plugin{path.string(), false, {}};
  plugin.imported = GetMetadataForFile(nullptr, (CFMutableDictionaryRef)attributes,
                                       (CFStringRef) @"com.apple.mail.email", (CFStringRef)file);
  plugin.attributes = from_dictionary(attributes);
  [attributes release];
  [pool drain];

  bool const equal = core.imported == plugin.imported && same(core.attributes, plugin.attributes);
  return {path.string(), cli::to_json_line(core), cli::to_json_line(plugin), equal};
}

std::vector<fs::path> messages_under(fs::path const& dir, bool only_eml) {
  std::vector<fs::path> result;
  if (!fs::is_directory(dir))
    return result;
  for (auto const& entry : fs::recursive_directory_iterator(dir))
    if (entry.is_regular_file() && (!only_eml || entry.path().extension() == ".eml"))
      result.push_back(entry.path());
  std::sort(result.begin(), result.end());
  return result;
}

TEST(mac_same_as_core, sample_messages) {
  auto const messages = messages_under(fs::path(TIDEWELL_SOURCE_DIR) / "examples", true);
  ASSERT_FALSE(messages.empty());
  for (auto const& path : messages) {
    auto const result = compare(path);
    EXPECT_TRUE(result.same) << "core:   " << result.core << "plugin: " << result.plugin;
  }
}

TEST(mac_same_as_core, corpus) {
  auto const corpus = fs::path(TIDEWELL_SOURCE_DIR) / ".." / "shared" / "corpus" / "messages";
  auto const messages = messages_under(corpus, false);
  if (messages.empty())
    GTEST_SKIP() << "no corpus at " << corpus;
  std::size_t differing = 0;
  testing::internal::CaptureStderr();
  for (auto const& path : messages) {
    auto const result = compare(path);
    if (!result.same && ++differing <= 5)
      ADD_FAILURE() << "core:   " << result.core << "plugin: " << result.plugin;
  }
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(differing, 0u) << "of " << messages.size() << " messages";
}

} // namespace
