/* Test-only stand-in for the few CoreFoundation types and calls the plug-in
 * object uses, so that it can be built and driven off the Mac.
 *
 * UUID objects are reference counted heap records (constant ones live for
 * the process and ignore retain and release, as on the platform); CFSTR makes
 * a "string" that is simply the C string. Registrations with a factory are
 * counted so that tests can see an instance register and unregister. */
#ifndef TIDEWELL_TESTS_STANDIN_COREFOUNDATION_H
#define TIDEWELL_TESTS_STANDIN_COREFOUNDATION_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef unsigned char Boolean;
typedef uint8_t UInt8;
typedef uint32_t UInt32;
typedef int32_t SInt32;
typedef const void* CFTypeRef;
typedef const struct __CFAllocator* CFAllocatorRef;
typedef const struct __CFString* CFStringRef;
typedef struct __CFDictionary* CFMutableDictionaryRef;
typedef const struct __CFUUID* CFUUIDRef;

typedef struct {
  UInt8 byte0, byte1, byte2, byte3, byte4, byte5, byte6, byte7;
  UInt8 byte8, byte9, byte10, byte11, byte12, byte13, byte14, byte15;
} CFUUIDBytes;

#define kCFAllocatorDefault ((CFAllocatorRef)0)
#define CFSTR(text) ((CFStringRef)("" text ""))

CFUUIDRef CFUUIDGetConstantUUIDWithBytes(CFAllocatorRef allocator, UInt8 byte0, UInt8 byte1, UInt8 byte2, UInt8 byte3,
                                         UInt8 byte4, UInt8 byte5, UInt8 byte6, UInt8 byte7, UInt8 byte8, UInt8 byte9,
                                         UInt8 byte10, UInt8 byte11, UInt8 byte12, UInt8 byte13, UInt8 byte14,
                                         UInt8 byte15);
CFUUIDRef CFUUIDCreateFromUUIDBytes(CFAllocatorRef allocator, CFUUIDBytes bytes);
CFUUIDRef CFUUIDCreateFromString(CFAllocatorRef allocator, CFStringRef text);
CFUUIDBytes CFUUIDGetUUIDBytes(CFUUIDRef uuid);
Boolean CFEqual(CFTypeRef left, CFTypeRef right);
CFTypeRef CFRetain(CFTypeRef object);
void CFRelease(CFTypeRef object);
void CFPlugInAddInstanceForFactory(CFUUIDRef factoryID);
void CFPlugInRemoveInstanceForFactory(CFUUIDRef factoryID);

/* Probes for the tests, not part of CoreFoundation. */
int standin_live_uuids(void);           /* created and not yet released */
int standin_registrations(void);        /* added minus removed instances */
CFUUIDBytes standin_last_factory(void); /* the factory of the last registration */

#ifdef __cplusplus
}
#endif

#endif
