// SPDX-License-Identifier: MIT
/* The importer plug-in object's exported functions.
 *
 * The search service finds MetadataImporterPluginFactory through the
 * bundle's information list; everything else it reaches through the
 * instance's function table. The functions are declared here for the tests
 * that drive the object the same way. */
#ifndef TIDEWELL_IMPORTER_MAC_PLUGIN_H
#define TIDEWELL_IMPORTER_MAC_PLUGIN_H

#include <CoreFoundation/CFPlugInCOM.h>
#include <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The bundle's own factory identifier, a UUID string literal, comes from the
 * build so that the code and the bundle's information list name the same. */
#ifndef TIDEWELL_IMPORTER_FACTORY_UUID
#error "TIDEWELL_IMPORTER_FACTORY_UUID must be defined by the build"
#endif

typedef struct MetadataImporterPluginType MetadataImporterPluginType;

void* MetadataImporterPluginFactory(CFAllocatorRef allocator, CFUUIDRef typeID);
MetadataImporterPluginType* AllocMetadataImporterPluginType(CFUUIDRef factoryID);
void DeallocMetadataImporterPluginType(MetadataImporterPluginType* instance);
HRESULT MetadataImporterQueryInterface(void* thisInstance, REFIID iid, LPVOID* ppv);
ULONG MetadataImporterPluginAddRef(void* thisInstance);
ULONG MetadataImporterPluginRelease(void* thisInstance);

#ifdef __cplusplus
}
#endif

#endif
