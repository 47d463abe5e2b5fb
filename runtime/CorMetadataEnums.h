// Metadata token tables, element types, calling conventions and attribute flags
// of the runtime's metadata, with the token helpers.
#pragma once

#include "runtime/CorTypes.h"

enum CorTokenType : uint32_t {
    mdtModule = 0x00000000,
    mdtTypeRef = 0x01000000,
    mdtTypeDef = 0x02000000,
    mdtFieldDef = 0x04000000,
    mdtMethodDef = 0x06000000,
    mdtParamDef = 0x08000000,
    mdtInterfaceImpl = 0x09000000,
    mdtMemberRef = 0x0a000000,
    mdtCustomAttribute = 0x0c000000,
    mdtPermission = 0x0e000000,
    mdtSignature = 0x11000000,
    mdtEvent = 0x14000000,
    mdtProperty = 0x17000000,
    mdtMethodImpl = 0x19000000,
    mdtModuleRef = 0x1a000000,
    mdtTypeSpec = 0x1b000000,
    mdtAssembly = 0x20000000,
    mdtAssemblyRef = 0x23000000,
    mdtFile = 0x26000000,
    mdtExportedType = 0x27000000,
    mdtManifestResource = 0x28000000,
    mdtGenericParam = 0x2a000000,
    mdtMethodSpec = 0x2b000000,
    mdtGenericParamConstraint = 0x2c000000,
    mdtString = 0x70000000,
    mdtName = 0x71000000,
    mdtBaseType = 0x72000000,
};

constexpr mdToken mdTokenNil = 0;
constexpr mdTypeDef mdTypeDefNil = mdtTypeDef;
constexpr mdTypeRef mdTypeRefNil = mdtTypeRef;
constexpr mdMethodDef mdMethodDefNil = mdtMethodDef;
constexpr mdMemberRef mdMemberRefNil = mdtMemberRef;
constexpr mdFieldDef mdFieldDefNil = mdtFieldDef;
constexpr mdSignature mdSignatureNil = mdtSignature;
constexpr mdTypeSpec mdTypeSpecNil = mdtTypeSpec;
constexpr mdAssemblyRef mdAssemblyRefNil = mdtAssemblyRef;
constexpr mdModuleRef mdModuleRefNil = mdtModuleRef;
constexpr mdString mdStringNil = mdtString;

constexpr mdToken TokenFromRid(RID rid, uint32_t type) { return rid | type; }
constexpr RID RidFromToken(mdToken tk) { return tk & 0x00ffffff; }
constexpr uint32_t TypeFromToken(mdToken tk) { return tk & 0xff000000; }
constexpr bool IsNilToken(mdToken tk) { return RidFromToken(tk) == 0; }

enum CorOpenFlags : uint32_t {
    ofRead = 0x0,
    ofWrite = 0x1,
    ofReadWriteMask = 0x1,
    ofCopyMemory = 0x2,
    ofReadOnly = 0x10,
    ofTakeOwnership = 0x20,
    ofNoTypeLib = 0x80,
    ofNoTransform = 0x1000,
};

enum CorSaveSize : uint32_t { cssAccurate = 0, cssQuick = 1, cssDiscardTransientCAs = 2 };

enum CorElementType : uint32_t {
    ELEMENT_TYPE_END = 0x00,
    ELEMENT_TYPE_VOID = 0x01,
    ELEMENT_TYPE_BOOLEAN = 0x02,
    ELEMENT_TYPE_CHAR = 0x03,
    ELEMENT_TYPE_I1 = 0x04,
    ELEMENT_TYPE_U1 = 0x05,
    ELEMENT_TYPE_I2 = 0x06,
    ELEMENT_TYPE_U2 = 0x07,
    ELEMENT_TYPE_I4 = 0x08,
    ELEMENT_TYPE_U4 = 0x09,
    ELEMENT_TYPE_I8 = 0x0a,
    ELEMENT_TYPE_U8 = 0x0b,
    ELEMENT_TYPE_R4 = 0x0c,
    ELEMENT_TYPE_R8 = 0x0d,
    ELEMENT_TYPE_STRING = 0x0e,
    ELEMENT_TYPE_PTR = 0x0f,
    ELEMENT_TYPE_BYREF = 0x10,
    ELEMENT_TYPE_VALUETYPE = 0x11,
    ELEMENT_TYPE_CLASS = 0x12,
    ELEMENT_TYPE_VAR = 0x13,
    ELEMENT_TYPE_ARRAY = 0x14,
    ELEMENT_TYPE_GENERICINST = 0x15,
    ELEMENT_TYPE_TYPEDBYREF = 0x16,
    ELEMENT_TYPE_I = 0x18,
    ELEMENT_TYPE_U = 0x19,
    ELEMENT_TYPE_FNPTR = 0x1b,
    ELEMENT_TYPE_OBJECT = 0x1c,
    ELEMENT_TYPE_SZARRAY = 0x1d,
    ELEMENT_TYPE_MVAR = 0x1e,
    ELEMENT_TYPE_CMOD_REQD = 0x1f,
    ELEMENT_TYPE_CMOD_OPT = 0x20,
    ELEMENT_TYPE_INTERNAL = 0x21,
    ELEMENT_TYPE_MAX = 0x22,
    ELEMENT_TYPE_MODIFIER = 0x40,
    ELEMENT_TYPE_SENTINEL = 0x41,
    ELEMENT_TYPE_PINNED = 0x45,
};

enum CorCallingConvention : uint32_t {
    IMAGE_CEE_CS_CALLCONV_DEFAULT = 0x0,
    IMAGE_CEE_CS_CALLCONV_C = 0x1,
    IMAGE_CEE_CS_CALLCONV_STDCALL = 0x2,
    IMAGE_CEE_CS_CALLCONV_THISCALL = 0x3,
    IMAGE_CEE_CS_CALLCONV_FASTCALL = 0x4,
    IMAGE_CEE_CS_CALLCONV_VARARG = 0x5,
    IMAGE_CEE_CS_CALLCONV_FIELD = 0x6,
    IMAGE_CEE_CS_CALLCONV_LOCAL_SIG = 0x7,
    IMAGE_CEE_CS_CALLCONV_PROPERTY = 0x8,
    IMAGE_CEE_CS_CALLCONV_UNMANAGED = 0x9,
    IMAGE_CEE_CS_CALLCONV_GENERICINST = 0xa,
    IMAGE_CEE_CS_CALLCONV_NATIVEVARARG = 0xb,
    IMAGE_CEE_CS_CALLCONV_MAX = 0xc,
    IMAGE_CEE_CS_CALLCONV_MASK = 0x0f,
    IMAGE_CEE_CS_CALLCONV_HASTHIS = 0x20,
    IMAGE_CEE_CS_CALLCONV_EXPLICITTHIS = 0x40,
    IMAGE_CEE_CS_CALLCONV_GENERIC = 0x10,
};

enum CorTypeAttr : uint32_t {
    tdVisibilityMask = 0x7,
    tdNotPublic = 0x0,
    tdPublic = 0x1,
    tdNestedPublic = 0x2,
    tdNestedPrivate = 0x3,
    tdNestedFamily = 0x4,
    tdNestedAssembly = 0x5,
    tdNestedFamANDAssem = 0x6,
    tdNestedFamORAssem = 0x7,
    tdLayoutMask = 0x18,
    tdAutoLayout = 0x0,
    tdSequentialLayout = 0x8,
    tdExplicitLayout = 0x10,
    tdClassSemanticsMask = 0x20,
    tdClass = 0x0,
    tdInterface = 0x20,
    tdAbstract = 0x80,
    tdSealed = 0x100,
    tdSpecialName = 0x400,
    tdRTSpecialName = 0x800,
    tdImport = 0x1000,
    tdSerializable = 0x2000,
    tdWindowsRuntime = 0x4000,
    tdStringFormatMask = 0x30000,
    tdAnsiClass = 0x0,
    tdUnicodeClass = 0x10000,
    tdAutoClass = 0x20000,
    tdCustomFormatClass = 0x30000,
    tdHasSecurity = 0x40000,
    tdBeforeFieldInit = 0x100000,
    tdForwarder = 0x200000,
    tdCustomFormatMask = 0xC00000,
};

enum CorMethodAttr : uint32_t {
    mdMemberAccessMask = 0x7,
    mdPrivateScope = 0x0,
    mdPrivate = 0x1,
    mdFamANDAssem = 0x2,
    mdAssem = 0x3,
    mdFamily = 0x4,
    mdFamORAssem = 0x5,
    mdPublic = 0x6,
    mdUnmanagedExport = 0x8,
    mdStatic = 0x10,
    mdFinal = 0x20,
    mdVirtual = 0x40,
    mdHideBySig = 0x80,
    mdVtableLayoutMask = 0x100,
    mdReuseSlot = 0x0,
    mdNewSlot = 0x100,
    mdCheckAccessOnOverride = 0x200,
    mdAbstract = 0x400,
    mdSpecialName = 0x800,
    mdRTSpecialName = 0x1000,
    mdPinvokeImpl = 0x2000,
    mdHasSecurity = 0x4000,
    mdRequireSecObject = 0x8000,
};

enum CorMethodImpl : uint32_t {
    miCodeTypeMask = 0x3,
    miIL = 0x0,
    miNative = 0x1,
    miOPTIL = 0x2,
    miRuntime = 0x3,
    miManagedMask = 0x4,
    miUnmanaged = 0x4,
    miManaged = 0x0,
    miNoInlining = 0x8,
    miForwardRef = 0x10,
    miSynchronized = 0x20,
    miNoOptimization = 0x40,
    miPreserveSig = 0x80,
    miAggressiveInlining = 0x100,
    miAggressiveOptimization = 0x200,
    miInternalCall = 0x1000,
    miMaxMethodImplVal = 0xffff,
};

enum CorFieldAttr : uint32_t {
    fdFieldAccessMask = 0x7,
    fdPrivateScope = 0x0,
    fdPrivate = 0x1,
    fdFamANDAssem = 0x2,
    fdAssembly = 0x3,
    fdFamily = 0x4,
    fdFamORAssem = 0x5,
    fdPublic = 0x6,
    fdStatic = 0x10,
    fdInitOnly = 0x20,
    fdLiteral = 0x40,
    fdNotSerialized = 0x80,
    fdHasFieldRVA = 0x100,
    fdSpecialName = 0x200,
    fdRTSpecialName = 0x400,
    fdHasFieldMarshal = 0x1000,
    fdPinvokeImpl = 0x2000,
    fdHasDefault = 0x8000,
};

enum CorPinvokeMap : uint32_t {
    pmNoMangle = 0x1,
    pmCharSetMask = 0x6,
    pmCharSetNotSpec = 0x0,
    pmCharSetAnsi = 0x2,
    pmCharSetUnicode = 0x4,
    pmCharSetAuto = 0x6,
    pmSupportsLastError = 0x40,
    pmCallConvMask = 0x700,
    pmCallConvWinapi = 0x100,
    pmCallConvCdecl = 0x200,
    pmCallConvStdcall = 0x300,
    pmCallConvThiscall = 0x400,
    pmCallConvFastcall = 0x500,
};

enum CorAssemblyFlags : uint32_t {
    afPublicKey = 0x1,
    afRetargetable = 0x100,
    afContentType_WindowsRuntime = 0x200,
    afContentType_Mask = 0xE00,
};

enum CorParamAttr : uint32_t {
    pdIn = 0x1,
    pdOut = 0x2,
    pdOptional = 0x10,
    pdHasDefault = 0x1000,
    pdHasFieldMarshal = 0x2000,
};

enum CorGenericParamAttr : uint32_t {
    gpVarianceMask = 0x3,
    gpCovariant = 0x1,
    gpContravariant = 0x2,
    gpReferenceTypeConstraint = 0x4,
    gpNotNullableValueTypeConstraint = 0x8,
    gpDefaultConstructorConstraint = 0x10,
};
