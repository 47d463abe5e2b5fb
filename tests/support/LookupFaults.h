// Makes chosen lookups of a real metadata import fail, for the failure paths
// of code that defines metadata. The import object's own method table is
// swapped for a copy in which FindTypeDefByName and EnumMethodsWithName come
// here first; every other call goes straight to the runtime. The table is put
// back when this goes, which must be before the import does.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "runtime/MetaDataInterfaces.h"

class LookupFaults {
public:
    explicit LookupFaults(IMetaDataImport* import);
    ~LookupFaults();
    LookupFaults(const LookupFaults&) = delete;
    LookupFaults& operator=(const LookupFaults&) = delete;

    // From now on, lookups of this exact name fail with result.
    void failMethodLookup(const std::u16string& name, HRESULT result) { methodFailures[name] = result; }
    void failFindTypeDefByName(const std::u16string& name, HRESULT result) { typeFailures[name] = result; }
    // Every name given to FindTypeDefByName, in order.
    const std::vector<std::u16string>& typeNamesSought() const { return soughtTypes; }

private:
    using FindTypeDefByName = HRESULT (*)(IMetaDataImport*, LPCWSTR, mdToken, mdTypeDef*);
    using EnumMethodsWithName = HRESULT (*)(IMetaDataImport*, HCORENUM*, mdTypeDef, LPCWSTR, mdMethodDef*, ULONG,
                                            ULONG*);

    static HRESULT findTypeDefByName(IMetaDataImport* self, LPCWSTR name, mdToken enclosing, mdTypeDef* type);
    static HRESULT enumMethodsWithName(IMetaDataImport* self, HCORENUM* enumerator, mdTypeDef type, LPCWSTR name,
                                       mdMethodDef* methods, ULONG size, ULONG* count);
    static LookupFaults& of(IMetaDataImport* self);

    IMetaDataImport* import;
    void** originalTable;
    std::vector<void*> table;
    FindTypeDefByName realFindTypeDefByName;
    EnumMethodsWithName realEnumMethodsWithName;
    std::map<std::u16string, HRESULT> methodFailures;
    std::map<std::u16string, HRESULT> typeFailures;
    std::vector<std::u16string> soughtTypes;
};
