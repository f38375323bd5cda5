// SPDX-License-Identifier: MIT
// Test-only stand-in for the few CoreFoundation types and calls the plug-in
// object uses, so that it can be built and driven off the Mac.
//
// UUID objects are reference counted heap records (constant ones live for
// the process and ignore release, as on the platform); CFSTR makes a
// "string" that is simply the C string. The standin_ probes let tests see
// instances register and unregister.
#ifndef TIDEWELL_TESTS_STANDIN_COREFOUNDATION_H
#define TIDEWELL_TESTS_STANDIN_COREFOUNDATION_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint8_t UInt8, Boolean;
typedef uint32_t UInt32;
typedef int32_t SInt32;
typedef const void* CFTypeRef;
typedef const struct __CFAllocator* CFAllocatorRef;
typedef const struct __CFString* CFStringRef;
typedef struct __CFDictionary* CFMutableDictionaryRef;
typedef const struct __CFUUID* CFUUIDRef;
typedef struct {
  UInt8 bytes[16];
} CFUUIDBytes;

#define kCFAllocatorDefault ((CFAllocatorRef)0)
#define CFSTR(text) ((CFStringRef)("" text ""))

CFUUIDRef CFUUIDGetConstantUUIDWithBytes(CFAllocatorRef, UInt8, UInt8, UInt8, UInt8, UInt8, UInt8, UInt8, UInt8, UInt8,
                                         UInt8, UInt8, UInt8, UInt8, UInt8, UInt8, UInt8);
CFUUIDRef CFUUIDCreateFromUUIDBytes(CFAllocatorRef allocator, CFUUIDBytes bytes);
CFUUIDRef CFUUIDCreateFromString(CFAllocatorRef allocator, CFStringRef text);
CFUUIDBytes CFUUIDGetUUIDBytes(CFUUIDRef uuid);
Boolean CFEqual(CFTypeRef left, CFTypeRef right);
CFTypeRef CFRetain(CFTypeRef object);
void CFRelease(CFTypeRef object);
void CFPlugInAddInstanceForFactory(CFUUIDRef factoryID);
void CFPlugInRemoveInstanceForFactory(CFUUIDRef factoryID);

// Probes for the tests, not part of CoreFoundation: instances added minus
// removed, and the factory of the last one added.
extern int standin_registrations;
extern CFUUIDBytes standin_last_factory;

#ifdef __cplusplus
}
#endif

#endif
