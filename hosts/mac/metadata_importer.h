// SPDX-License-Identifier: MIT
/* The desktop-search plug-in's C face: the import entry and the plug-in
 * object's exported functions.
 *
 * The search service talks to the bundle through CFPlugIn's component-object
 * conventions: it asks MetadataImporterPluginFactory for an instance of the
 * metadata-importer type, queries it for the importer interface and calls the
 * fifth slot of the instance's function table, GetMetadataForFile, once per
 * file. On the Mac the CoreFoundation types come from the platform; elsewhere
 * (the Linux build over GNUstep) the three types the import entry needs are
 * declared here as the same opaque pointers, and a Foundation dictionary or
 * string is passed where CoreFoundation would pass its toll-free bridged
 * counterpart. */
#ifndef TIDEWELL_IMPORTER_MAC_METADATA_IMPORTER_H
#define TIDEWELL_IMPORTER_MAC_METADATA_IMPORTER_H

#ifdef __APPLE__
#include <CoreFoundation/CoreFoundation.h>
#else
typedef unsigned char Boolean;
typedef const struct __CFString* CFStringRef;
typedef struct __CFDictionary* CFMutableDictionaryRef;
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Imports the file at pathToFile into attributes when contentTypeUTI is
 * exactly "com.apple.mail.email" and returns true; any other type returns
 * false and writes nothing. thisInterface is not used. */
Boolean GetMetadataForFile(void* thisInterface, CFMutableDictionaryRef attributes, CFStringRef contentTypeUTI,
                           CFStringRef pathToFile);

#ifdef __cplusplus
}
#endif

#endif
