// IMetaDataContext over the runtime's ICorProfilerInfo and IMetaDataImport.
// Every name lives in a fixed buffer inside the object; after construction it
// allocates nothing.
#pragma once

#include <string>
#include <unordered_map>

#include "metadata/IMetaDataContext.h"
#include "platform/AutoPointer.h"

class MetaDataContext : public IMetaDataContext {
public:
    explicit MetaDataContext(ICorProfilerInfo* info);
    MetaDataContext(const MetaDataContext&) = delete;
    MetaDataContext& operator=(const MetaDataContext&) = delete;

    HRESULT setFunction(FunctionID functionID) override;
    HRESULT setModuleMethod(ModuleID moduleID, mdMethodDef method) override;
    IMetaDataImport* getImport() override { return import.get(); }
    ICorProfilerInfo* getInfo() override { return info.get(); }
    FunctionID getFunctionID() override { return functionID; }
    unsigned int getMethodID() override;
    ModuleID getModuleID() override { return moduleID; }
    ClassID getClassID() override { return classID; }
    mdTypeDef getTypeDef() override { return typeDef; }
    mdMethodDef getMethodDef() override { return methodDef; }
    mdToken getSuperToken() override { return superToken; }
    bool isInstanceTypeInitializer() override;

    HRESULT setImport(IMetaDataImport* import) override;
    HRESULT setModuleID(ModuleID moduleID) override;
    HRESULT setMethodDef(mdMethodDef token) override;
    HRESULT setMethod(mdMethodDef token, const char16_t* name) override;
    HRESULT setTypeDef(mdTypeDef token) override;
    HRESULT setSuperToken(mdToken token) override;
    void forgetModule(ModuleID moduleID) override;

    HRESULT getAssemblyName(char16_t** assembly) override;
    HRESULT getClassName(char16_t** assembly, char16_t** className) override;
    HRESULT getMethodName(char16_t** name) override;
    HRESULT getParentName(char16_t** assembly, char16_t** className) override;
    HRESULT getInterfaces(char16_t*** assemblies, char16_t*** classes, unsigned int* count) override;
    HRESULT getMethodAttributes(char16_t*** assemblies, char16_t*** classes, unsigned int* count) override;
    HRESULT getClassAttributes(char16_t*** assemblies, char16_t*** classes, unsigned int* count) override;
    HRESULT getClassName(unsigned int token, char16_t* assembly, char16_t* className, unsigned int size) override;

    // Cuts a trailing generic marker (a back-quote and the digits after it) from
    // the first length units of buffer; outLength receives the new length when
    // a cut was made.
    static void stripEndGenericMarker(char16_t* buffer, long length, ULONG* outLength);

private:
    // Moves the context to the method; shared generic code and a method
    // without a function of its own have no class id.
    [[nodiscard]] HRESULT moveTo(FunctionID newFunctionID, ClassID newClassID, ModuleID newModuleID,
                                 mdToken newMethodDef);
    [[nodiscard]] HRESULT cachedName(mdToken token, bool& known, char16_t* assemblyBuffer, char16_t* nameBuffer, char16_t** assembly,
                       char16_t** name);
    // A list of names: kListLimit rows of kNameSize units, reached through a
    // stable array of row pointers.
    struct NameList {
        char16_t* rows[kListLimit];
        char16_t text[kListLimit][kNameSize];
        void bind();
    };

    // Assembly and class names of a type list (interfaces, attributes), filled
    // once per class or method and handed out as the context's own arrays. A
    // list that cannot be read (a generic interface) fails alike each time it
    // is asked for: its failure is kept too, as every group with a rule on
    // interfaces asks again.
    struct CachedTypeList {
        bool known = false;
        HRESULT failure = S_OK;
        NameList assemblies;
        NameList classes;
        unsigned int count = 0;
        void bind();
        // Fills the list by fill(list) at the first call, then hands it out.
        template <typename Fill>
        HRESULT fillOnce(char16_t*** outAssemblies, char16_t*** outClasses, unsigned int* outCount, Fill fill) {
            HRESULT hr = S_OK;
            if (!known) {
                hr = fill(*this);
                known = true;
                failure = FAILED(hr) ? hr : S_OK;
            }
            if (FAILED(failure)) return failure;
            handOut(outAssemblies, outClasses, outCount);
            return hr;
        }
        void handOut(char16_t*** outAssemblies, char16_t*** outClasses, unsigned int* outCount);
    };

    [[nodiscard]] HRESULT getTypeDefClassName(mdTypeDef token, char16_t* buffer, ULONG size, ULONG* outLength);
    [[nodiscard]] HRESULT getTypeRefClassName(mdTypeRef token, char16_t* buffer, ULONG size, ULONG* outLength);
    [[nodiscard]] HRESULT getTypeDefAssemblyName(mdTypeDef token, char16_t* buffer, ULONG size, ULONG* outLength);
    [[nodiscard]] HRESULT getTypeRefAssemblyName(mdTypeRef token, char16_t* buffer, ULONG size, ULONG* outLength);
    [[nodiscard]] HRESULT getMethodName(mdToken token, char16_t* buffer, ULONG size);
    [[nodiscard]] HRESULT getInterfaces(mdTypeDef token, char16_t** assemblies, char16_t** classes, ULONG limit, ULONG size,
                          unsigned int* count);
    [[nodiscard]] HRESULT getAttributes(mdToken token, char16_t** assemblies, char16_t** classes, ULONG limit, ULONG size,
                          unsigned int* count);
    [[nodiscard]] HRESULT getModuleAssemblyName(char16_t* buffer, ULONG size);

    AutoCOMPointer<ICorProfilerInfo> info;
    AutoCOMPointer<IMetaDataImport> import;
    FunctionID functionID = 0;
    ModuleID moduleID = 0;
    ClassID classID = 0;
    // The modules met last, their metadata opened and their assembly named
    // once: the runtime's searches for precompiled code hop between a few
    // modules at nearly every call.
    // The names lie apart from the entries: a context made touches one page
    // of the entries, not one per name.
    struct KnownModule {
        ModuleID id = 0;
        AutoCOMPointer<IMetaDataImport> import;
        bool assemblyKnown = false;
        // The assembly and class of each attribute constructor met: a
        // module's classes carry the same few attributes, and a rule on
        // attributes reads every class's list.
        std::unordered_map<mdToken, std::pair<std::u16string, std::u16string>> attributeClasses;
        void reset(ModuleID newId);
    };
    static constexpr unsigned int kKnownModules = 16;
    KnownModule& knownModule(ModuleID id);
    KnownModule known[kKnownModules];
    char16_t knownAssemblies[kKnownModules][kNameSize];
    unsigned int nextKnown = 0;

    bool methodNameKnown = false;
    mdMethodDef methodDef = 0;
    char16_t methodName[kNameSize];

    bool classNameKnown = false;
    mdTypeDef typeDef = 0;
    char16_t className[kNameSize];
    char16_t assemblyName[kNameSize];

    bool parentNameKnown = false;
    mdToken superToken = 0;
    char16_t parentClassName[kNameSize];
    char16_t parentAssemblyName[kNameSize];

    CachedTypeList interfaces;
    CachedTypeList classAttributes;
    CachedTypeList methodAttributes;
};
