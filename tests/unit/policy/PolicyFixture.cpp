#include "PolicyFixture.h"

#include <filesystem>
#include <memory>
#include <utility>

#include "runtime/CorErrors.h"

std::unique_ptr<ProfilerController> AgentInstallation::controller(ICorProfilerInfo* info, const std::string& text) {
    if (!text.empty()) {
        set("harrowlite.fieldmark.directivesFile", "probes.fmd");
        write("probes.fmd", text);
    }
    FILE* file = fopen(writeProfile().c_str(), "r");
    IProperties* store = IProperties::newInstance();
    store->readProperties(file);
    fclose(file);
    last = static_cast<ProfilerController*>(IProfilerController::newInstance(info, store));
    // A refusal deletes the properties; a made controller leaves them to us.
    if (last != nullptr) stores.emplace_back(store);
    return std::unique_ptr<ProfilerController>(last);
}

std::string AgentInstallation::executableName() {
    const std::string exe = std::filesystem::read_symlink("/proc/self/exe").string();
    return exe.substr(exe.rfind('/') + 1);
}

std::vector<std::string> AgentInstallation::log() const {
    if (last != nullptr) fflush(last->getNativeLog());
    std::string text = readFile(logPath());
    // The agent's folder is shortened to "~".
    for (size_t at = text.find(profiles()); at != std::string::npos; at = text.find(profiles(), at)) {
        text.replace(at, profiles().size(), "~");
    }
    std::vector<std::string> lines = splitLines(text);
    // The first line names the build; the suites read what follows it.
    if (!lines.empty() && lines.front().rfind("tarn.NativeProfiler ", 0) == 0) lines.erase(lines.begin());
    return lines;
}

void PolicyFixture::forEachMethod(ModuleID where, const std::function<void(IMetaDataContext*)>& visit,
                                  bool withClassIds) {
    IMetaDataImport* import = info->importOf(where);
    ASSERT_NE(import, nullptr);
    ASSERT_EQ(context->setModuleID(where), S_OK);
    ASSERT_EQ(context->setImport(import), S_OK);
    context->classID = 0;
    HCORENUM types = nullptr;
    mdTypeDef type = 0;
    ULONG count = 0;
    while (import->EnumTypeDefs(&types, &type, 1, &count) == S_OK && count == 1) {
        DWORD flags = 0;
        mdToken extends = 0;
        ASSERT_EQ(import->GetTypeDefProps(type, nullptr, 0, nullptr, &flags, &extends), S_OK);
        ASSERT_EQ(context->setTypeDef(type), S_OK);
        ASSERT_EQ(context->setSuperToken(extends), S_OK);
        context->classID = withClassIds ? where + type : 0;
        HCORENUM methods = nullptr;
        mdMethodDef method = 0;
        while (import->EnumMethods(&methods, type, &method, 1, &count) == S_OK && count == 1) {
            ASSERT_EQ(context->setMethodDef(method), S_OK);
            visit(context.get());
        }
        import->CloseEnum(methods);
    }
    import->CloseEnum(types);
}

std::unique_ptr<IDirectiveController> PolicyFixture::directives(const std::string& text, HRESULT* status,
                                                                FILE* log) {
    std::unique_ptr<IDirectiveController> controller(IDirectiveController::newInstance(log));
    FILE* file = tmpfile();
    EXPECT_NE(file, nullptr);
    fwrite(text.data(), 1, text.size(), file);
    rewind(file);
    const HRESULT result = controller->readDirectives(file);
    fclose(file);
    if (status != nullptr) *status = result;
    return controller;
}

PolicyFixture::Account PolicyFixture::account(IDirectiveController& controller, IMetaDataContext* method) {
    std::unique_ptr<IDirectiveMatchResult> result(controller.shouldMonitorResult(method));
    const auto names = [&](int count, IDirectiveGroup* (IDirectiveMatchResult::*group)(int)) {
        std::vector<std::string> all;
        for (int i = 0; i < count; ++i) all.push_back(RealAssemblies::narrow(((*result).*group)(i)->getName()));
        return all;
    };
    return {result->isSkippedGlobally(), names(result->getSkippedCount(), &IDirectiveMatchResult::getSkippedGroup),
            names(result->getMatchedCount(), &IDirectiveMatchResult::getMatchedGroup),
            names(result->getUnmatchedCount(), &IDirectiveMatchResult::getUnmatchedGroup)};
}

bool PolicyFixture::selects(IDirectiveController& controller, IMetaDataContext* method) {
    // ClassID 0 keeps the decision away from the cache.
    auto* steered = static_cast<SteeredContext*>(method);
    const ClassID classID = std::exchange(steered->classID, 0);
    const bool answer = controller.shouldMonitor(method);
    steered->classID = classID;
    return answer;
}

HRESULT PolicyFixture::line(IDirectiveController& controller, const std::string& text) {
    std::u16string wide = RealAssemblies::widen(text);
    return controller.readDirective(wide.data());
}
