#include "directives/DirectiveCheck.h"

#include <cstdlib>
#include <fstream>
#include <memory>

#include "metadata/IMetaDataContext.h"
#include "metadata/MethodDefEnumWrapper.h"
#include "metadata/TypeDefEnumWrapper.h"
#include "offline/HostedRuntime.h"
#include "offline/OfflineProfilerInfo.h"
#include "platform/TextConversion.h"
#include "policy/DirectiveKeywords.h"
#include "policy/IDirectiveGroup.h"
#include "policy/IDirectiveMatchResult.h"
#include "policy/ProfilerController.h"
#include "policy/Properties.h"
#include "runtime/CorErrors.h"

namespace {

std::string narrow(const char16_t* text) {
    std::string result;
    if (text != nullptr) FromChar16Utf8(text, result);
    return result;
}

std::string jsonText(const std::string& text) {
    std::string quoted = "\"";
    for (char c : text) {
        if (c == '"' || c == '\\') quoted += '\\';
        quoted += c;
    }
    return quoted + "\"";
}

std::string groupNames(IDirectiveMatchResult& result, int count, IDirectiveGroup* (IDirectiveMatchResult::*group)(int)) {
    std::string names;
    for (int i = 0; i < count; ++i) {
        names += (names.empty() ? "" : ", ") + narrow((result.*group)(i)->getName());
    }
    return names;
}

// The directive files that the profile names, as the profiler reads them: the
// first of the two keys that is set, a comma-separated list, relative to the
// profile's folder.
std::vector<std::string> directiveFiles(IProperties& properties, const std::string& folder) {
    std::vector<std::string> files;
    for (const char16_t* key : {u"harrowlite.nativeprofiler.directivesFile", u"harrowlite.fieldmark.directivesFile"}) {
        if (!properties.hasProperty(key)) continue;
        std::string list = narrow(properties.getProperty(key));
        for (size_t start = 0; start <= list.size();) {
            size_t end = list.find(',', start);
            if (end == std::string::npos) end = list.size();
            std::string name = list.substr(start, end - start);
            name.erase(0, name.find_first_not_of(" \t"));
            name.erase(name.find_last_not_of(" \t\r\n") + 1);
            if (!name.empty()) files.push_back(name[0] == '/' ? name : folder + "/" + name);
            start = end + 1;
        }
        break;
    }
    return files;
}

void reportIgnoredLines(const std::string& file, const DirectiveCheckOptions& options, FILE* out) {
    std::ifstream stream(file);
    std::string line;
    for (int number = 1; std::getline(stream, line); ++number) {
        // Read as the profiler reads it.
        std::u16string text = Utf16FromUtf8(line);
        DirectiveLine parsed;
        if (!DirectiveKeywords::parse(text.data(), parsed) || DirectiveKeywords::find(parsed) != nullptr) continue;
        const int minimum = DirectiveKeywords::minimumFor(parsed.keyword);
        const std::string reason = minimum < 0 ? "unknown keyword " + narrow(parsed.keyword)
                                               : "too few arguments for " + narrow(parsed.keyword) + " (needs " +
                                                     std::to_string(minimum) + ")";
        if (options.json) {
            fprintf(out, "{\"ignored\":%s,\"line\":%d,\"reason\":%s}\n", jsonText(file).c_str(), number,
                    jsonText(reason).c_str());
        } else {
            fprintf(out, "ignored %s:%d: %s\n", file.c_str(), number, reason.c_str());
        }
    }
}

}  // namespace

namespace {

// One method's verdict, with the group that decides it or the reason it is
// skipped, as a line of text or of JSON.
void reportMethod(ProfilerController& controller, IDirectiveController& directives, IMetaDataContext* context,
                  mdMethodDef method, const DirectiveCheckOptions& options, FILE* out) {
    char16_t* assembly = nullptr;
    char16_t* className = nullptr;
    char16_t* methodName = nullptr;
    if (FAILED(context->getClassName(&assembly, &className)) ||
        FAILED(context->getMethodName(&methodName))) {
        return;
    }
    const std::string name = narrow(className) + "::" + narrow(methodName);
    if (!options.explain.empty() && name != options.explain) return;
    // As the compile path decides: the directives, then no byref-like type.
    const bool byRefLike = controller.isByRefLike(context);
    const bool selected = controller.shouldMonitorMethodUncached(context) == S_OK && !byRefLike;
    if (options.selectedOnly && !selected) return;
    std::unique_ptr<IDirectiveMatchResult> result(directives.shouldMonitorResult(context));
    const std::string matched = groupNames(*result, result->getMatchedCount(),
                                           &IDirectiveMatchResult::getMatchedGroup);
    const std::string skipped = groupNames(*result, result->getSkippedCount(),
                                           &IDirectiveMatchResult::getSkippedGroup);
    std::string why = result->isSkippedGlobally() ? "skipped by the global skips"
                      : !skipped.empty()          ? "skipped by " + skipped
                      : byRefLike && !matched.empty() ? "byref-like type, never traced"
                      : !matched.empty()          ? "selected by " + matched
                                                  : "no group selects it";
    if (!options.explain.empty()) {
        why += "; groups that do not match: " +
               groupNames(*result, result->getUnmatchedCount(), &IDirectiveMatchResult::getUnmatchedGroup);
    }
    if (options.json) {
        fprintf(out, "{\"assembly\":%s,\"method\":%s,\"token\":\"0x%08x\",\"selected\":%s,\"why\":%s}\n",
                jsonText(narrow(assembly)).c_str(), jsonText(name).c_str(), method,
                selected ? "true" : "false", jsonText(why).c_str());
    } else {
        fprintf(out, "%s [%s]%s (%s)\n", selected ? "selected" : "-       ", narrow(assembly).c_str(),
                name.c_str(), why.c_str());
    }
}

}  // namespace

int DirectiveCheck::run(const DirectiveCheckOptions& options, FILE* out, FILE* err) {
    if (!HostedRuntime::instance().ready()) {
        fprintf(err, "tarn-directives: cannot host the .NET runtime: %s\n", HostedRuntime::instance().error().c_str());
        return 2;
    }
    FILE* profile = fopen(options.profile.c_str(), "r");
    if (profile == nullptr) {
        fprintf(err, "tarn-directives: cannot read the profile %s\n", options.profile.c_str());
        return 2;
    }
    auto* properties = new Properties();
    properties->readProperties(profile);
    fclose(profile);
    const std::string folder = options.profile.find('/') == std::string::npos
                                   ? "."
                                   : options.profile.substr(0, options.profile.rfind('/'));
    const std::vector<std::string> files = directiveFiles(*properties, folder);

    // The controller finds its folder where the profiler does: in the environment.
    setenv("com.tarn.harrowlite.agentProfile", options.profile.c_str(), 1);
    AutoCOMPointer<OfflineProfilerInfo> info(new OfflineProfilerInfo());
    std::unique_ptr<ProfilerController> controller(
        static_cast<ProfilerController*>(IProfilerController::newInstance(info, properties)));
    IDirectiveController* directives = controller != nullptr ? controller->getDirectiveController() : nullptr;
    if (directives == nullptr) {
        fprintf(err, "tarn-directives: the directives of %s cannot be loaded\n", options.profile.c_str());
        return 2;
    }
    for (const std::string& file : files) reportIgnoredLines(file, options, out);

    std::unique_ptr<IMetaDataContext> context(IMetaDataContext::newInstance(info));
    for (const std::string& path : options.assemblies) {
        std::u16string widePath;
        FromChar8(path.c_str(), widePath);
        const ModuleID module = info->addModule(widePath);
        if (module == 0) {
            fprintf(err, "tarn-directives: %s is not an assembly\n", path.c_str());
            return 2;
        }
        IMetaDataImport* import = info->importOf(module);
        context->setImport(import);
        context->setModuleID(module);
        TypeDefEnumWrapper types(import);
        while (types.HasNext()) {
            const mdTypeDef type = types.Next();
            mdToken super = 0;
            import->GetTypeDefProps(type, nullptr, 0, nullptr, nullptr, &super);
            context->setTypeDef(type);
            context->setSuperToken(super);
            MethodDefEnumWrapper methods(import, type);
            while (methods.HasNext()) {
                const mdMethodDef method = methods.Next();
                context->setMethodDef(method);
                reportMethod(*controller, *directives, context.get(), method, options, out);
            }
        }
    }
    return 0;
}
