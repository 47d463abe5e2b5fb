#include "metadata/MetaDataContext.h"

#include <algorithm>
#include <new>

#include "metadata/ImageMetaData.h"
#include "platform/Text16.h"
#include "runtime/CorErrors.h"
#include "runtime/Guids.h"

namespace {

// Metadata calls report the full length of a name even when they had to cut
// it; a walk over the buffer must stay inside it.
ULONG insideBuffer(ULONG length, ULONG size) {
    return size == 0 ? 0 : std::min(length, size - 1);
}

}  // namespace

IMetaDataContext* IMetaDataContext::newInstance(ICorProfilerInfo* info) {
    return new MetaDataContext(info);
}

// Only the row pointers are set: a row is written before it is counted, and
// text of untouched rows (a context holds 1.5 MB of it) never reaches memory.
void MetaDataContext::NameList::bind() {
    for (unsigned int i = 0; i < kListLimit; ++i) {
        rows[i] = text[i];
    }
}

void MetaDataContext::CachedTypeList::bind() {
    assemblies.bind();
    classes.bind();
}

void MetaDataContext::CachedTypeList::handOut(char16_t*** outAssemblies, char16_t*** outClasses,
                                              unsigned int* outCount) {
    if (outAssemblies != nullptr) {
        *outAssemblies = assemblies.rows;
    }
    if (outClasses != nullptr) {
        *outClasses = classes.rows;
    }
    if (outCount != nullptr) {
        *outCount = count;
    }
}

MetaDataContext::MetaDataContext(ICorProfilerInfo* profilerInfo) {
    if (profilerInfo != nullptr) {
        profilerInfo->AddRef();
    }
    info = profilerInfo;
    methodName[0] = className[0] = assemblyName[0] = 0;
    parentClassName[0] = parentAssemblyName[0] = 0;
    interfaces.bind();
    classAttributes.bind();
    methodAttributes.bind();
}

HRESULT MetaDataContext::setFunction(FunctionID newFunctionID) {
    ClassID newClassID = 0;
    ModuleID newModuleID = 0;
    mdToken newMethodDef = 0;
    const HRESULT hr = info->GetFunctionInfo(newFunctionID, &newClassID, &newModuleID, &newMethodDef);
    return FAILED(hr) ? hr : moveTo(newFunctionID, newClassID, newModuleID, newMethodDef);
}

HRESULT MetaDataContext::setModuleMethod(ModuleID newModuleID, mdMethodDef newMethodDef) {
    return moveTo(0, 0, newModuleID, newMethodDef);
}

HRESULT MetaDataContext::moveTo(FunctionID newFunctionID, ClassID newClassID, ModuleID newModuleID,
                                mdToken newMethodDef) {
    mdTypeDef newTypeDef = 0;
    mdToken newSuperToken = 0;
    AutoCOMPointer<IMetaDataImport> newImport;

    HRESULT hr = S_OK;
    // A module's metadata is opened once while the module is among those met last.
    const bool sameModule = newModuleID == moduleID && import.get() != nullptr;
    if (!sameModule) {
        KnownModule& entry = knownModule(newModuleID);
        if (entry.import.get() == nullptr) {
            hr = ImageMetaData::open(info, newModuleID, IID_IMetaDataImport,
                                     reinterpret_cast<IUnknown**>(&entry.import));
        }
        newImport = entry.import;
    }
    IMetaDataImport* reader = sameModule ? import.get() : newImport.get();
    // The class's id names the method's class for a fraction of a search for
    // the method's parent; shared generic code has none.
    ModuleID classModule = 0;
    if (SUCCEEDED(hr) && (newClassID == 0 || FAILED(info->GetClassIDInfo(newClassID, &classModule, &newTypeDef)) ||
                          classModule != newModuleID || TypeFromToken(newTypeDef) != mdtTypeDef)) {
        hr = reader->GetMethodProps(newMethodDef, &newTypeDef, nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr,
                                    nullptr);
    }
    if (SUCCEEDED(hr)) {
        hr = reader->GetTypeDefProps(newTypeDef, nullptr, 0, nullptr, nullptr, &newSuperToken);
    }
    if (FAILED(hr)) {
        return hr;
    }

    classID = newClassID;
    if (!sameModule) {
        moduleID = newModuleID;
        import = newImport.detach();
        setMethodDef(newMethodDef);
        setTypeDef(newTypeDef);
        setSuperToken(newSuperToken);
    } else {
        // Same module: keep what is cached for tokens that did not change.
        if (!methodNameKnown || newMethodDef != methodDef) {
            setMethodDef(newMethodDef);
        }
        if (!classNameKnown || newTypeDef != typeDef) {
            setTypeDef(newTypeDef);
        }
        if (!parentNameKnown || newSuperToken != superToken) {
            setSuperToken(newSuperToken);
        }
    }
    functionID = newFunctionID;
    return S_OK;
}

unsigned int MetaDataContext::getMethodID() {
    if (functionID != 0) {
        return static_cast<unsigned int>(functionID);
    }
    return static_cast<unsigned int>(moduleID) + RidFromToken(methodDef);
}

bool MetaDataContext::isInstanceTypeInitializer() {
    char16_t* name = nullptr;
    return SUCCEEDED(getMethodName(&name)) && strcmp_u16(u".ctor", name) == 0;
}

HRESULT MetaDataContext::setImport(IMetaDataImport* newImport) {
    if (newImport != nullptr) {
        newImport->AddRef();
    }
    import = newImport;
    return S_OK;
}

// A scan starts afresh: whatever was kept under the id may be of a module
// that has since unloaded.
HRESULT MetaDataContext::setModuleID(ModuleID newModuleID) {
    forgetModule(newModuleID);
    moduleID = newModuleID;
    return S_OK;
}

void MetaDataContext::forgetModule(ModuleID module) {
    for (KnownModule& entry : known) {
        if (entry.id == module) entry.reset(0);
    }
    if (moduleID == module) moduleID = 0;
}

MetaDataContext::KnownModule& MetaDataContext::knownModule(ModuleID id) {
    for (KnownModule& entry : known) {
        if (entry.id == id) return entry;
    }
    KnownModule& taken = known[nextKnown];
    nextKnown = (nextKnown + 1) % kKnownModules;
    taken.reset(id);
    return taken;
}

void MetaDataContext::KnownModule::reset(ModuleID newId) {
    id = newId;
    import = nullptr;
    assemblyKnown = false;
    attributeClasses.clear();
}

HRESULT MetaDataContext::setMethodDef(mdMethodDef token) {
    methodDef = token;
    methodNameKnown = false;
    methodAttributes.known = false;
    return S_OK;
}

HRESULT MetaDataContext::setMethod(mdMethodDef token, const char16_t* name) {
    setMethodDef(token);
    strncpy_u16(methodName, name, kNameSize);
    methodNameKnown = true;
    return S_OK;
}

HRESULT MetaDataContext::setTypeDef(mdTypeDef token) {
    typeDef = token;
    classNameKnown = false;
    interfaces.known = false;
    classAttributes.known = false;
    return S_OK;
}

HRESULT MetaDataContext::setSuperToken(mdToken token) {
    superToken = token;
    parentNameKnown = false;
    return S_OK;
}

HRESULT MetaDataContext::getAssemblyName(char16_t** assembly) {
    if (moduleID == 0) {
        return E_FAIL;
    }
    HRESULT hr = getModuleAssemblyName(assemblyName, kNameSize);
    if (SUCCEEDED(hr) && assembly != nullptr) {
        *assembly = assemblyName;
    }
    return hr;
}

HRESULT MetaDataContext::getClassName(char16_t** assembly, char16_t** name) {
    return cachedName(typeDef, classNameKnown, assemblyName, className, assembly, name);
}

HRESULT MetaDataContext::getMethodName(char16_t** name) {
    HRESULT hr = S_OK;
    if (!methodNameKnown) {
        hr = getMethodName(methodDef, methodName, kNameSize);
        methodNameKnown = SUCCEEDED(hr);
    }
    if (SUCCEEDED(hr) && name != nullptr) {
        *name = methodName;
    }
    return hr;
}

HRESULT MetaDataContext::getParentName(char16_t** assembly, char16_t** name) {
    return cachedName(superToken, parentNameKnown, parentAssemblyName, parentClassName, assembly, name);
}

// The names of a class token, read into the context's buffers once and handed
// out from there.
HRESULT MetaDataContext::cachedName(mdToken token, bool& known, char16_t* assemblyBuffer, char16_t* nameBuffer,
                                    char16_t** assembly, char16_t** name) {
    HRESULT hr = S_OK;
    if (!known) {
        hr = getClassName(token, assemblyBuffer, nameBuffer, kNameSize);
        known = SUCCEEDED(hr);
    }
    if (SUCCEEDED(hr)) {
        if (assembly != nullptr) {
            *assembly = assemblyBuffer;
        }
        if (name != nullptr) {
            *name = nameBuffer;
        }
    }
    return hr;
}

HRESULT MetaDataContext::getInterfaces(char16_t*** assemblies, char16_t*** classes, unsigned int* count) {
    return interfaces.fillOnce(assemblies, classes, count, [&](CachedTypeList& list) {
        return getInterfaces(typeDef, list.assemblies.rows, list.classes.rows, kListLimit, kNameSize, &list.count);
    });
}

HRESULT MetaDataContext::getMethodAttributes(char16_t*** assemblies, char16_t*** classes, unsigned int* count) {
    return methodAttributes.fillOnce(assemblies, classes, count, [&](CachedTypeList& list) {
        return getAttributes(methodDef, list.assemblies.rows, list.classes.rows, kListLimit, kNameSize, &list.count);
    });
}

HRESULT MetaDataContext::getClassAttributes(char16_t*** assemblies, char16_t*** classes, unsigned int* count) {
    return classAttributes.fillOnce(assemblies, classes, count, [&](CachedTypeList& list) {
        return getAttributes(typeDef, list.assemblies.rows, list.classes.rows, kListLimit, kNameSize, &list.count);
    });
}

HRESULT MetaDataContext::getClassName(unsigned int token, char16_t* assembly, char16_t* name, unsigned int size) {
    HRESULT hr = S_OK;
    if (IsNilToken(token)) {
        // No type at all: the runtime gives a type without a base the nil
        // reference token.
        hr = E_NOTIMPL;
    } else if (token >= mdtTypeDef && token < mdtTypeDef + 0x01000000) {
        hr = getTypeDefClassName(token, name, size, nullptr);
        if (SUCCEEDED(hr)) {
            hr = getTypeDefAssemblyName(token, assembly, size, nullptr);
        }
    } else if (TypeFromToken(token) == mdtTypeRef) {
        hr = getTypeRefClassName(token, name, size, nullptr);
        if (SUCCEEDED(hr)) {
            hr = getTypeRefAssemblyName(token, assembly, size, nullptr);
        }
    } else {
        // A TypeSpec (generic instance) or another kind of token.
        hr = E_NOTIMPL;
    }
    return hr;
}

void MetaDataContext::stripEndGenericMarker(char16_t* buffer, long length, ULONG* outLength) {
    long index = length - 1;
    while (index >= 0 && isdigit_u16(buffer[index])) {
        --index;
    }
    if (index >= 0 && buffer[index] == u'`') {
        buffer[index] = 0;
        if (outLength != nullptr) {
            *outLength = static_cast<ULONG>(index);
        }
    }
}

HRESULT MetaDataContext::getTypeDefClassName(mdTypeDef token, char16_t* buffer, ULONG size, ULONG* outLength) {
    DWORD flags = 0;
    ULONG length = 0;
    // One call for the name and the flags: most classes are not nested.
    HRESULT hr = import->GetTypeDefProps(token, buffer, size, &length, &flags, nullptr);
    if (SUCCEEDED(hr)) {
        if ((flags & tdVisibilityMask) >= tdNestedPublic) {
            mdTypeDef enclosing = 0;
            ULONG enclosingLength = 0;
            hr = import->GetNestedClassProps(token, &enclosing);
            if (SUCCEEDED(hr)) {
                hr = getTypeDefClassName(enclosing, buffer, size, &enclosingLength);
            }
            if (SUCCEEDED(hr) && enclosingLength + 1 >= size) {
                hr = E_INVALIDARG;
            }
            if (SUCCEEDED(hr)) {
                ULONG ownLength = 0;
                if (buffer != nullptr) {
                    buffer[enclosingLength] = u'+';
                }
                hr = import->GetTypeDefProps(token, buffer != nullptr ? buffer + enclosingLength + 1 : nullptr,
                                             size - (enclosingLength + 1), &ownLength, nullptr, nullptr);
                length = enclosingLength + 1 + ownLength;
            }
        }
    }
    if (SUCCEEDED(hr)) {
        // From here on the length leaves the terminator out.
        length = insideBuffer(length > 0 ? length - 1 : 0, size);
        if (buffer != nullptr) {
            stripEndGenericMarker(buffer, static_cast<long>(length), &length);
        }
        if (outLength != nullptr) {
            *outLength = length;
        }
    }
    return hr;
}

HRESULT MetaDataContext::getTypeRefClassName(mdTypeRef token, char16_t* buffer, ULONG size, ULONG* outLength) {
    ULONG length = 0;
    HRESULT hr = import->GetTypeRefProps(token, nullptr, buffer, size, &length);
    if (SUCCEEDED(hr)) {
        // The length still counts the terminator, so the walk starts on it and a
        // reference keeps its generic marker, unlike a definition.
        length = insideBuffer(length, size);
        if (buffer != nullptr) {
            stripEndGenericMarker(buffer, static_cast<long>(length), &length);
        }
        if (outLength != nullptr) {
            *outLength = length;
        }
    }
    return hr;
}

// Every class of a module reports the module's assembly.
HRESULT MetaDataContext::getModuleAssemblyName(char16_t* buffer, ULONG size) {
    if (moduleID == 0) return E_FAIL;
    KnownModule& entry = knownModule(moduleID);
    char16_t* assembly = knownAssemblies[&entry - known];
    if (!entry.assemblyKnown) {
        LPCBYTE baseAddress = nullptr;
        AssemblyID assemblyID = 0;
        ULONG length = 0;
        HRESULT hr = info->GetModuleInfo(moduleID, &baseAddress, 0, nullptr, nullptr, &assemblyID);
        if (SUCCEEDED(hr)) hr = info->GetAssemblyInfo(assemblyID, kNameSize, &length, assembly, nullptr, nullptr);
        if (FAILED(hr)) return hr;
        entry.assemblyKnown = true;
    }
    if (size != 0) strncpy_u16(buffer, assembly, size);
    return S_OK;
}

HRESULT MetaDataContext::getTypeDefAssemblyName(mdTypeDef, char16_t* buffer, ULONG size, ULONG*) {
    return getModuleAssemblyName(buffer, size);
}

HRESULT MetaDataContext::getTypeRefAssemblyName(mdTypeRef token, char16_t* buffer, ULONG size, ULONG* outLength) {
    HRESULT hr = S_OK;
    mdToken scope = token;
    while (SUCCEEDED(hr) && TypeFromToken(scope) == mdtTypeRef) {
        hr = import->GetTypeRefProps(scope, &scope, nullptr, 0, nullptr);
    }
    if (FAILED(hr)) {
        return hr;
    }
    switch (TypeFromToken(scope)) {
    case mdtAssemblyRef: {
        AutoCOMPointer<IMetaDataAssemblyImport> assemblyImport;
        hr = import->QueryInterface(IID_IMetaDataAssemblyImport, reinterpret_cast<void**>(&assemblyImport));
        if (SUCCEEDED(hr)) {
            ULONG length = 0;
            hr = assemblyImport->GetAssemblyRefProps(scope, nullptr, nullptr, buffer, size, &length, nullptr,
                                                     nullptr, nullptr, nullptr);
            if (SUCCEEDED(hr) && outLength != nullptr) {
                *outLength = length;
            }
        }
        return hr;
    }
    case mdtModuleRef:
        // Another module of the same assembly.
        return getTypeDefAssemblyName(token, buffer, size, outLength);
    default:
        return E_UNEXPECTED;
    }
}

HRESULT MetaDataContext::getMethodName(mdToken token, char16_t* buffer, ULONG size) {
    ULONG length = 0;
    switch (TypeFromToken(token)) {
    case mdtMethodDef:
        return import->GetMethodProps(token, nullptr, buffer, size, &length, nullptr, nullptr, nullptr, nullptr,
                                      nullptr);
    case mdtMemberRef:
        return import->GetMemberRefProps(token, nullptr, buffer, size, &length, nullptr, nullptr);
    default:
        return E_INVALIDARG;
    }
}

HRESULT MetaDataContext::getInterfaces(mdTypeDef token, char16_t** assemblies, char16_t** classes, ULONG limit,
                                       ULONG size, unsigned int* count) {
    HCORENUM enumerator = nullptr;
    mdInterfaceImpl impls[kListLimit];
    ULONG found = 0;
    HRESULT hr = import->EnumInterfaceImpls(&enumerator, token, impls, std::min<ULONG>(limit, kListLimit), &found);
    for (ULONG i = found; SUCCEEDED(hr) && i-- > 0;) {
        mdToken interfaceToken = 0;
        hr = import->GetInterfaceImplProps(impls[i], nullptr, &interfaceToken);
        if (SUCCEEDED(hr)) {
            hr = getClassName(interfaceToken, assemblies != nullptr ? assemblies[i] : nullptr,
                              classes != nullptr ? classes[i] : nullptr, size);
        }
    }
    // Closed on failure too: a class with a generic interface fails here on
    // every call, and an open enumerator is memory that nothing else frees.
    if (enumerator != nullptr) {
        import->CloseEnum(enumerator);
    }
    if (FAILED(hr)) {
        return hr;
    }
    // An empty listing is S_FALSE from the runtime; a list is a list.
    if (count != nullptr) {
        *count = found;
    }
    return S_OK;
}

HRESULT MetaDataContext::getAttributes(mdToken token, char16_t** assemblies, char16_t** classes, ULONG limit,
                                       ULONG size, unsigned int* count) {
    HCORENUM enumerator = nullptr;
    mdCustomAttribute attributes[kListLimit];
    ULONG found = 0;
    HRESULT hr = import->EnumCustomAttributes(&enumerator, token, mdTokenNil, attributes,
                                              std::min<ULONG>(limit, kListLimit), &found);
    // Only a module's own scope gives the tokens that its entry keeps.
    KnownModule* entry =
        moduleID != 0 && assemblies != nullptr && classes != nullptr ? &knownModule(moduleID) : nullptr;
    for (ULONG i = found; SUCCEEDED(hr) && i-- > 0;) {
        mdToken constructor = 0;
        mdToken attributeClass = 0;
        hr = import->GetCustomAttributeProps(attributes[i], nullptr, &constructor, nullptr, nullptr);
        if (SUCCEEDED(hr) && entry != nullptr) {
            if (auto known = entry->attributeClasses.find(constructor); known != entry->attributeClasses.end()) {
                strncpy_u16(assemblies[i], known->second.first.c_str(), size);
                strncpy_u16(classes[i], known->second.second.c_str(), size);
                continue;
            }
        }
        if (SUCCEEDED(hr)) {
            switch (TypeFromToken(constructor)) {
            case mdtMethodDef:
                hr = import->GetMethodProps(constructor, &attributeClass, nullptr, 0, nullptr, nullptr, nullptr,
                                            nullptr, nullptr, nullptr);
                break;
            case mdtMemberRef:
                hr = import->GetMemberRefProps(constructor, &attributeClass, nullptr, 0, nullptr, nullptr, nullptr);
                break;
            default:
                hr = E_UNEXPECTED;
                break;
            }
        }
        if (SUCCEEDED(hr)) {
            hr = getClassName(attributeClass, assemblies != nullptr ? assemblies[i] : nullptr,
                              classes != nullptr ? classes[i] : nullptr, size);
        }
        if (SUCCEEDED(hr) && entry != nullptr) {
            try {
                entry->attributeClasses.try_emplace(constructor, assemblies[i], classes[i]);
            } catch (const std::bad_alloc&) {
                // Read again next time.
            }
        }
    }
    if (enumerator != nullptr) {
        import->CloseEnum(enumerator);
    }
    if (FAILED(hr)) {
        return hr;
    }
    // An empty listing is S_FALSE from the runtime; a list is a list.
    if (count != nullptr) {
        *count = found;
    }
    return S_OK;
}
