// The core library's types and methods that every shim looks up by name. Each
// lookup walks the core library's tables, and each module's shim asks the
// same questions: the answers, failures included, are kept for the process,
// as the core library never unloads.
//
// Thread-safe. One object serves one core library.
#pragma once

#include <map>
#include <string>
#include <utility>

#include "platform/Synchronization.h"
#include "runtime/MetaDataInterfaces.h"
#include "shim/ShimSignature.h"

class CoreLibraryLookups {
public:
    CoreLibraryLookups();
    ~CoreLibraryLookups();
    CoreLibraryLookups(const CoreLibraryLookups&) = delete;
    CoreLibraryLookups& operator=(const CoreLibraryLookups&) = delete;

    // The top-level type of that full name, as FindTypeDefByName gives it.
    [[nodiscard]] HRESULT findType(IMetaDataImport* coreLibrary, const char16_t* name, mdTypeDef* type);
    // The method of the type with that name and exactly that signature;
    // CLDB_E_RECORD_NOTFOUND when it has none.
    [[nodiscard]] HRESULT findMethod(IMetaDataImport* coreLibrary, mdTypeDef type, const char16_t* name,
                                     const ShimSignature& signature, mdMethodDef* method);

private:
    // What a lookup gave: its result and the token.
    using Answer = std::pair<HRESULT, mdToken>;

    CRITICAL_SECTION lock;
    std::map<std::u16string, Answer> types;
    // By the type's token, the name and the signature's bytes.
    std::map<std::u16string, Answer> methods;
};
