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
