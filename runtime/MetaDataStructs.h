// Records that cross the metadata interfaces.
#pragma once

#include "runtime/CorTypes.h"

struct OSINFO {
    DWORD dwOSPlatformId;
    DWORD dwOSMajorVersion;
    DWORD dwOSMinorVersion;
};

// cbLocale (in WCHARs), ulProcessor and ulOS go in as buffer sizes and come back
// as the counts actually present.
struct ASSEMBLYMETADATA {
    USHORT usMajorVersion;
    USHORT usMinorVersion;
    USHORT usBuildNumber;
    USHORT usRevisionNumber;
    LPWSTR szLocale;
    ULONG cbLocale;
    DWORD* rProcessor;
    ULONG ulProcessor;
    OSINFO* rOS;
    ULONG ulOS;
};

struct COR_FIELD_OFFSET {
    mdFieldDef ridOfField;
    ULONG ulOffset;
};

// Types that appear only behind pointers in interfaces this system never calls
// through them.
struct VARIANT;
struct ITypeInfo;
struct IStream;
struct IMapToken;
struct COR_SECATTR;

// The layouts the runtime reads and writes through the metadata interfaces.
static_assert(sizeof(OSINFO) == 12);
static_assert(sizeof(ASSEMBLYMETADATA) == 56);
static_assert(offsetof(ASSEMBLYMETADATA, usRevisionNumber) == 6);
static_assert(offsetof(ASSEMBLYMETADATA, szLocale) == 8);
static_assert(offsetof(ASSEMBLYMETADATA, cbLocale) == 16);
static_assert(offsetof(ASSEMBLYMETADATA, rProcessor) == 24);
static_assert(offsetof(ASSEMBLYMETADATA, ulProcessor) == 32);
static_assert(offsetof(ASSEMBLYMETADATA, rOS) == 40);
static_assert(offsetof(ASSEMBLYMETADATA, ulOS) == 48);
static_assert(sizeof(COR_FIELD_OFFSET) == 8);
