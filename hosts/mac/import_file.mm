// SPDX-License-Identifier: MIT
// GetMetadataForFile and ImportFileAtPath over the portable core.
//
// The core reads the message into a header map (wanted fields, canonical
// date text, body text under "#text") and takes address fields apart; this
// file turns that into Foundation objects row by row, the way the search
// service expects them. Every string is made from the value's UTF-8 bytes;
// well-formedness is decided by the core's own test so that this dictionary
// and the core's host-neutral attribute set agree on which values exist.
// Two platform habits are corrected for the same reason: Foundation (GNUstep's
// at least) drops leading byte order marks when it decodes UTF-8 or UTF-16
// (the core keeps them as characters), and
// its date formatter is lenient on some platforms (it reads " 999-..." or a
// trailing remainder), so only text the core accepts as canonical reaches it.
// Nothing here raises: a missing string is stored as nil, which removes the
// attribute, and a list element without a string is skipped.
#include "hosts/mac/import_file.h"

#include <array>
#include <string>
#include <vector>

#include "hosts/mac/attribute_keys.h"
#include "hosts/mac/metadata_importer.h"
#include "importer/import.h"

namespace importer::mac {
namespace {

constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";

// The attribute key object for an attribute name. Rows that name the same
// attribute get the very same object, which is what collects To, Cc and Bcc
// into one list each. The keys are constants that live as long as the process.
NSString* key_object(std::string_view attribute) {
  static std::array<std::pair<std::string_view, NSString*>, 9> const keys{{
      {attribute::subject, (NSString*)kMDItemSubject},
      {attribute::display_name, (NSString*)kMDItemDisplayName},
      {attribute::text_content, (NSString*)kMDItemTextContent},
      {attribute::content_creation_date, (NSString*)kMDItemContentCreationDate},
      {attribute::date_received, date_received_key()},
      {attribute::authors, (NSString*)kMDItemAuthors},
      {attribute::author_email_addresses, (NSString*)kMDItemAuthorEmailAddresses},
      {attribute::recipients, (NSString*)kMDItemRecipients},
      {attribute::recipient_email_addresses, (NSString*)kMDItemRecipientEmailAddresses},
  }};
  for (auto const& [name, key] : keys)
    if (name == attribute)
      return key;
  return nil;
}

// The platform's Gregorian calendar is Julian before 15 October 1582, so such
// early instants read ten or more days apart from the core's proleptic
// reading; mail does not carry them in practice.
NSDate* date_from_canonical_text(std::string const& value) {
  if (!parse_canonical_date(value))
    return nil;
  NSString* text = make_string(value);
  NSDate* date = [shared_date_formatter() dateFromString:text];
  [text release];
  return date;
}

} // namespace

NSString* make_string(std::string_view bytes) {
  if (!is_well_formed_utf8(bytes))
    return nil;
  std::size_t marks = 0;
  while (bytes.substr(marks * byte_order_mark.size()).starts_with(byte_order_mark))
    ++marks;
  std::string_view const rest = bytes.substr(marks * byte_order_mark.size());
  NSString* text = [[NSString alloc] initWithBytes:rest.data() length:rest.size() encoding:NSUTF8StringEncoding];
  if (marks == 0 || text == nil)
    return text;
  // Foundation drops leading U+FEFF even from UTF-16 input, so the marks are
  // made behind a placeholder character that is then removed.
  std::vector<unichar> characters(marks + 1, unichar(0xFEFF));
  characters[0] = unichar('x');
  NSMutableString* whole = [[NSMutableString alloc] initWithCharacters:characters.data() length:characters.size()];
  [whole deleteCharactersInRange:NSMakeRange(0, 1)];
  [whole appendString:text];
  [text release];
  return whole;
}

NSDateFormatter* shared_date_formatter() {
  // One-time initialisation rather than an unlocked null test: two threads
  // meeting their first date together must not race on the pointer.
  static NSDateFormatter* const formatter = [] {
    NSDateFormatter* created = [[NSDateFormatter alloc] init];
    [created setFormatterBehavior:NSDateFormatterBehavior10_4];
    [created setDateFormat:@"yyyy-MM-dd HH:mm:ss"];
    [created setTimeZone:[NSTimeZone timeZoneWithAbbreviation:@"UTC"]];
    NSLocale* locale = [[NSLocale alloc] initWithLocaleIdentifier:@"en_US_POSIX"];
    [created setLocale:locale];
    [locale release];
    NSCalendar* calendar = [[NSCalendar alloc] initWithCalendarIdentifier:NSCalendarIdentifierGregorian];
    [created setCalendar:calendar];
    [calendar release];
    return created;
  }();
  return formatter;
}

accumulator_t::~accumulator_t() {
  for (auto const& entry : lists_)
    [entry.second release];
}

void accumulator_t::append(NSString* key, std::string_view bytes) {
  NSString* element = make_string(bytes);
  if (element == nil)
    return;
  auto [found, created] = lists_.try_emplace(key, nil);
  if (created)
    found->second = [[NSMutableArray alloc] init];
  [found->second addObject:element];
  [element release];
}

void accumulator_t::store(NSMutableDictionary* attributes) const {
  for (auto const& [key, list] : lists_)
    [attributes setObject:list forKeyedSubscript:key];
}

void store_attributes(email::header_map_t const& headers, NSMutableDictionary* attributes) {
  accumulator_t accumulator;
  for_each_row(
      headers,
      [&](attribute_row_t const& row, std::vector<std::string> const& names, std::vector<std::string> const& emails) {
        for (std::string const& name : names)
          accumulator.append(key_object(row.attribute), name);
        for (std::string const& email : emails)
          accumulator.append(key_object(row.email_attribute), email);
      },
      [&](attribute_row_t const& row, std::string const& value) {
        if (is_date_row(row)) {
          if (NSDate* date = date_from_canonical_text(value))
            [attributes setObject:date forKeyedSubscript:key_object(row.attribute)];
          return;
        }
        // A nil string removes whatever an earlier row stored here.
        NSString* text = make_string(value);
        [attributes setObject:text forKeyedSubscript:key_object(row.attribute)];
        [text release];
      });
  accumulator.store(attributes);
}

} // namespace importer::mac

BOOL ImportFileAtPath(NSString* path, NSMutableDictionary* attributes, NSError** /*error*/) {
  char const* bytes = [path UTF8String];
  std::string const file = bytes ? bytes : "";
  importer::mac::store_attributes(importer::parse_email(file, importer::wanted_headers()), attributes);
  return YES;
}

extern "C" Boolean GetMetadataForFile(void* /*thisInterface*/, CFMutableDictionaryRef attributes,
                                      CFStringRef contentTypeUTI, CFStringRef pathToFile) {
  NSAutoreleasePool* pool = [[NSAutoreleasePool alloc] init];
  Boolean result = false;
  if ([(NSString*)contentTypeUTI isEqualToString:@"com.apple.mail.email"]) {
    // The service is C: nothing may unwind into it, and an import never
    // reports failure.
    try {
      ImportFileAtPath((NSString*)pathToFile, (NSMutableDictionary*)attributes, NULL);
    } catch (...) {
    }
    result = true;
  }
  [pool drain];
  return result;
}
