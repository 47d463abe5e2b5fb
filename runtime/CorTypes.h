// Basic types of the runtime's profiling and metadata interfaces, as laid out on
// x86-64 Linux. These are the widths the runtime itself was built with: ULONG and
// DWORD are 32 bits, WCHAR is char16_t, UINT_PTR is unsigned long.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

using BYTE = unsigned char;
using UCHAR = unsigned char;
using USHORT = unsigned short;
using WORD = unsigned short;
using ULONG = unsigned int;
using LONG = int;
using DWORD = unsigned int;
using BOOL = int;
using UINT = unsigned int;
using INT = int;
using ULONG32 = unsigned int;
using UINT32 = unsigned int;
using LONG32 = int;
using INT32 = int;
using UINT64 = unsigned long;
using ULONG64 = unsigned long;
using ULONGLONG = unsigned long;
using INT64 = long;
using LONGLONG = long;
using UINT_PTR = unsigned long;
using ULONG_PTR = unsigned long;
using DWORD_PTR = unsigned long;
using INT_PTR = long;
using LONG_PTR = long;
using SIZE_T = unsigned long;
using HRESULT = int;
using WCHAR = char16_t;
using LPWSTR = WCHAR*;
using LPCWSTR = const WCHAR*;
using LPCBYTE = const BYTE*;
using PVOID = void*;
using LPVOID = void*;
using LPCVOID = const void*;
using HANDLE = void*;

constexpr BOOL TRUE = 1;
constexpr BOOL FALSE = 0;

struct GUID {
    ULONG Data1;
    USHORT Data2;
    USHORT Data3;
    UCHAR Data4[8];
};
using IID = GUID;
using CLSID = GUID;
using REFGUID = const GUID&;
using REFIID = const IID&;
using REFCLSID = const CLSID&;

// A GUID from its written form, "8A8CC829-CCF2-49FE-BBAE-0F022228071A", with or
// without braces around it; a malformed text does not compile.
template <size_t N>
consteval GUID guidOf(const char (&text)[N]) {
    static_assert(N == 37 || N == 39, "a GUID is written with 36 characters, or 38 in braces");
    const int start = N == 39 ? 1 : 0;
    if (N == 39 && (text[0] != '{' || text[37] != '}')) throw "unbalanced braces";
    auto digit = [&](int at) -> unsigned long {
        const char c = text[start + at];
        if (c >= '0' && c <= '9') return static_cast<unsigned long>(c - '0');
        if (c >= 'A' && c <= 'F') return static_cast<unsigned long>(c - 'A' + 10);
        if (c >= 'a' && c <= 'f') return static_cast<unsigned long>(c - 'a' + 10);
        throw "not a hexadecimal digit";
    };
    auto number = [&](int at, int digits) {
        unsigned long value = 0;
        for (int i = 0; i < digits; ++i) value = value << 4 | digit(at + i);
        return value;
    };
    auto dash = [&](int at) { return text[start + at] == '-'; };
    if (!dash(8) || !dash(13) || !dash(18) || !dash(23)) throw "not a GUID";
    GUID guid{static_cast<ULONG>(number(0, 8)), static_cast<USHORT>(number(9, 4)), static_cast<USHORT>(number(14, 4)), {}};
    // Data4: two bytes before the last dash, six after it.
    for (int i = 0; i < 8; ++i) guid.Data4[i] = static_cast<UCHAR>(number(i < 2 ? 19 + 2 * i : 20 + 2 * i, 2));
    return guid;
}

inline bool IsEqualGUID(REFGUID a, REFGUID b) {
    return std::memcmp(&a, &b, sizeof(GUID)) == 0;
}
inline bool operator==(REFGUID a, REFGUID b) { return IsEqualGUID(a, b); }

static_assert(sizeof(GUID) == 16);
static_assert(offsetof(GUID, Data2) == 4 && offsetof(GUID, Data3) == 6 && offsetof(GUID, Data4) == 8);
static_assert(sizeof(ULONG) == 4 && sizeof(UINT_PTR) == 8 && sizeof(WCHAR) == 2);

// Runtime object identifiers.
using ProcessID = UINT_PTR;
using AssemblyID = UINT_PTR;
using AppDomainID = UINT_PTR;
using ModuleID = UINT_PTR;
using ClassID = UINT_PTR;
using ThreadID = UINT_PTR;
using ContextID = UINT_PTR;
using FunctionID = UINT_PTR;
using ObjectID = UINT_PTR;
using GCHandleID = UINT_PTR;
using COR_PRF_ELT_INFO = UINT_PTR;
using ReJITID = UINT_PTR;
using COR_PRF_FRAME_INFO = UINT_PTR;
using EVENTPIPE_PROVIDER = UINT_PTR;
using EVENTPIPE_EVENT = UINT_PTR;
using EVENTPIPE_SESSION = UINT64;
using ObjectHandleID = void**;
union FunctionIDOrClientID {
    FunctionID functionID;
    UINT_PTR clientID;
};

// Metadata tokens: table in the top byte, row in the low three.
using mdToken = uint32_t;
using mdModule = mdToken;
using mdTypeRef = mdToken;
using mdTypeDef = mdToken;
using mdFieldDef = mdToken;
using mdMethodDef = mdToken;
using mdParamDef = mdToken;
using mdInterfaceImpl = mdToken;
using mdMemberRef = mdToken;
using mdCustomAttribute = mdToken;
using mdPermission = mdToken;
using mdSignature = mdToken;
using mdEvent = mdToken;
using mdProperty = mdToken;
using mdModuleRef = mdToken;
using mdAssembly = mdToken;
using mdAssemblyRef = mdToken;
using mdFile = mdToken;
using mdExportedType = mdToken;
using mdManifestResource = mdToken;
using mdTypeSpec = mdToken;
using mdGenericParam = mdToken;
using mdMethodSpec = mdToken;
using mdGenericParamConstraint = mdToken;
using mdString = mdToken;
using mdCPToken = mdToken;
using RID = uint32_t;
using HCORENUM = void*;
using COR_SIGNATURE = uint8_t;
using PCOR_SIGNATURE = uint8_t*;
using PCCOR_SIGNATURE = const uint8_t*;
using MDUTF8CSTR = const char*;
using UVCP_CONSTANT = const void*;
