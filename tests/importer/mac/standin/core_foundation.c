/* Test-only stand-in for the CoreFoundation calls of the plug-in object.
 *
 * Every UUID object starts with a reference count; constant UUIDs are kept in
 * a small table for the life of the process and are returned again for the
 * same bytes, as the platform does. A UUID string is parsed with sscanf into
 * its sixteen bytes. Nothing here is thread-safe: the tests are not. */
#include <CoreFoundation/CoreFoundation.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

struct __CFUUID {
  int constant;
  int references;
  CFUUIDBytes bytes;
};

static struct __CFUUID constants[8];
static int constant_count;
static int live_uuids;
static int registrations;
static CFUUIDBytes last_factory;

static CFUUIDRef create(CFUUIDBytes bytes) {
  struct __CFUUID* uuid = calloc(1, sizeof *uuid);
  uuid->references = 1;
  uuid->bytes = bytes;
  ++live_uuids;
  return uuid;
}

CFUUIDRef CFUUIDGetConstantUUIDWithBytes(CFAllocatorRef allocator, UInt8 byte0, UInt8 byte1, UInt8 byte2, UInt8 byte3,
                                         UInt8 byte4, UInt8 byte5, UInt8 byte6, UInt8 byte7, UInt8 byte8, UInt8 byte9,
                                         UInt8 byte10, UInt8 byte11, UInt8 byte12, UInt8 byte13, UInt8 byte14,
                                         UInt8 byte15) {
  (void)allocator;
  CFUUIDBytes const bytes = {byte0, byte1, byte2,  byte3,  byte4,  byte5,  byte6,  byte7,
                             byte8, byte9, byte10, byte11, byte12, byte13, byte14, byte15};
  for (int i = 0; i < constant_count; ++i)
    if (memcmp(&constants[i].bytes, &bytes, sizeof bytes) == 0)
      return &constants[i];
  if (constant_count == (int)(sizeof constants / sizeof constants[0]))
    abort();
  constants[constant_count].constant = 1;
  constants[constant_count].bytes = bytes;
  return &constants[constant_count++];
}

CFUUIDRef CFUUIDCreateFromUUIDBytes(CFAllocatorRef allocator, CFUUIDBytes bytes) {
  (void)allocator;
  return create(bytes);
}

CFUUIDRef CFUUIDCreateFromString(CFAllocatorRef allocator, CFStringRef text) {
  (void)allocator;
  unsigned b[16] = {0};
  if (sscanf((char const*)text, "%2x%2x%2x%2x-%2x%2x-%2x%2x-%2x%2x-%2x%2x%2x%2x%2x%2x", &b[0], &b[1], &b[2], &b[3],
             &b[4], &b[5], &b[6], &b[7], &b[8], &b[9], &b[10], &b[11], &b[12], &b[13], &b[14], &b[15]) != 16)
    return NULL;
  CFUUIDBytes const bytes = {b[0], b[1], b[2],  b[3],  b[4],  b[5],  b[6],  b[7],
                             b[8], b[9], b[10], b[11], b[12], b[13], b[14], b[15]};
  return create(bytes);
}

CFUUIDBytes CFUUIDGetUUIDBytes(CFUUIDRef uuid) {
  return uuid->bytes;
}

Boolean CFEqual(CFTypeRef left, CFTypeRef right) {
  CFUUIDRef const a = left;
  CFUUIDRef const b = right;
  return memcmp(&a->bytes, &b->bytes, sizeof a->bytes) == 0;
}

CFTypeRef CFRetain(CFTypeRef object) {
  struct __CFUUID* uuid = (struct __CFUUID*)object;
  if (!uuid->constant)
    ++uuid->references;
  return object;
}

void CFRelease(CFTypeRef object) {
  struct __CFUUID* uuid = (struct __CFUUID*)object;
  if (uuid->constant)
    return;
  if (--uuid->references == 0) {
    free(uuid);
    --live_uuids;
  }
}

void CFPlugInAddInstanceForFactory(CFUUIDRef factoryID) {
  ++registrations;
  last_factory = factoryID->bytes;
}

void CFPlugInRemoveInstanceForFactory(CFUUIDRef factoryID) {
  (void)factoryID;
  --registrations;
}

int standin_live_uuids(void) {
  return live_uuids;
}
int standin_registrations(void) {
  return registrations;
}
CFUUIDBytes standin_last_factory(void) {
  return last_factory;
}
