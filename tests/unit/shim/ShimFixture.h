// A writable copy of the installed core library served to the synthetic shim
// through a profiler info double, with the shim's log captured and the agent's
// environment variables under the test's control.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "MetadataText.h"
#include "platform/AutoPointer.h"
#include "runtime/Guids.h"
#include "shim/SyntheticAgentShim.h"
#include "support/EmittingProfilerInfo.h"
#include "support/FaultingMetaDataImport.h"
#include "support/HostedRuntime.h"
#include "support/RealAssemblies.h"
#include "support/ScratchDirectory.h"

// Sets environment variables for one test and puts the old values back.
class ScopedEnvironment {
public:
    ~ScopedEnvironment() {
        for (const auto& [name, value] : saved) {
            if (value) {
                setenv(name.c_str(), value->c_str(), 1);
            } else {
                unsetenv(name.c_str());
            }
        }
    }
    void set(const std::string& name, const char* value) {
        if (saved.find(name) == saved.end()) {
            const char* old = getenv(name.c_str());
            saved[name] = old != nullptr ? std::optional<std::string>(old) : std::nullopt;
        }
        if (value != nullptr) {
            setenv(name.c_str(), value, 1);
        } else {
            unsetenv(name.c_str());
        }
    }

private:
    std::map<std::string, std::optional<std::string>> saved;
};

class ShimFixture : public ::testing::Test {
protected:
    static constexpr ModuleID kModule = 0x7f0012340000;

    void SetUp() override {
        ASSERT_TRUE(HostedRuntime::instance().ready()) << HostedRuntime::instance().error();
        std::string copy = scratch.path("System.Private.CoreLib.dll");
        std::filesystem::copy_file(RealAssemblies::coreLibPath(), copy);
        emit = EmittingProfilerInfo::openForWriting(copy);
        ASSERT_NE(emit.get(), nullptr) << "cannot open " << copy << " for writing";
        ASSERT_EQ(emit->QueryInterface(IID_IMetaDataImport, reinterpret_cast<void**>(&import)), S_OK);
        faulting = FaultingMetaDataImport::wrap(import);
        text = std::make_unique<MetadataText>(import.get());

        environment.set("com.tarn.harrowlite.agentLocation", nullptr);
        environment.set("com.tarn.harrowlite.agentProfile", "/opt/tarn/AgentProfile.config");
        environment.set("com.tarn.harrowlite.AgentProfile", nullptr);
    }

    // Runs the shim once over the copy; the log goes to logText.
    HRESULT define(bool dotnetCore, bool attached, int infoVersion = 10) {
        info = std::make_unique<EmittingProfilerInfo>(kModule, emit.get(), faulting.get(), infoVersion);
        info->metaDataResult = metaDataResult;
        char* buffer = nullptr;
        size_t size = 0;
        FILE* log = open_memstream(&buffer, &size);
        SyntheticAgentShim shim;
        HRESULT hr = shim.DefineSyntheticAgentShim(info.get(), kModule, log, dotnetCore, attached);
        fclose(log);
        logText.assign(buffer, size);
        free(buffer);
        return hr;
    }

    mdTypeDef shimType() { return RealAssemblies::findType(import, ShimDelegateTable::kShimClassName); }
    mdTypeDef corlibType(const char16_t* name) { return RealAssemblies::findType(import, name); }

    // Methods or fields of a type in definition order.
    std::vector<mdMethodDef> methodsOf(mdTypeDef type) {
        HCORENUM enumerator = nullptr;
        mdMethodDef tokens[64];
        ULONG count = 0;
        import->EnumMethods(&enumerator, type, tokens, 64, &count);
        import->CloseEnum(enumerator);
        return std::vector<mdMethodDef>(tokens, tokens + count);
    }
    std::vector<mdFieldDef> fieldsOf(mdTypeDef type) {
        HCORENUM enumerator = nullptr;
        mdFieldDef tokens[64];
        ULONG count = 0;
        import->EnumFields(&enumerator, type, tokens, 64, &count);
        import->CloseEnum(enumerator);
        return std::vector<mdFieldDef>(tokens, tokens + count);
    }
    mdMethodDef methodNamed(mdTypeDef type, const std::string& name) {
        for (mdMethodDef method : methodsOf(type)) {
            if (text->methodName(method) == name) return method;
        }
        return 0;
    }

    // The body installed for a method, decoded; empty if none was installed.
    MethodBody bodyOf(mdMethodDef method) {
        auto found = info->bodies().find(method);
        return found == info->bodies().end() ? MethodBody{} : text->body(found->second);
    }

    // Lines of the log that begin with prefix, in order.
    std::vector<std::string> logLines(const std::string& prefix = "") const {
        std::vector<std::string> lines;
        size_t start = 0;
        while (start < logText.size()) {
            size_t end = logText.find('\n', start);
            std::string line = logText.substr(start, end == std::string::npos ? std::string::npos : end - start);
            if (line.compare(0, prefix.size(), prefix) == 0) lines.push_back(line);
            start = end == std::string::npos ? logText.size() : end + 1;
        }
        return lines;
    }

    ScratchDirectory scratch;
    ScopedEnvironment environment;
    AutoCOMPointer<IMetaDataEmit> emit;
    AutoCOMPointer<IMetaDataImport> import;
    AutoCOMPointer<FaultingMetaDataImport> faulting;
    std::unique_ptr<MetadataText> text;
    std::unique_ptr<EmittingProfilerInfo> info;
    HRESULT metaDataResult = S_OK;
    std::string logText;
};
