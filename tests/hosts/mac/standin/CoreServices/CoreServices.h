// SPDX-License-Identifier: MIT
// Test-only stand-in for the metadata-importer interface layout.
#ifndef TIDEWELL_TESTS_STANDIN_CORESERVICES_H
#define TIDEWELL_TESTS_STANDIN_CORESERVICES_H

#include <CoreFoundation/CFPlugInCOM.h>
#include <CoreFoundation/CoreFoundation.h>

typedef struct {
  IUNKNOWN_C_GUTS;
  Boolean (*ImporterImportData)(void* thisInterface, CFMutableDictionaryRef attributes, CFStringRef contentTypeUTI,
                                CFStringRef pathToFile);
} MDImporterInterfaceStruct;

#endif
