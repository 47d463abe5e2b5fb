// The view that matching and instrumentation have of the method in hand: its
// identifiers, tokens, and the names around it.
//
// Contract:
//  - Names handed out belong to the context. They stay valid until the cache
//    that holds them is filled anew (after a setter moved the context) or the
//    context is destroyed.
//  - Out-parameters may be null when only the side effect is wanted; on failure
//    none is written.
//  - No lock inside: one thread at a time. The shared context of the callback
//    hub is used only under its JIT-path lock.
//  - Two ways to position it: setFunction for a JIT-compiled function, or, while
//    a module is processed and no function id exists yet, setImport,
//    setModuleID, setTypeDef, setMethodDef and setSuperToken.
#pragma once

#include "runtime/CorTypes.h"
#include "runtime/MetaDataInterfaces.h"
#include "runtime/CorProfilerInfo.h"

class IMetaDataContext {
public:
    // Longest name, terminator included, and most entries of a list.
    static constexpr unsigned int kNameSize = 2048;
    static constexpr unsigned int kListLimit = 64;

    // The context holds all its buffers inline: always on the heap, made once
    // per module or service, never per method. The caller owns the result.
    static IMetaDataContext* newInstance(ICorProfilerInfo* info);

    virtual ~IMetaDataContext() = default;

    // Moves the context to a function; on failure it stays where it was.
    [[nodiscard]] virtual HRESULT setFunction(FunctionID functionID) = 0;
    // The same for a method of a module, without a function of its own (a
    // generic method, whose instantiations share its body).
    [[nodiscard]] virtual HRESULT setModuleMethod(ModuleID moduleID, mdMethodDef method) = 0;

    // Neither adds a reference.
    virtual IMetaDataImport* getImport() = 0;
    virtual ICorProfilerInfo* getInfo() = 0;

    virtual FunctionID getFunctionID() = 0;
    // Low 32 bits of the function id, or, without one, of the module id plus
    // the row of the method def.
    virtual unsigned int getMethodID() = 0;
    virtual ModuleID getModuleID() = 0;
    virtual ClassID getClassID() = 0;
    virtual mdTypeDef getTypeDef() = 0;
    virtual mdMethodDef getMethodDef() = 0;
    virtual mdToken getSuperToken() = 0;
    // True for a method named ".ctor" (or any name that begins with it).
    virtual bool isInstanceTypeInitializer() = 0;

    // The setters place the context on a module scan's tokens; they always answer S_OK.
    virtual HRESULT setImport(IMetaDataImport* import) = 0;
    virtual HRESULT setModuleID(ModuleID moduleID) = 0;
    virtual HRESULT setMethodDef(mdMethodDef token) = 0;
    // The method with its name as a scan read it from the same scope:
    // getMethodName answers that name without asking the scope again.
    virtual HRESULT setMethod(mdMethodDef token, const char16_t* name) = 0;
    virtual HRESULT setTypeDef(mdTypeDef token) = 0;
    virtual HRESULT setSuperToken(mdToken token) = 0;
    // A module unloads: what the context keeps of it goes, as its id may come
    // back for another module.
    virtual void forgetModule(ModuleID moduleID) = 0;

    // The assembly of the module; the runtime is asked once a module.
    [[nodiscard]] virtual HRESULT getAssemblyName(char16_t** assembly) = 0;
    // Cached: class and assembly of the type def, nested names joined by '+'.
    [[nodiscard]] virtual HRESULT getClassName(char16_t** assembly, char16_t** className) = 0;
    [[nodiscard]] virtual HRESULT getMethodName(char16_t** name) = 0;
    // Cached names of the base class; E_NOTIMPL for a TypeSpec base or none.
    [[nodiscard]] virtual HRESULT getParentName(char16_t** assembly, char16_t** className) = 0;
    // Cached lists of at most kListLimit entries.
    [[nodiscard]] virtual HRESULT getInterfaces(char16_t*** assemblies, char16_t*** classes, unsigned int* count) = 0;
    [[nodiscard]] virtual HRESULT getMethodAttributes(char16_t*** assemblies, char16_t*** classes, unsigned int* count) = 0;
    [[nodiscard]] virtual HRESULT getClassAttributes(char16_t*** assemblies, char16_t*** classes, unsigned int* count) = 0;
    // Uncached: any type def or type ref into the caller's buffers of size units.
    [[nodiscard]] virtual HRESULT getClassName(unsigned int token, char16_t* assembly, char16_t* className,
                                 unsigned int size) = 0;
};
