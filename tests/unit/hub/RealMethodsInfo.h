// A runtime for a start-up child that also knows real methods: it answers the
// start-up questions as RuntimeInfoFake does, and maps function ids chosen by
// the test to methods of real assemblies opened by the hosted runtime (through
// ProfilerInfoDouble), so that the context, the controller and the directives
// see real names and real metadata. Everything else fails as the fake does.
#pragma once

#include <algorithm>
#include <map>
#include <string>

#include "StartupChild.h"
#include "support/ProfilerInfoDouble.h"
#include "support/RealAssemblies.h"

class RealMethodsInfo : public RuntimeInfoFake {
public:
    struct Method {
        ModuleID module = 0;
        mdMethodDef token = 0;
    };

    RealMethodsInfo() : methods(ProfilerInfoDouble::newInstance()) {}

    // Registers method of type (full metadata name) in the test asset under id.
    // A failure is kept in error() and the id stays unknown to the runtime.
    void addMethod(const std::string& asset, const char16_t* type, const char16_t* method, FunctionID id) {
        ModuleID& module = modules[asset];
        if (module == 0) {
            module = methods->addModule(RealAssemblies::testAsset(asset));
        }
        IMetaDataImport* import = module == 0 ? nullptr : methods->importOf(module);
        mdTypeDef typeDef = import == nullptr ? 0 : RealAssemblies::findType(import, type);
        mdMethodDef token = typeDef == 0 ? 0 : RealAssemblies::findMethod(import, typeDef, method);
        if (token == 0) {
            failure += "no " + asset + " " + RealAssemblies::narrow(type) + "::" + RealAssemblies::narrow(method) + "; ";
            return;
        }
        methods->addFunction(module, token, id);
        registered[id] = Method {module, token};
    }

    const std::string& error() const { return failure; }
    Method method(FunctionID id) const {
        auto found = registered.find(id);
        return found == registered.end() ? Method {} : found->second;
    }

    HRESULT GetFunctionInfo(FunctionID functionId, ClassID* pClassId, ModuleID* pModuleId, mdToken* pToken) override {
        count("GetFunctionInfo");
        return methods->GetFunctionInfo(functionId, pClassId, pModuleId, pToken);
    }
    HRESULT GetTokenAndMetaDataFromFunction(FunctionID functionId, REFIID riid, IUnknown** ppImport,
                                            mdToken* pToken) override {
        count("GetTokenAndMetaDataFromFunction");
        return methods->GetTokenAndMetaDataFromFunction(functionId, riid, ppImport, pToken);
    }
    HRESULT GetModuleInfo(ModuleID moduleId, LPCBYTE* ppBaseLoadAddress, ULONG cchName, ULONG* pcchName,
                          WCHAR szName[], AssemblyID* pAssemblyId) override {
        count("GetModuleInfo");
        return methods->GetModuleInfo(moduleId, ppBaseLoadAddress, cchName, pcchName, szName, pAssemblyId);
    }
    HRESULT GetModuleMetaData(ModuleID moduleId, DWORD dwOpenFlags, REFIID riid, IUnknown** ppOut) override {
        count("GetModuleMetaData");
        return methods->GetModuleMetaData(moduleId, dwOpenFlags, riid, ppOut);
    }
    HRESULT GetAssemblyInfo(AssemblyID assemblyId, ULONG cchName, ULONG* pcchName, WCHAR szName[],
                            AppDomainID* pAppDomainId, ModuleID* pModuleId) override {
        count("GetAssemblyInfo");
        return methods->GetAssemblyInfo(assemblyId, cchName, pcchName, szName, pAppDomainId, pModuleId);
    }

    // Every module loads in one domain.
    HRESULT GetAppDomainInfo(AppDomainID, ULONG cchName, ULONG* pcchName, WCHAR szName[], ProcessID*) override {
        count("GetAppDomainInfo");
        const std::u16string name = u"clrhost";
        if (pcchName != nullptr) {
            *pcchName = static_cast<ULONG>(name.size() + 1);
        }
        if (szName == nullptr || cchName <= name.size()) {
            return E_INVALIDARG;
        }
        std::copy(name.begin(), name.end(), szName);
        szName[name.size()] = 0;
        return S_OK;
    }

private:
    AutoCOMPointer<ProfilerInfoDouble> methods;
    std::map<std::string, ModuleID> modules;
    std::map<FunctionID, Method> registered;
    std::string failure;
};
