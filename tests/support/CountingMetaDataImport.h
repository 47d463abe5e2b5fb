// An IMetaDataImport that forwards every call to a real one and counts the
// calls by method name, so that a test can tell whether the runtime was asked.
// Chosen lookups can be made to fail (FindMethod for a method name,
// FindTypeDefByName for a type name), and the type names looked up are kept.
// Reference counted like the runtime's own objects; other interfaces asked of
// it are the real object's, uncounted.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/AutoPointer.h"
#include "runtime/MetaDataInterfaces.h"

class CountingMetaDataImport final : public IMetaDataImport {
public:
    // Takes one reference of inner. The new object has one reference, the caller's.
    static CountingMetaDataImport* wrap(IMetaDataImport* inner);

    // From now on, lookups of this exact name fail with result.
    void failFindMethod(const std::u16string& name, HRESULT result) { methodFailures[name] = result; }
    void failFindTypeDefByName(const std::u16string& name, HRESULT result) { typeFailures[name] = result; }
    // Every name given to FindTypeDefByName, in order.
    const std::vector<std::u16string>& typeNamesSought() const { return soughtTypes; }

    // Calls of one method, or of all, since the last reset.
    int calls(const std::string& method) const;
    int totalCalls() const { return total; }
    void resetCalls();

    HRESULT QueryInterface(REFIID riid, void** ppvObject) override;
    ULONG AddRef() override;
    ULONG Release() override;

    void CloseEnum(HCORENUM hEnum) override {
        count("CloseEnum"); inner->CloseEnum(hEnum);
    }
    HRESULT CountEnum(HCORENUM hEnum, ULONG* pulCount) override {
        count("CountEnum"); return inner->CountEnum(hEnum, pulCount);
    }
    HRESULT ResetEnum(HCORENUM hEnum, ULONG ulPos) override {
        count("ResetEnum"); return inner->ResetEnum(hEnum, ulPos);
    }
    HRESULT EnumTypeDefs(HCORENUM* phEnum, mdTypeDef rTypeDefs[], ULONG cMax, ULONG* pcTypeDefs) override {
        count("EnumTypeDefs"); return inner->EnumTypeDefs(phEnum, rTypeDefs, cMax, pcTypeDefs);
    }
    HRESULT EnumInterfaceImpls(HCORENUM* phEnum, mdTypeDef td, mdInterfaceImpl rImpls[], ULONG cMax, ULONG* pcImpls) override {
        count("EnumInterfaceImpls"); return inner->EnumInterfaceImpls(phEnum, td, rImpls, cMax, pcImpls);
    }
    HRESULT EnumTypeRefs(HCORENUM* phEnum, mdTypeRef rTypeRefs[], ULONG cMax, ULONG* pcTypeRefs) override {
        count("EnumTypeRefs"); return inner->EnumTypeRefs(phEnum, rTypeRefs, cMax, pcTypeRefs);
    }
    HRESULT FindTypeDefByName(LPCWSTR szTypeDef, mdToken tkEnclosingClass, mdTypeDef* ptd) override;
    HRESULT GetScopeProps(LPWSTR szName, ULONG cchName, ULONG* pchName, GUID* pmvid) override {
        count("GetScopeProps"); return inner->GetScopeProps(szName, cchName, pchName, pmvid);
    }
    HRESULT GetModuleFromScope(mdModule* pmd) override {
        count("GetModuleFromScope"); return inner->GetModuleFromScope(pmd);
    }
    HRESULT GetTypeDefProps(mdTypeDef td, LPWSTR szTypeDef, ULONG cchTypeDef, ULONG* pchTypeDef, DWORD* pdwTypeDefFlags, mdToken* ptkExtends) override {
        count("GetTypeDefProps"); return inner->GetTypeDefProps(td, szTypeDef, cchTypeDef, pchTypeDef, pdwTypeDefFlags, ptkExtends);
    }
    HRESULT GetInterfaceImplProps(mdInterfaceImpl iiImpl, mdTypeDef* pClass, mdToken* ptkIface) override {
        count("GetInterfaceImplProps"); return inner->GetInterfaceImplProps(iiImpl, pClass, ptkIface);
    }
    HRESULT GetTypeRefProps(mdTypeRef tr, mdToken* ptkResolutionScope, LPWSTR szName, ULONG cchName, ULONG* pchName) override {
        count("GetTypeRefProps"); return inner->GetTypeRefProps(tr, ptkResolutionScope, szName, cchName, pchName);
    }
    HRESULT ResolveTypeRef(mdTypeRef tr, REFIID riid, IUnknown** ppIScope, mdTypeDef* ptd) override {
        count("ResolveTypeRef"); return inner->ResolveTypeRef(tr, riid, ppIScope, ptd);
    }
    HRESULT EnumMembers(HCORENUM* phEnum, mdTypeDef cl, mdToken rMembers[], ULONG cMax, ULONG* pcTokens) override {
        count("EnumMembers"); return inner->EnumMembers(phEnum, cl, rMembers, cMax, pcTokens);
    }
    HRESULT EnumMembersWithName(HCORENUM* phEnum, mdTypeDef cl, LPCWSTR szName, mdToken rMembers[], ULONG cMax, ULONG* pcTokens) override {
        count("EnumMembersWithName"); return inner->EnumMembersWithName(phEnum, cl, szName, rMembers, cMax, pcTokens);
    }
    HRESULT EnumMethods(HCORENUM* phEnum, mdTypeDef cl, mdMethodDef rMethods[], ULONG cMax, ULONG* pcTokens) override {
        count("EnumMethods"); return inner->EnumMethods(phEnum, cl, rMethods, cMax, pcTokens);
    }
    HRESULT EnumMethodsWithName(HCORENUM* phEnum, mdTypeDef cl, LPCWSTR szName, mdMethodDef rMethods[], ULONG cMax, ULONG* pcTokens) override {
        count("EnumMethodsWithName"); return inner->EnumMethodsWithName(phEnum, cl, szName, rMethods, cMax, pcTokens);
    }
    HRESULT EnumFields(HCORENUM* phEnum, mdTypeDef cl, mdFieldDef rFields[], ULONG cMax, ULONG* pcTokens) override {
        count("EnumFields"); return inner->EnumFields(phEnum, cl, rFields, cMax, pcTokens);
    }
    HRESULT EnumFieldsWithName(HCORENUM* phEnum, mdTypeDef cl, LPCWSTR szName, mdFieldDef rFields[], ULONG cMax, ULONG* pcTokens) override {
        count("EnumFieldsWithName"); return inner->EnumFieldsWithName(phEnum, cl, szName, rFields, cMax, pcTokens);
    }
    HRESULT EnumParams(HCORENUM* phEnum, mdMethodDef mb, mdParamDef rParams[], ULONG cMax, ULONG* pcTokens) override {
        count("EnumParams"); return inner->EnumParams(phEnum, mb, rParams, cMax, pcTokens);
    }
    HRESULT EnumMemberRefs(HCORENUM* phEnum, mdToken tkParent, mdMemberRef rMemberRefs[], ULONG cMax, ULONG* pcTokens) override {
        count("EnumMemberRefs"); return inner->EnumMemberRefs(phEnum, tkParent, rMemberRefs, cMax, pcTokens);
    }
    HRESULT EnumMethodImpls(HCORENUM* phEnum, mdTypeDef td, mdToken rMethodBody[], mdToken rMethodDecl[], ULONG cMax, ULONG* pcTokens) override {
        count("EnumMethodImpls"); return inner->EnumMethodImpls(phEnum, td, rMethodBody, rMethodDecl, cMax, pcTokens);
    }
    HRESULT EnumPermissionSets(HCORENUM* phEnum, mdToken tk, DWORD dwActions, mdPermission rPermission[], ULONG cMax, ULONG* pcTokens) override {
        count("EnumPermissionSets"); return inner->EnumPermissionSets(phEnum, tk, dwActions, rPermission, cMax, pcTokens);
    }
    HRESULT FindMember(mdTypeDef td, LPCWSTR szName, PCCOR_SIGNATURE pvSigBlob, ULONG cbSigBlob, mdToken* pmb) override {
        count("FindMember"); return inner->FindMember(td, szName, pvSigBlob, cbSigBlob, pmb);
    }
    HRESULT FindMethod(mdTypeDef td, LPCWSTR szName, PCCOR_SIGNATURE pvSigBlob, ULONG cbSigBlob,
                       mdMethodDef* pmb) override;
    HRESULT FindField(mdTypeDef td, LPCWSTR szName, PCCOR_SIGNATURE pvSigBlob, ULONG cbSigBlob, mdFieldDef* pmb) override {
        count("FindField"); return inner->FindField(td, szName, pvSigBlob, cbSigBlob, pmb);
    }
    HRESULT FindMemberRef(mdTypeRef td, LPCWSTR szName, PCCOR_SIGNATURE pvSigBlob, ULONG cbSigBlob, mdMemberRef* pmr) override {
        count("FindMemberRef"); return inner->FindMemberRef(td, szName, pvSigBlob, cbSigBlob, pmr);
    }
    HRESULT GetMethodProps(mdMethodDef mb, mdTypeDef* pClass, LPWSTR szMethod, ULONG cchMethod, ULONG* pchMethod, DWORD* pdwAttr, PCCOR_SIGNATURE* ppvSigBlob, ULONG* pcbSigBlob, ULONG* pulCodeRVA, DWORD* pdwImplFlags) override {
        count("GetMethodProps"); return inner->GetMethodProps(mb, pClass, szMethod, cchMethod, pchMethod, pdwAttr, ppvSigBlob, pcbSigBlob, pulCodeRVA, pdwImplFlags);
    }
    HRESULT GetMemberRefProps(mdMemberRef mr, mdToken* ptk, LPWSTR szMember, ULONG cchMember, ULONG* pchMember, PCCOR_SIGNATURE* ppvSigBlob, ULONG* pbSig) override {
        count("GetMemberRefProps"); return inner->GetMemberRefProps(mr, ptk, szMember, cchMember, pchMember, ppvSigBlob, pbSig);
    }
    HRESULT EnumProperties(HCORENUM* phEnum, mdTypeDef td, mdProperty rProperties[], ULONG cMax, ULONG* pcProperties) override {
        count("EnumProperties"); return inner->EnumProperties(phEnum, td, rProperties, cMax, pcProperties);
    }
    HRESULT EnumEvents(HCORENUM* phEnum, mdTypeDef td, mdEvent rEvents[], ULONG cMax, ULONG* pcEvents) override {
        count("EnumEvents"); return inner->EnumEvents(phEnum, td, rEvents, cMax, pcEvents);
    }
    HRESULT GetEventProps(mdEvent ev, mdTypeDef* pClass, LPCWSTR szEvent, ULONG cchEvent, ULONG* pchEvent, DWORD* pdwEventFlags, mdToken* ptkEventType, mdMethodDef* pmdAddOn, mdMethodDef* pmdRemoveOn, mdMethodDef* pmdFire, mdMethodDef rmdOtherMethod[], ULONG cMax, ULONG* pcOtherMethod) override {
        count("GetEventProps"); return inner->GetEventProps(ev, pClass, szEvent, cchEvent, pchEvent, pdwEventFlags, ptkEventType, pmdAddOn, pmdRemoveOn, pmdFire, rmdOtherMethod, cMax, pcOtherMethod);
    }
    HRESULT EnumMethodSemantics(HCORENUM* phEnum, mdMethodDef mb, mdToken rEventProp[], ULONG cMax, ULONG* pcEventProp) override {
        count("EnumMethodSemantics"); return inner->EnumMethodSemantics(phEnum, mb, rEventProp, cMax, pcEventProp);
    }
    HRESULT GetMethodSemantics(mdMethodDef mb, mdToken tkEventProp, DWORD* pdwSemanticsFlags) override {
        count("GetMethodSemantics"); return inner->GetMethodSemantics(mb, tkEventProp, pdwSemanticsFlags);
    }
    HRESULT GetClassLayout(mdTypeDef td, DWORD* pdwPackSize, COR_FIELD_OFFSET rFieldOffset[], ULONG cMax, ULONG* pcFieldOffset, ULONG* pulClassSize) override {
        count("GetClassLayout"); return inner->GetClassLayout(td, pdwPackSize, rFieldOffset, cMax, pcFieldOffset, pulClassSize);
    }
    HRESULT GetFieldMarshal(mdToken tk, PCCOR_SIGNATURE* ppvNativeType, ULONG* pcbNativeType) override {
        count("GetFieldMarshal"); return inner->GetFieldMarshal(tk, ppvNativeType, pcbNativeType);
    }
    HRESULT GetRVA(mdToken tk, ULONG* pulCodeRVA, DWORD* pdwImplFlags) override {
        count("GetRVA"); return inner->GetRVA(tk, pulCodeRVA, pdwImplFlags);
    }
    HRESULT GetPermissionSetProps(mdPermission pm, DWORD* pdwAction, void const** ppvPermission, ULONG* pcbPermission) override {
        count("GetPermissionSetProps"); return inner->GetPermissionSetProps(pm, pdwAction, ppvPermission, pcbPermission);
    }
    HRESULT GetSigFromToken(mdSignature mdSig, PCCOR_SIGNATURE* ppvSig, ULONG* pcbSig) override {
        count("GetSigFromToken"); return inner->GetSigFromToken(mdSig, ppvSig, pcbSig);
    }
    HRESULT GetModuleRefProps(mdModuleRef mur, LPWSTR szName, ULONG cchName, ULONG* pchName) override {
        count("GetModuleRefProps"); return inner->GetModuleRefProps(mur, szName, cchName, pchName);
    }
    HRESULT EnumModuleRefs(HCORENUM* phEnum, mdModuleRef rModuleRefs[], ULONG cmax, ULONG* pcModuleRefs) override {
        count("EnumModuleRefs"); return inner->EnumModuleRefs(phEnum, rModuleRefs, cmax, pcModuleRefs);
    }
    HRESULT GetTypeSpecFromToken(mdTypeSpec typespec, PCCOR_SIGNATURE* ppvSig, ULONG* pcbSig) override {
        count("GetTypeSpecFromToken"); return inner->GetTypeSpecFromToken(typespec, ppvSig, pcbSig);
    }
    HRESULT GetNameFromToken(mdToken tk, MDUTF8CSTR* pszUtf8NamePtr) override {
        count("GetNameFromToken"); return inner->GetNameFromToken(tk, pszUtf8NamePtr);
    }
    HRESULT EnumUnresolvedMethods(HCORENUM* phEnum, mdToken rMethods[], ULONG cMax, ULONG* pcTokens) override {
        count("EnumUnresolvedMethods"); return inner->EnumUnresolvedMethods(phEnum, rMethods, cMax, pcTokens);
    }
    HRESULT GetUserString(mdString stk, LPWSTR szString, ULONG cchString, ULONG* pchString) override {
        count("GetUserString"); return inner->GetUserString(stk, szString, cchString, pchString);
    }
    HRESULT GetPinvokeMap(mdToken tk, DWORD* pdwMappingFlags, LPWSTR szImportName, ULONG cchImportName, ULONG* pchImportName, mdModuleRef* pmrImportDLL) override {
        count("GetPinvokeMap"); return inner->GetPinvokeMap(tk, pdwMappingFlags, szImportName, cchImportName, pchImportName, pmrImportDLL);
    }
    HRESULT EnumSignatures(HCORENUM* phEnum, mdSignature rSignatures[], ULONG cmax, ULONG* pcSignatures) override {
        count("EnumSignatures"); return inner->EnumSignatures(phEnum, rSignatures, cmax, pcSignatures);
    }
    HRESULT EnumTypeSpecs(HCORENUM* phEnum, mdTypeSpec rTypeSpecs[], ULONG cmax, ULONG* pcTypeSpecs) override {
        count("EnumTypeSpecs"); return inner->EnumTypeSpecs(phEnum, rTypeSpecs, cmax, pcTypeSpecs);
    }
    HRESULT EnumUserStrings(HCORENUM* phEnum, mdString rStrings[], ULONG cmax, ULONG* pcStrings) override {
        count("EnumUserStrings"); return inner->EnumUserStrings(phEnum, rStrings, cmax, pcStrings);
    }
    HRESULT GetParamForMethodIndex(mdMethodDef md, ULONG ulParamSeq, mdParamDef* ppd) override {
        count("GetParamForMethodIndex"); return inner->GetParamForMethodIndex(md, ulParamSeq, ppd);
    }
    HRESULT EnumCustomAttributes(HCORENUM* phEnum, mdToken tk, mdToken tkType, mdCustomAttribute rCustomAttributes[], ULONG cMax, ULONG* pcCustomAttributes) override {
        count("EnumCustomAttributes"); return inner->EnumCustomAttributes(phEnum, tk, tkType, rCustomAttributes, cMax, pcCustomAttributes);
    }
    HRESULT GetCustomAttributeProps(mdCustomAttribute cv, mdToken* ptkObj, mdToken* ptkType, void const** ppBlob, ULONG* pcbSize) override {
        count("GetCustomAttributeProps"); return inner->GetCustomAttributeProps(cv, ptkObj, ptkType, ppBlob, pcbSize);
    }
    HRESULT FindTypeRef(mdToken tkResolutionScope, LPCWSTR szName, mdTypeRef* ptr) override {
        count("FindTypeRef"); return inner->FindTypeRef(tkResolutionScope, szName, ptr);
    }
    HRESULT GetMemberProps(mdToken mb, mdTypeDef* pClass, LPWSTR szMember, ULONG cchMember, ULONG* pchMember, DWORD* pdwAttr, PCCOR_SIGNATURE* ppvSigBlob, ULONG* pcbSigBlob, ULONG* pulCodeRVA, DWORD* pdwImplFlags, DWORD* pdwCPlusTypeFlag, UVCP_CONSTANT* ppValue, ULONG* pcchValue) override {
        count("GetMemberProps"); return inner->GetMemberProps(mb, pClass, szMember, cchMember, pchMember, pdwAttr, ppvSigBlob, pcbSigBlob, pulCodeRVA, pdwImplFlags, pdwCPlusTypeFlag, ppValue, pcchValue);
    }
    HRESULT GetFieldProps(mdFieldDef mb, mdTypeDef* pClass, LPWSTR szField, ULONG cchField, ULONG* pchField, DWORD* pdwAttr, PCCOR_SIGNATURE* ppvSigBlob, ULONG* pcbSigBlob, DWORD* pdwCPlusTypeFlag, UVCP_CONSTANT* ppValue, ULONG* pcchValue) override {
        count("GetFieldProps"); return inner->GetFieldProps(mb, pClass, szField, cchField, pchField, pdwAttr, ppvSigBlob, pcbSigBlob, pdwCPlusTypeFlag, ppValue, pcchValue);
    }
    HRESULT GetPropertyProps(mdProperty prop, mdTypeDef* pClass, LPCWSTR szProperty, ULONG cchProperty, ULONG* pchProperty, DWORD* pdwPropFlags, PCCOR_SIGNATURE* ppvSig, ULONG* pbSig, DWORD* pdwCPlusTypeFlag, UVCP_CONSTANT* ppDefaultValue, ULONG* pcchDefaultValue, mdMethodDef* pmdSetter, mdMethodDef* pmdGetter, mdMethodDef rmdOtherMethod[], ULONG cMax, ULONG* pcOtherMethod) override {
        count("GetPropertyProps"); return inner->GetPropertyProps(prop, pClass, szProperty, cchProperty, pchProperty, pdwPropFlags, ppvSig, pbSig, pdwCPlusTypeFlag, ppDefaultValue, pcchDefaultValue, pmdSetter, pmdGetter, rmdOtherMethod, cMax, pcOtherMethod);
    }
    HRESULT GetParamProps(mdParamDef tk, mdMethodDef* pmd, ULONG* pulSequence, LPWSTR szName, ULONG cchName, ULONG* pchName, DWORD* pdwAttr, DWORD* pdwCPlusTypeFlag, UVCP_CONSTANT* ppValue, ULONG* pcchValue) override {
        count("GetParamProps"); return inner->GetParamProps(tk, pmd, pulSequence, szName, cchName, pchName, pdwAttr, pdwCPlusTypeFlag, ppValue, pcchValue);
    }
    HRESULT GetCustomAttributeByName(mdToken tkObj, LPCWSTR szName, const void** ppData, ULONG* pcbData) override {
        count("GetCustomAttributeByName"); return inner->GetCustomAttributeByName(tkObj, szName, ppData, pcbData);
    }
    BOOL IsValidToken(mdToken tk) override {
        count("IsValidToken"); return inner->IsValidToken(tk);
    }
    HRESULT GetNestedClassProps(mdTypeDef tdNestedClass, mdTypeDef* ptdEnclosingClass) override {
        count("GetNestedClassProps"); return inner->GetNestedClassProps(tdNestedClass, ptdEnclosingClass);
    }
    HRESULT GetNativeCallConvFromSig(void const* pvSig, ULONG cbSig, ULONG* pCallConv) override {
        count("GetNativeCallConvFromSig"); return inner->GetNativeCallConvFromSig(pvSig, cbSig, pCallConv);
    }
    HRESULT IsGlobal(mdToken pd, int* pbGlobal) override {
        count("IsGlobal"); return inner->IsGlobal(pd, pbGlobal);
    }

private:
    explicit CountingMetaDataImport(IMetaDataImport* inner);
    void count(const char* method);

    AutoCOMPointer<IMetaDataImport> inner;
    ULONG references = 1;
    std::map<std::string, int> perMethod;
    int total = 0;
    std::map<std::u16string, HRESULT> methodFailures;
    std::map<std::u16string, HRESULT> typeFailures;
    std::vector<std::u16string> soughtTypes;
};
