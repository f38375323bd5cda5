// SPDX-License-Identifier: MIT
// Test-only stand-in for the CoreFoundation calls of the plug-in object.
//
// UUID objects are reference counted heap records. Constant ones live in a
// static pool for the life of the process and start with a count that
// releases never use up (the platform hands out one object per value; the
// plug-in only compares values, so a new one per call does here). Nothing
// here is thread-safe: the tests are not.
#include <CoreFoundation/CoreFoundation.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

struct __CFUUID {
  int references;
  CFUUIDBytes bytes;
};

static struct __CFUUID constants[64];
static int constant_count;
int standin_registrations;
CFUUIDBytes standin_last_factory;

CFUUIDRef CFUUIDGetConstantUUIDWithBytes(CFAllocatorRef, UInt8 b0, UInt8 b1, UInt8 b2, UInt8 b3, UInt8 b4, UInt8 b5,
                                         UInt8 b6, UInt8 b7, UInt8 b8, UInt8 b9, UInt8 b10, UInt8 b11, UInt8 b12,
                                         UInt8 b13, UInt8 b14, UInt8 b15) {
  constants[constant_count] =
      (struct __CFUUID){1 << 30, {{b0, b1, b2, b3, b4, b5, b6, b7, b8, b9, b10, b11, b12, b13, b14, b15}}};
  return &constants[constant_count++];
}

CFUUIDRef CFUUIDCreateFromUUIDBytes(CFAllocatorRef, CFUUIDBytes bytes) {
  struct __CFUUID* uuid = malloc(sizeof *uuid);
  *uuid = (struct __CFUUID){1, bytes};
  return uuid;
}

CFUUIDRef CFUUIDCreateFromString(CFAllocatorRef allocator, CFStringRef text) {
  CFUUIDBytes bytes;
  UInt8* b = bytes.bytes;
  int const read = sscanf(
      (char const*)text, "%2hhx%2hhx%2hhx%2hhx-%2hhx%2hhx-%2hhx%2hhx-%2hhx%2hhx-%2hhx%2hhx%2hhx%2hhx%2hhx%2hhx", &b[0],
      &b[1], &b[2], &b[3], &b[4], &b[5], &b[6], &b[7], &b[8], &b[9], &b[10], &b[11], &b[12], &b[13], &b[14], &b[15]);
  return read == 16 ? CFUUIDCreateFromUUIDBytes(allocator, bytes) : NULL;
}

CFUUIDBytes CFUUIDGetUUIDBytes(CFUUIDRef uuid) {
  return uuid->bytes;
}

Boolean CFEqual(CFTypeRef left, CFTypeRef right) {
  return memcmp(&((CFUUIDRef)left)->bytes, &((CFUUIDRef)right)->bytes, sizeof(CFUUIDBytes)) == 0;
}

CFTypeRef CFRetain(CFTypeRef object) {
  ++((struct __CFUUID*)object)->references;
  return object;
}

void CFRelease(CFTypeRef object) {
  struct __CFUUID* uuid = (struct __CFUUID*)object;
  if (--uuid->references == 0)
    free(uuid);
}

void CFPlugInAddInstanceForFactory(CFUUIDRef factoryID) {
  ++standin_registrations;
  standin_last_factory = factoryID->bytes;
}

// Counts a removal only from the factory last registered with.
void CFPlugInRemoveInstanceForFactory(CFUUIDRef factoryID) {
  standin_registrations -= CFEqual(factoryID, &(struct __CFUUID){0, standin_last_factory});
}
