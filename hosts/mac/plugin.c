// SPDX-License-Identifier: MIT
/* The importer plug-in object: one function table, reference counting and
 * registration with the factory.
 *
 * The service treats an instance pointer as a pointer to a pointer to the
 * function table, so the table pointer is the instance's first field. The
 * same object and table serve both interfaces the service may ask for (the
 * importer interface and IUnknown). An instance is registered with its
 * factory while it lives so that the plug-in machinery keeps the bundle
 * loaded; the last Release frees and unregisters it. The count is a plain
 * counter: the service uses an instance from one thread at a time. The
 * published identifiers are built from their bytes, exactly as the
 * platform's own macros build them. */
#include "hosts/mac/plugin.h"

#include <stdlib.h>

#include <CoreServices/CoreServices.h>

#include "hosts/mac/metadata_importer.h"

struct MetadataImporterPluginType {
  MDImporterInterfaceStruct const* interfaceTable;
  CFUUIDRef factoryID;
  UInt32 refCount;
};

static MDImporterInterfaceStruct const testInterfaceFtbl = {
    NULL,
    MetadataImporterQueryInterface,
    MetadataImporterPluginAddRef,
    MetadataImporterPluginRelease,
    GetMetadataForFile,
};

/* 8B08C4BF-415B-11D8-B3F9-0003936726FC, the metadata-importer type. */
static CFUUIDRef importer_type_id(void) {
  return CFUUIDGetConstantUUIDWithBytes(kCFAllocatorDefault, 0x8B, 0x08, 0xC4, 0xBF, 0x41, 0x5B, 0x11, 0xD8, 0xB3, 0xF9,
                                        0x00, 0x03, 0x93, 0x67, 0x26, 0xFC);
}

/* 6EBC27C4-899C-11D8-84AE-0003936726FC, the metadata-importer interface. */
static CFUUIDRef importer_interface_id(void) {
  return CFUUIDGetConstantUUIDWithBytes(kCFAllocatorDefault, 0x6E, 0xBC, 0x27, 0xC4, 0x89, 0x9C, 0x11, 0xD8, 0x84, 0xAE,
                                        0x00, 0x03, 0x93, 0x67, 0x26, 0xFC);
}

/* 00000000-0000-0000-C000-000000000046, IUnknown. */
static CFUUIDRef iunknown_id(void) {
  return CFUUIDGetConstantUUIDWithBytes(kCFAllocatorDefault, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xC0, 0x00,
                                        0x00, 0x00, 0x00, 0x00, 0x00, 0x46);
}

MetadataImporterPluginType* AllocMetadataImporterPluginType(CFUUIDRef factoryID) {
  MetadataImporterPluginType* instance = calloc(1, sizeof *instance);
  instance->interfaceTable = &testInterfaceFtbl;
  instance->factoryID = CFRetain(factoryID);
  CFPlugInAddInstanceForFactory(factoryID);
  instance->refCount = 1;
  return instance;
}

void DeallocMetadataImporterPluginType(MetadataImporterPluginType* instance) {
  CFUUIDRef factoryID = instance->factoryID;
  free(instance);
  if (factoryID) {
    CFPlugInRemoveInstanceForFactory(factoryID);
    CFRelease(factoryID);
  }
}

HRESULT MetadataImporterQueryInterface(void* thisInstance, REFIID iid, LPVOID* ppv) {
  CFUUIDRef interfaceID = CFUUIDCreateFromUUIDBytes(kCFAllocatorDefault, iid);
  if (CFEqual(interfaceID, importer_interface_id()) || CFEqual(interfaceID, iunknown_id())) {
    MetadataImporterPluginType* instance = thisInstance;
    instance->interfaceTable->AddRef(thisInstance);
    *ppv = thisInstance;
    CFRelease(interfaceID);
    return S_OK;
  }
  *ppv = NULL;
  CFRelease(interfaceID);
  return E_NOINTERFACE;
}

ULONG MetadataImporterPluginAddRef(void* thisInstance) {
  MetadataImporterPluginType* instance = thisInstance;
  return ++instance->refCount;
}

ULONG MetadataImporterPluginRelease(void* thisInstance) {
  MetadataImporterPluginType* instance = thisInstance;
  if (--instance->refCount == 0) {
    DeallocMetadataImporterPluginType(instance);
    return 0;
  }
  return instance->refCount;
}

void* MetadataImporterPluginFactory(CFAllocatorRef allocator, CFUUIDRef typeID) {
  (void)allocator;
  if (!CFEqual(typeID, importer_type_id()))
    return NULL;
  CFUUIDRef factoryID = CFUUIDCreateFromString(kCFAllocatorDefault, CFSTR(TIDEWELL_IMPORTER_FACTORY_UUID));
  MetadataImporterPluginType* instance = AllocMetadataImporterPluginType(factoryID);
  CFRelease(factoryID);
  return instance;
}
