// SPDX-License-Identifier: MIT
// Test-only stand-in for the component-object types of CFPlugIn.
#ifndef TIDEWELL_TESTS_STANDIN_CFPLUGINCOM_H
#define TIDEWELL_TESTS_STANDIN_CFPLUGINCOM_H

#include <CoreFoundation/CoreFoundation.h>

typedef SInt32 HRESULT;
typedef UInt32 ULONG;
typedef void* LPVOID;
typedef CFUUIDBytes REFIID;

#define S_OK ((HRESULT)0x00000000)
#define E_NOINTERFACE ((HRESULT)0x80000004)

#define IUNKNOWN_C_GUTS                                                                                                \
  void* _reserved;                                                                                                     \
  HRESULT (*QueryInterface)(void* thisPointer, REFIID iid, LPVOID* ppv);                                               \
  ULONG (*AddRef)(void* thisPointer);                                                                                  \
  ULONG (*Release)(void* thisPointer)

#endif
