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
// The rows are applied by the core's apply_rows, the walk the core's own
// attribute set is filled by; this file supplies the Foundation objects.
// Nothing here raises: a missing string removes the attribute, and a list
// element without a string is skipped.
#include "hosts/mac/import_file.h"

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "hosts/mac/attribute_keys.h"
#include "hosts/mac/metadata_importer.h"
#include "importer/import.h"

namespace importer::mac {
namespace {

constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";

// The attribute key object for an attribute name. The keys are constants
// that live as long as the process.
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
NSDate* date_from_canonical_text(std::string_view value) {
  if (!parse_canonical_date(value))
    return nil;
  NSString* text = make_string(value);
  NSDate* date = [shared_date_formatter() dateFromString:text];
  [text release];
  return date;
}

// One reference to a Foundation object, released with its owner; so a list
// or string made before an exception is not leaked.
template <typename Object> class owned_t {
public:
  owned_t() = default;
  explicit owned_t(Object* object) : object_(object) {}
  owned_t(owned_t&& other) noexcept : object_(std::exchange(other.object_, nil)) {}
  owned_t& operator=(owned_t&& other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~owned_t() { [object_ release]; }

  explicit operator bool() const { return object_ != nil; }
  Object* get() const { return object_; }

private:
  Object* object_ = nil;
};

// The rows go into the service's dictionary as Foundation objects, under
// the platform's key objects.
class dictionary_sink_t {
public:
  using list_t = owned_t<NSMutableArray>;

  explicit dictionary_sink_t(NSMutableDictionary* attributes) : attributes_(attributes) {}

  owned_t<NSString> make_string(std::string_view bytes) const { return owned_t<NSString>(mac::make_string(bytes)); }
  NSDate* make_date(std::string_view text) const { return date_from_canonical_text(text); }
  void set(std::string_view attribute, owned_t<NSString>&& text) { set_object(attribute, text.get()); }
  void set(std::string_view attribute, NSDate* date) { set_object(attribute, date); }
  void erase(std::string_view attribute) { [attributes_ removeObjectForKey:key_object(attribute)]; }
  void append(list_t& list, owned_t<NSString>&& element) {
    if (!list)
      list = list_t([[NSMutableArray alloc] init]);
    [list.get() addObject:element.get()];
  }
  void store(std::string_view attribute, list_t&& list) { set_object(attribute, list.get()); }

private:
  void set_object(std::string_view attribute, id object) {
    [attributes_ setObject:object forKeyedSubscript:key_object(attribute)];
  }

  NSMutableDictionary* attributes_;
};

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

void store_attributes(email::header_map_t const& headers, NSMutableDictionary* attributes) {
  dictionary_sink_t sink(attributes);
  apply_rows(headers, sink);
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
