// A real metadata context with two things steered by the test: the ClassID
// (the profiler info double gives each method its own), and failures of the
// class and method name getters, which real metadata does not produce.
#pragma once

#include "metadata/IMetaDataContext.h"
#include "runtime/CorErrors.h"

class SteeredContext : public IMetaDataContext {
public:
    explicit SteeredContext(IMetaDataContext* inner) : inner(inner) {}

    ClassID classID = 0;
    bool failClassName = false;
    bool failMethodName = false;

    HRESULT setFunction(FunctionID id) override { return inner->setFunction(id); }
    IMetaDataImport* getImport() override { return inner->getImport(); }
    ICorProfilerInfo* getInfo() override { return inner->getInfo(); }
    FunctionID getFunctionID() override { return inner->getFunctionID(); }
    unsigned int getMethodID() override { return inner->getMethodID(); }
    ModuleID getModuleID() override { return inner->getModuleID(); }
    ClassID getClassID() override { return classID; }
    mdTypeDef getTypeDef() override { return inner->getTypeDef(); }
    mdMethodDef getMethodDef() override { return inner->getMethodDef(); }
    mdToken getSuperToken() override { return inner->getSuperToken(); }
    bool isInstanceTypeInitializer() override { return inner->isInstanceTypeInitializer(); }
    HRESULT setImport(IMetaDataImport* import) override { return inner->setImport(import); }
    HRESULT setModuleID(ModuleID id) override { return inner->setModuleID(id); }
    HRESULT setMethodDef(mdMethodDef token) override { return inner->setMethodDef(token); }
    HRESULT setTypeDef(mdTypeDef token) override { return inner->setTypeDef(token); }
    HRESULT setSuperToken(mdToken token) override { return inner->setSuperToken(token); }
    HRESULT getAssemblyName(char16_t** assembly) override { return inner->getAssemblyName(assembly); }
    HRESULT getClassName(char16_t** assembly, char16_t** className) override {
        return failClassName ? E_FAIL : inner->getClassName(assembly, className);
    }
    HRESULT getMethodName(char16_t** name) override {
        return failMethodName ? E_FAIL : inner->getMethodName(name);
    }
    HRESULT getParentName(char16_t** assembly, char16_t** className) override {
        return inner->getParentName(assembly, className);
    }
    HRESULT getInterfaces(char16_t*** assemblies, char16_t*** classes, unsigned int* count) override {
        return inner->getInterfaces(assemblies, classes, count);
    }
    HRESULT getMethodAttributes(char16_t*** assemblies, char16_t*** classes, unsigned int* count) override {
        return inner->getMethodAttributes(assemblies, classes, count);
    }
    HRESULT getClassAttributes(char16_t*** assemblies, char16_t*** classes, unsigned int* count) override {
        return inner->getClassAttributes(assemblies, classes, count);
    }
    HRESULT getClassName(unsigned int token, char16_t* assembly, char16_t* className, unsigned int size) override {
        return inner->getClassName(token, assembly, className, size);
    }

private:
    IMetaDataContext* inner;
};
