// The runtime's metadata interfaces: the dispenser that opens scopes, and the
// import and emit views of a module's metadata. Binary layouts: pure virtual
// methods in slot order, nothing else.
#pragma once

#include "runtime/CorMetadataEnums.h"
#include "runtime/MetaDataStructs.h"
#include "runtime/Unknown.h"

struct IMetaDataDispenser : public IUnknown {
    virtual HRESULT DefineScope(REFCLSID rclsid, DWORD dwCreateFlags, REFIID riid, IUnknown** ppIUnk) = 0;
    virtual HRESULT OpenScope(LPCWSTR szScope, DWORD dwOpenFlags, REFIID riid, IUnknown** ppIUnk) = 0;
    virtual HRESULT OpenScopeOnMemory(LPCVOID pData, ULONG cbData, DWORD dwOpenFlags, REFIID riid,
                                      IUnknown** ppIUnk) = 0;
};

struct IMetaDataDispenserEx : public IMetaDataDispenser {
    virtual HRESULT SetOption(REFGUID optionid, const VARIANT* value) = 0;
    virtual HRESULT GetOption(REFGUID optionid, VARIANT* pvalue) = 0;
    virtual HRESULT OpenScopeOnITypeInfo(ITypeInfo* pITI, DWORD dwOpenFlags, REFIID riid, IUnknown** ppIUnk) = 0;
    virtual HRESULT GetCORSystemDirectory(LPWSTR szBuffer, DWORD cchBuffer, DWORD* pchBuffer) = 0;
    // szName is an output buffer although the runtime declares it const.
    virtual HRESULT FindAssembly(LPCWSTR szAppBase, LPCWSTR szPrivateBin, LPCWSTR szGlobalBin,
                                 LPCWSTR szAssemblyName, LPCWSTR szName, ULONG cchName, ULONG* pcName) = 0;
    virtual HRESULT FindAssemblyModule(LPCWSTR szAppBase, LPCWSTR szPrivateBin, LPCWSTR szGlobalBin,
                                       LPCWSTR szAssemblyName, LPCWSTR szModuleName, LPWSTR szName, ULONG cchName,
                                       ULONG* pcName) = 0;
};

struct IMetaDataImport : public IUnknown {
    virtual void CloseEnum(HCORENUM hEnum) = 0;
    virtual HRESULT CountEnum(HCORENUM hEnum, ULONG* pulCount) = 0;
    virtual HRESULT ResetEnum(HCORENUM hEnum, ULONG ulPos) = 0;
    virtual HRESULT EnumTypeDefs(HCORENUM* phEnum, mdTypeDef rTypeDefs[], ULONG cMax, ULONG* pcTypeDefs) = 0;
    virtual HRESULT EnumInterfaceImpls(HCORENUM* phEnum, mdTypeDef td, mdInterfaceImpl rImpls[], ULONG cMax,
                                       ULONG* pcImpls) = 0;
    virtual HRESULT EnumTypeRefs(HCORENUM* phEnum, mdTypeRef rTypeRefs[], ULONG cMax, ULONG* pcTypeRefs) = 0;
    virtual HRESULT FindTypeDefByName(LPCWSTR szTypeDef, mdToken tkEnclosingClass, mdTypeDef* ptd) = 0;
    virtual HRESULT GetScopeProps(LPWSTR szName, ULONG cchName, ULONG* pchName, GUID* pmvid) = 0;
    virtual HRESULT GetModuleFromScope(mdModule* pmd) = 0;
    virtual HRESULT GetTypeDefProps(mdTypeDef td, LPWSTR szTypeDef, ULONG cchTypeDef, ULONG* pchTypeDef,
                                    DWORD* pdwTypeDefFlags, mdToken* ptkExtends) = 0;
    virtual HRESULT GetInterfaceImplProps(mdInterfaceImpl iiImpl, mdTypeDef* pClass, mdToken* ptkIface) = 0;
    virtual HRESULT GetTypeRefProps(mdTypeRef tr, mdToken* ptkResolutionScope, LPWSTR szName, ULONG cchName,
                                    ULONG* pchName) = 0;
    virtual HRESULT ResolveTypeRef(mdTypeRef tr, REFIID riid, IUnknown** ppIScope, mdTypeDef* ptd) = 0;
    virtual HRESULT EnumMembers(HCORENUM* phEnum, mdTypeDef cl, mdToken rMembers[], ULONG cMax,
                                ULONG* pcTokens) = 0;
    virtual HRESULT EnumMembersWithName(HCORENUM* phEnum, mdTypeDef cl, LPCWSTR szName, mdToken rMembers[],
                                        ULONG cMax, ULONG* pcTokens) = 0;
    virtual HRESULT EnumMethods(HCORENUM* phEnum, mdTypeDef cl, mdMethodDef rMethods[], ULONG cMax,
                                ULONG* pcTokens) = 0;
    virtual HRESULT EnumMethodsWithName(HCORENUM* phEnum, mdTypeDef cl, LPCWSTR szName, mdMethodDef rMethods[],
                                        ULONG cMax, ULONG* pcTokens) = 0;
    virtual HRESULT EnumFields(HCORENUM* phEnum, mdTypeDef cl, mdFieldDef rFields[], ULONG cMax,
                               ULONG* pcTokens) = 0;
    virtual HRESULT EnumFieldsWithName(HCORENUM* phEnum, mdTypeDef cl, LPCWSTR szName, mdFieldDef rFields[],
                                       ULONG cMax, ULONG* pcTokens) = 0;
    virtual HRESULT EnumParams(HCORENUM* phEnum, mdMethodDef mb, mdParamDef rParams[], ULONG cMax,
                               ULONG* pcTokens) = 0;
    virtual HRESULT EnumMemberRefs(HCORENUM* phEnum, mdToken tkParent, mdMemberRef rMemberRefs[], ULONG cMax,
                                   ULONG* pcTokens) = 0;
    virtual HRESULT EnumMethodImpls(HCORENUM* phEnum, mdTypeDef td, mdToken rMethodBody[], mdToken rMethodDecl[],
                                    ULONG cMax, ULONG* pcTokens) = 0;
    virtual HRESULT EnumPermissionSets(HCORENUM* phEnum, mdToken tk, DWORD dwActions, mdPermission rPermission[],
                                       ULONG cMax, ULONG* pcTokens) = 0;
    virtual HRESULT FindMember(mdTypeDef td, LPCWSTR szName, PCCOR_SIGNATURE pvSigBlob, ULONG cbSigBlob,
                               mdToken* pmb) = 0;
    virtual HRESULT FindMethod(mdTypeDef td, LPCWSTR szName, PCCOR_SIGNATURE pvSigBlob, ULONG cbSigBlob,
                               mdMethodDef* pmb) = 0;
    virtual HRESULT FindField(mdTypeDef td, LPCWSTR szName, PCCOR_SIGNATURE pvSigBlob, ULONG cbSigBlob,
                              mdFieldDef* pmb) = 0;
    virtual HRESULT FindMemberRef(mdTypeRef td, LPCWSTR szName, PCCOR_SIGNATURE pvSigBlob, ULONG cbSigBlob,
                                  mdMemberRef* pmr) = 0;
    virtual HRESULT GetMethodProps(mdMethodDef mb, mdTypeDef* pClass, LPWSTR szMethod, ULONG cchMethod,
                                   ULONG* pchMethod, DWORD* pdwAttr, PCCOR_SIGNATURE* ppvSigBlob, ULONG* pcbSigBlob,
                                   ULONG* pulCodeRVA, DWORD* pdwImplFlags) = 0;
    virtual HRESULT GetMemberRefProps(mdMemberRef mr, mdToken* ptk, LPWSTR szMember, ULONG cchMember,
                                      ULONG* pchMember, PCCOR_SIGNATURE* ppvSigBlob, ULONG* pbSig) = 0;
    virtual HRESULT EnumProperties(HCORENUM* phEnum, mdTypeDef td, mdProperty rProperties[], ULONG cMax,
                                   ULONG* pcProperties) = 0;
    virtual HRESULT EnumEvents(HCORENUM* phEnum, mdTypeDef td, mdEvent rEvents[], ULONG cMax, ULONG* pcEvents) = 0;
    // szEvent is an output buffer although the runtime declares it const.
    virtual HRESULT GetEventProps(mdEvent ev, mdTypeDef* pClass, LPCWSTR szEvent, ULONG cchEvent, ULONG* pchEvent,
                                  DWORD* pdwEventFlags, mdToken* ptkEventType, mdMethodDef* pmdAddOn,
                                  mdMethodDef* pmdRemoveOn, mdMethodDef* pmdFire, mdMethodDef rmdOtherMethod[],
                                  ULONG cMax, ULONG* pcOtherMethod) = 0;
    virtual HRESULT EnumMethodSemantics(HCORENUM* phEnum, mdMethodDef mb, mdToken rEventProp[], ULONG cMax,
                                        ULONG* pcEventProp) = 0;
    virtual HRESULT GetMethodSemantics(mdMethodDef mb, mdToken tkEventProp, DWORD* pdwSemanticsFlags) = 0;
    virtual HRESULT GetClassLayout(mdTypeDef td, DWORD* pdwPackSize, COR_FIELD_OFFSET rFieldOffset[], ULONG cMax,
                                   ULONG* pcFieldOffset, ULONG* pulClassSize) = 0;
    virtual HRESULT GetFieldMarshal(mdToken tk, PCCOR_SIGNATURE* ppvNativeType, ULONG* pcbNativeType) = 0;
    virtual HRESULT GetRVA(mdToken tk, ULONG* pulCodeRVA, DWORD* pdwImplFlags) = 0;
    virtual HRESULT GetPermissionSetProps(mdPermission pm, DWORD* pdwAction, void const** ppvPermission,
                                          ULONG* pcbPermission) = 0;
    virtual HRESULT GetSigFromToken(mdSignature mdSig, PCCOR_SIGNATURE* ppvSig, ULONG* pcbSig) = 0;
    virtual HRESULT GetModuleRefProps(mdModuleRef mur, LPWSTR szName, ULONG cchName, ULONG* pchName) = 0;
    virtual HRESULT EnumModuleRefs(HCORENUM* phEnum, mdModuleRef rModuleRefs[], ULONG cmax,
                                   ULONG* pcModuleRefs) = 0;
    virtual HRESULT GetTypeSpecFromToken(mdTypeSpec typespec, PCCOR_SIGNATURE* ppvSig, ULONG* pcbSig) = 0;
    virtual HRESULT GetNameFromToken(mdToken tk, MDUTF8CSTR* pszUtf8NamePtr) = 0;
    virtual HRESULT EnumUnresolvedMethods(HCORENUM* phEnum, mdToken rMethods[], ULONG cMax, ULONG* pcTokens) = 0;
    virtual HRESULT GetUserString(mdString stk, LPWSTR szString, ULONG cchString, ULONG* pchString) = 0;
    virtual HRESULT GetPinvokeMap(mdToken tk, DWORD* pdwMappingFlags, LPWSTR szImportName, ULONG cchImportName,
                                  ULONG* pchImportName, mdModuleRef* pmrImportDLL) = 0;
    virtual HRESULT EnumSignatures(HCORENUM* phEnum, mdSignature rSignatures[], ULONG cmax,
                                   ULONG* pcSignatures) = 0;
    virtual HRESULT EnumTypeSpecs(HCORENUM* phEnum, mdTypeSpec rTypeSpecs[], ULONG cmax, ULONG* pcTypeSpecs) = 0;
    virtual HRESULT EnumUserStrings(HCORENUM* phEnum, mdString rStrings[], ULONG cmax, ULONG* pcStrings) = 0;
    virtual HRESULT GetParamForMethodIndex(mdMethodDef md, ULONG ulParamSeq, mdParamDef* ppd) = 0;
    virtual HRESULT EnumCustomAttributes(HCORENUM* phEnum, mdToken tk, mdToken tkType,
                                         mdCustomAttribute rCustomAttributes[], ULONG cMax,
                                         ULONG* pcCustomAttributes) = 0;
    virtual HRESULT GetCustomAttributeProps(mdCustomAttribute cv, mdToken* ptkObj, mdToken* ptkType,
                                            void const** ppBlob, ULONG* pcbSize) = 0;
    virtual HRESULT FindTypeRef(mdToken tkResolutionScope, LPCWSTR szName, mdTypeRef* ptr) = 0;
    virtual HRESULT GetMemberProps(mdToken mb, mdTypeDef* pClass, LPWSTR szMember, ULONG cchMember,
                                   ULONG* pchMember, DWORD* pdwAttr, PCCOR_SIGNATURE* ppvSigBlob, ULONG* pcbSigBlob,
                                   ULONG* pulCodeRVA, DWORD* pdwImplFlags, DWORD* pdwCPlusTypeFlag,
                                   UVCP_CONSTANT* ppValue, ULONG* pcchValue) = 0;
    virtual HRESULT GetFieldProps(mdFieldDef mb, mdTypeDef* pClass, LPWSTR szField, ULONG cchField,
                                  ULONG* pchField, DWORD* pdwAttr, PCCOR_SIGNATURE* ppvSigBlob, ULONG* pcbSigBlob,
                                  DWORD* pdwCPlusTypeFlag, UVCP_CONSTANT* ppValue, ULONG* pcchValue) = 0;
    // szProperty is an output buffer although the runtime declares it const.
    virtual HRESULT GetPropertyProps(mdProperty prop, mdTypeDef* pClass, LPCWSTR szProperty, ULONG cchProperty,
                                     ULONG* pchProperty, DWORD* pdwPropFlags, PCCOR_SIGNATURE* ppvSig, ULONG* pbSig,
                                     DWORD* pdwCPlusTypeFlag, UVCP_CONSTANT* ppDefaultValue,
                                     ULONG* pcchDefaultValue, mdMethodDef* pmdSetter, mdMethodDef* pmdGetter,
                                     mdMethodDef rmdOtherMethod[], ULONG cMax, ULONG* pcOtherMethod) = 0;
    virtual HRESULT GetParamProps(mdParamDef tk, mdMethodDef* pmd, ULONG* pulSequence, LPWSTR szName,
                                  ULONG cchName, ULONG* pchName, DWORD* pdwAttr, DWORD* pdwCPlusTypeFlag,
                                  UVCP_CONSTANT* ppValue, ULONG* pcchValue) = 0;
    virtual HRESULT GetCustomAttributeByName(mdToken tkObj, LPCWSTR szName, const void** ppData,
                                             ULONG* pcbData) = 0;
    virtual BOOL IsValidToken(mdToken tk) = 0;
    virtual HRESULT GetNestedClassProps(mdTypeDef tdNestedClass, mdTypeDef* ptdEnclosingClass) = 0;
    virtual HRESULT GetNativeCallConvFromSig(void const* pvSig, ULONG cbSig, ULONG* pCallConv) = 0;
    virtual HRESULT IsGlobal(mdToken pd, int* pbGlobal) = 0;
};

struct IMetaDataImport2 : public IMetaDataImport {
    virtual HRESULT EnumGenericParams(HCORENUM* phEnum, mdToken tk, mdGenericParam rGenericParams[], ULONG cMax,
                                      ULONG* pcGenericParams) = 0;
    virtual HRESULT GetGenericParamProps(mdGenericParam gp, ULONG* pulParamSeq, DWORD* pdwParamFlags,
                                         mdToken* ptOwner, DWORD* reserved, LPWSTR wzname, ULONG cchName,
                                         ULONG* pchName) = 0;
    virtual HRESULT GetMethodSpecProps(mdMethodSpec mi, mdToken* tkParent, PCCOR_SIGNATURE* ppvSigBlob,
                                       ULONG* pcbSigBlob) = 0;
    virtual HRESULT EnumGenericParamConstraints(HCORENUM* phEnum, mdGenericParam tk,
                                                mdGenericParamConstraint rGenericParamConstraints[], ULONG cMax,
                                                ULONG* pcGenericParamConstraints) = 0;
    virtual HRESULT GetGenericParamConstraintProps(mdGenericParamConstraint gpc, mdGenericParam* ptGenericParam,
                                                   mdToken* ptkConstraintType) = 0;
    virtual HRESULT GetPEKind(DWORD* pdwPEKind, DWORD* pdwMAchine) = 0;
    virtual HRESULT GetVersionString(LPWSTR pwzBuf, DWORD ccBufSize, DWORD* pccBufSize) = 0;
    virtual HRESULT EnumMethodSpecs(HCORENUM* phEnum, mdToken tk, mdMethodSpec rMethodSpecs[], ULONG cMax,
                                    ULONG* pcMethodSpecs) = 0;
};

struct IMetaDataAssemblyImport : public IUnknown {
    virtual HRESULT GetAssemblyProps(mdAssembly mda, const void** ppbPublicKey, ULONG* pcbPublicKey,
                                     ULONG* pulHashAlgId, LPWSTR szName, ULONG cchName, ULONG* pchName,
                                     ASSEMBLYMETADATA* pMetaData, DWORD* pdwAssemblyFlags) = 0;
    virtual HRESULT GetAssemblyRefProps(mdAssemblyRef mdar, const void** ppbPublicKeyOrToken,
                                        ULONG* pcbPublicKeyOrToken, LPWSTR szName, ULONG cchName, ULONG* pchName,
                                        ASSEMBLYMETADATA* pMetaData, const void** ppbHashValue,
                                        ULONG* pcbHashValue, DWORD* pdwAssemblyRefFlags) = 0;
    virtual HRESULT GetFileProps(mdFile mdf, LPWSTR szName, ULONG cchName, ULONG* pchName,
                                 const void** ppbHashValue, ULONG* pcbHashValue, DWORD* pdwFileFlags) = 0;
    virtual HRESULT GetExportedTypeProps(mdExportedType mdct, LPWSTR szName, ULONG cchName, ULONG* pchName,
                                         mdToken* ptkImplementation, mdTypeDef* ptkTypeDef,
                                         DWORD* pdwExportedTypeFlags) = 0;
    virtual HRESULT GetManifestResourceProps(mdManifestResource mdmr, LPWSTR szName, ULONG cchName,
                                             ULONG* pchName, mdToken* ptkImplementation, DWORD* pdwOffset,
                                             DWORD* pdwResourceFlags) = 0;
    virtual HRESULT EnumAssemblyRefs(HCORENUM* phEnum, mdAssemblyRef rAssemblyRefs[], ULONG cMax,
                                     ULONG* pcTokens) = 0;
    virtual HRESULT EnumFiles(HCORENUM* phEnum, mdFile rFiles[], ULONG cMax, ULONG* pcTokens) = 0;
    virtual HRESULT EnumExportedTypes(HCORENUM* phEnum, mdExportedType rExportedTypes[], ULONG cMax,
                                      ULONG* pcTokens) = 0;
    virtual HRESULT EnumManifestResources(HCORENUM* phEnum, mdManifestResource rManifestResources[], ULONG cMax,
                                          ULONG* pcTokens) = 0;
    virtual HRESULT GetAssemblyFromScope(mdAssembly* ptkAssembly) = 0;
    virtual HRESULT FindExportedTypeByName(LPCWSTR szName, mdToken mdtExportedType,
                                           mdExportedType* ptkExportedType) = 0;
    virtual HRESULT FindManifestResourceByName(LPCWSTR szName, mdManifestResource* ptkManifestResource) = 0;
    virtual void CloseEnum(HCORENUM hEnum) = 0;
    virtual HRESULT FindAssembliesByName(LPCWSTR szAppBase, LPCWSTR szPrivateBin, LPCWSTR szAssemblyName,
                                         IUnknown* ppIUnk[], ULONG cMax, ULONG* pcAssemblies) = 0;
};

// Raw rows and heaps of a scope. Strings come as UTF-8 from the heap itself.
struct IMetaDataTables : public IUnknown {
    virtual HRESULT GetStringHeapSize(ULONG* pcbStrings) = 0;
    virtual HRESULT GetBlobHeapSize(ULONG* pcbBlobs) = 0;
    virtual HRESULT GetGuidHeapSize(ULONG* pcbGuids) = 0;
    virtual HRESULT GetUserStringHeapSize(ULONG* pcbBlobs) = 0;
    virtual HRESULT GetNumTables(ULONG* pcTables) = 0;
    virtual HRESULT GetTableIndex(ULONG token, ULONG* pixTbl) = 0;
    virtual HRESULT GetTableInfo(ULONG ixTbl, ULONG* pcbRow, ULONG* pcRows, ULONG* pcCols, ULONG* piKey,
                                 const char** ppName) = 0;
    virtual HRESULT GetColumnInfo(ULONG ixTbl, ULONG ixCol, ULONG* poCol, ULONG* pcbCol, ULONG* pType,
                                  const char** ppName) = 0;
    virtual HRESULT GetCodedTokenInfo(ULONG ixCdTkn, ULONG* pcTokens, ULONG** ppTokens, const char** ppName) = 0;
    virtual HRESULT GetRow(ULONG ixTbl, ULONG rid, void** ppRow) = 0;
    virtual HRESULT GetColumn(ULONG ixTbl, ULONG ixCol, ULONG rid, ULONG* pVal) = 0;
    virtual HRESULT GetString(ULONG ixString, const char** ppString) = 0;
    virtual HRESULT GetBlob(ULONG ixBlob, ULONG* pcbData, const void** ppData) = 0;
    virtual HRESULT GetGuid(ULONG ixGuid, const GUID** ppGUID) = 0;
    virtual HRESULT GetUserString(ULONG ixUserString, ULONG* pcbData, const void** ppData) = 0;
    virtual HRESULT GetNextString(ULONG ixString, ULONG* pNext) = 0;
    virtual HRESULT GetNextBlob(ULONG ixBlob, ULONG* pNext) = 0;
    virtual HRESULT GetNextGuid(ULONG ixGuid, ULONG* pNext) = 0;
    virtual HRESULT GetNextUserString(ULONG ixUserString, ULONG* pNext) = 0;
};

struct IMetaDataAssemblyEmit;

struct IMetaDataEmit : public IUnknown {
    virtual HRESULT SetModuleProps(LPCWSTR szName) = 0;
    virtual HRESULT Save(LPCWSTR szFile, DWORD dwSaveFlags) = 0;
    virtual HRESULT SaveToStream(IStream* pIStream, DWORD dwSaveFlags) = 0;
    virtual HRESULT GetSaveSize(CorSaveSize fSave, DWORD* pdwSaveSize) = 0;
    // rtkImplements has no count: it ends with mdTokenNil.
    virtual HRESULT DefineTypeDef(LPCWSTR szTypeDef, DWORD dwTypeDefFlags, mdToken tkExtends,
                                  mdToken rtkImplements[], mdTypeDef* ptd) = 0;
    virtual HRESULT DefineNestedType(LPCWSTR szTypeDef, DWORD dwTypeDefFlags, mdToken tkExtends,
                                     mdToken rtkImplements[], mdTypeDef tdEncloser, mdTypeDef* ptd) = 0;
    virtual HRESULT SetHandler(IUnknown* pUnk) = 0;
    virtual HRESULT DefineMethod(mdTypeDef td, LPCWSTR szName, DWORD dwMethodFlags, PCCOR_SIGNATURE pvSigBlob,
                                 ULONG cbSigBlob, ULONG ulCodeRVA, DWORD dwImplFlags, mdMethodDef* pmd) = 0;
    virtual HRESULT DefineMethodImpl(mdTypeDef td, mdToken tkBody, mdToken tkDecl) = 0;
    virtual HRESULT DefineTypeRefByName(mdToken tkResolutionScope, LPCWSTR szName, mdTypeRef* ptr) = 0;
    virtual HRESULT DefineImportType(IMetaDataAssemblyImport* pAssemImport, const void* pbHashValue,
                                     ULONG cbHashValue, IMetaDataImport* pImport, mdTypeDef tdImport,
                                     IMetaDataAssemblyEmit* pAssemEmit, mdTypeRef* ptr) = 0;
    virtual HRESULT DefineMemberRef(mdToken tkImport, LPCWSTR szName, PCCOR_SIGNATURE pvSigBlob, ULONG cbSigBlob,
                                    mdMemberRef* pmr) = 0;
    virtual HRESULT DefineImportMember(IMetaDataAssemblyImport* pAssemImport, const void* pbHashValue,
                                       ULONG cbHashValue, IMetaDataImport* pImport, mdToken mbMember,
                                       IMetaDataAssemblyEmit* pAssemEmit, mdToken tkParent, mdMemberRef* pmr) = 0;
    virtual HRESULT DefineEvent(mdTypeDef td, LPCWSTR szEvent, DWORD dwEventFlags, mdToken tkEventType,
                                mdMethodDef mdAddOn, mdMethodDef mdRemoveOn, mdMethodDef mdFire,
                                mdMethodDef rmdOtherMethods[], mdEvent* pmdEvent) = 0;
    virtual HRESULT SetClassLayout(mdTypeDef td, DWORD dwPackSize, COR_FIELD_OFFSET rFieldOffsets[],
                                   ULONG ulClassSize) = 0;
    virtual HRESULT DeleteClassLayout(mdTypeDef td) = 0;
    virtual HRESULT SetFieldMarshal(mdToken tk, PCCOR_SIGNATURE pvNativeType, ULONG cbNativeType) = 0;
    virtual HRESULT DeleteFieldMarshal(mdToken tk) = 0;
    virtual HRESULT DefinePermissionSet(mdToken tk, DWORD dwAction, void const* pvPermission, ULONG cbPermission,
                                        mdPermission* ppm) = 0;
    virtual HRESULT SetRVA(mdMethodDef md, ULONG ulRVA) = 0;
    virtual HRESULT GetTokenFromSig(PCCOR_SIGNATURE pvSig, ULONG cbSig, mdSignature* pmsig) = 0;
    virtual HRESULT DefineModuleRef(LPCWSTR szName, mdModuleRef* pmur) = 0;
    virtual HRESULT SetParent(mdMemberRef mr, mdToken tk) = 0;
    virtual HRESULT GetTokenFromTypeSpec(PCCOR_SIGNATURE pvSig, ULONG cbSig, mdTypeSpec* ptypespec) = 0;
    virtual HRESULT SaveToMemory(void* pbData, ULONG cbData) = 0;
    virtual HRESULT DefineUserString(LPCWSTR szString, ULONG cchString, mdString* pstk) = 0;
    virtual HRESULT DeleteToken(mdToken tkObj) = 0;
    virtual HRESULT SetMethodProps(mdMethodDef md, DWORD dwMethodFlags, ULONG ulCodeRVA, DWORD dwImplFlags) = 0;
    virtual HRESULT SetTypeDefProps(mdTypeDef td, DWORD dwTypeDefFlags, mdToken tkExtends,
                                    mdToken rtkImplements[]) = 0;
    virtual HRESULT SetEventProps(mdEvent ev, DWORD dwEventFlags, mdToken tkEventType, mdMethodDef mdAddOn,
                                  mdMethodDef mdRemoveOn, mdMethodDef mdFire, mdMethodDef rmdOtherMethods[]) = 0;
    virtual HRESULT SetPermissionSetProps(mdToken tk, DWORD dwAction, void const* pvPermission, ULONG cbPermission,
                                          mdPermission* ppm) = 0;
    virtual HRESULT DefinePinvokeMap(mdToken tk, DWORD dwMappingFlags, LPCWSTR szImportName,
                                     mdModuleRef mrImportDLL) = 0;
    virtual HRESULT SetPinvokeMap(mdToken tk, DWORD dwMappingFlags, LPCWSTR szImportName,
                                  mdModuleRef mrImportDLL) = 0;
    virtual HRESULT DeletePinvokeMap(mdToken tk) = 0;
    virtual HRESULT DefineCustomAttribute(mdToken tkOwner, mdToken tkCtor, void const* pCustomAttribute,
                                          ULONG cbCustomAttribute, mdCustomAttribute* pcv) = 0;
    virtual HRESULT SetCustomAttributeValue(mdCustomAttribute pcv, void const* pCustomAttribute,
                                            ULONG cbCustomAttribute) = 0;
    // cchValue counts WCHARs for string constants.
    virtual HRESULT DefineField(mdTypeDef td, LPCWSTR szName, DWORD dwFieldFlags, PCCOR_SIGNATURE pvSigBlob,
                                ULONG cbSigBlob, DWORD dwCPlusTypeFlag, void const* pValue, ULONG cchValue,
                                mdFieldDef* pmd) = 0;
    virtual HRESULT DefineProperty(mdTypeDef td, LPCWSTR szProperty, DWORD dwPropFlags, PCCOR_SIGNATURE pvSig,
                                   ULONG cbSig, DWORD dwCPlusTypeFlag, void const* pValue, ULONG cchValue,
                                   mdMethodDef mdSetter, mdMethodDef mdGetter, mdMethodDef rmdOtherMethods[],
                                   mdProperty* pmdProp) = 0;
    virtual HRESULT DefineParam(mdMethodDef md, ULONG ulParamSeq, LPCWSTR szName, DWORD dwParamFlags,
                                DWORD dwCPlusTypeFlag, void const* pValue, ULONG cchValue, mdParamDef* ppd) = 0;
    virtual HRESULT SetFieldProps(mdFieldDef fd, DWORD dwFieldFlags, DWORD dwCPlusTypeFlag, void const* pValue,
                                  ULONG cchValue) = 0;
    virtual HRESULT SetPropertyProps(mdProperty pr, DWORD dwPropFlags, DWORD dwCPlusTypeFlag, void const* pValue,
                                     ULONG cchValue, mdMethodDef mdSetter, mdMethodDef mdGetter,
                                     mdMethodDef rmdOtherMethods[]) = 0;
    virtual HRESULT SetParamProps(mdParamDef pd, LPCWSTR szName, DWORD dwParamFlags, DWORD dwCPlusTypeFlag,
                                  void const* pValue, ULONG cchValue) = 0;
    virtual HRESULT DefineSecurityAttributeSet(mdToken tkObj, COR_SECATTR rSecAttrs[], ULONG cSecAttrs,
                                               ULONG* pulErrorAttr) = 0;
    virtual HRESULT ApplyEditAndContinue(IUnknown* pImport) = 0;
    virtual HRESULT TranslateSigWithScope(IMetaDataAssemblyImport* pAssemImport, const void* pbHashValue,
                                          ULONG cbHashValue, IMetaDataImport* import, PCCOR_SIGNATURE pbSigBlob,
                                          ULONG cbSigBlob, IMetaDataAssemblyEmit* pAssemEmit, IMetaDataEmit* emit,
                                          PCOR_SIGNATURE pvTranslatedSig, ULONG cbTranslatedSigMax,
                                          ULONG* pcbTranslatedSig) = 0;
    virtual HRESULT SetMethodImplFlags(mdMethodDef md, DWORD dwImplFlags) = 0;
    virtual HRESULT SetFieldRVA(mdFieldDef fd, ULONG ulRVA) = 0;
    virtual HRESULT Merge(IMetaDataImport* pImport, IMapToken* pHostMapToken, IUnknown* pHandler) = 0;
    virtual HRESULT MergeEnd() = 0;
};

struct IMetaDataEmit2 : public IMetaDataEmit {
    virtual HRESULT DefineMethodSpec(mdToken tkParent, PCCOR_SIGNATURE pvSigBlob, ULONG cbSigBlob,
                                     mdMethodSpec* pmi) = 0;
    virtual HRESULT GetDeltaSaveSize(CorSaveSize fSave, DWORD* pdwSaveSize) = 0;
    virtual HRESULT SaveDelta(LPCWSTR szFile, DWORD dwSaveFlags) = 0;
    virtual HRESULT SaveDeltaToStream(IStream* pIStream, DWORD dwSaveFlags) = 0;
    virtual HRESULT SaveDeltaToMemory(void* pbData, ULONG cbData) = 0;
    virtual HRESULT DefineGenericParam(mdToken tk, ULONG ulParamSeq, DWORD dwParamFlags, LPCWSTR szname,
                                       DWORD reserved, mdToken rtkConstraints[], mdGenericParam* pgp) = 0;
    virtual HRESULT SetGenericParamProps(mdGenericParam gp, DWORD dwParamFlags, LPCWSTR szName, DWORD reserved,
                                         mdToken rtkConstraints[]) = 0;
    virtual HRESULT ResetENCLog() = 0;
};

struct IMetaDataAssemblyEmit : public IUnknown {
    virtual HRESULT DefineAssembly(const void* pbPublicKey, ULONG cbPublicKey, ULONG ulHashAlgId, LPCWSTR szName,
                                   const ASSEMBLYMETADATA* pMetaData, DWORD dwAssemblyFlags, mdAssembly* pma) = 0;
    virtual HRESULT DefineAssemblyRef(const void* pbPublicKeyOrToken, ULONG cbPublicKeyOrToken, LPCWSTR szName,
                                      const ASSEMBLYMETADATA* pMetaData, const void* pbHashValue,
                                      ULONG cbHashValue, DWORD dwAssemblyRefFlags, mdAssemblyRef* pmdar) = 0;
    virtual HRESULT DefineFile(LPCWSTR szName, const void* pbHashValue, ULONG cbHashValue, DWORD dwFileFlags,
                               mdFile* pmdf) = 0;
    virtual HRESULT DefineExportedType(LPCWSTR szName, mdToken tkImplementation, mdTypeDef tkTypeDef,
                                       DWORD dwExportedTypeFlags, mdExportedType* pmdct) = 0;
    virtual HRESULT DefineManifestResource(LPCWSTR szName, mdToken tkImplementation, DWORD dwOffset,
                                           DWORD dwResourceFlags, mdManifestResource* pmdmr) = 0;
    virtual HRESULT SetAssemblyProps(mdAssembly pma, const void* pbPublicKey, ULONG cbPublicKey, ULONG ulHashAlgId,
                                     LPCWSTR szName, const ASSEMBLYMETADATA* pMetaData, DWORD dwAssemblyFlags) = 0;
    virtual HRESULT SetAssemblyRefProps(mdAssemblyRef ar, const void* pbPublicKeyOrToken, ULONG cbPublicKeyOrToken,
                                        LPCWSTR szName, const ASSEMBLYMETADATA* pMetaData, const void* pbHashValue,
                                        ULONG cbHashValue, DWORD dwAssemblyRefFlags) = 0;
    virtual HRESULT SetFileProps(mdFile file, const void* pbHashValue, ULONG cbHashValue, DWORD dwFileFlags) = 0;
    virtual HRESULT SetExportedTypeProps(mdExportedType ct, mdToken tkImplementation, mdTypeDef tkTypeDef,
                                         DWORD dwExportedTypeFlags) = 0;
    virtual HRESULT SetManifestResourceProps(mdManifestResource mr, mdToken tkImplementation, DWORD dwOffset,
                                             DWORD dwResourceFlags) = 0;
};
