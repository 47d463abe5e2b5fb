#include "rewrite/TracePath.h"
#include "platform/SharedNames.h"

#include <string_view>

namespace {

// The shim's class and the agent's classes share this namespace.
constexpr std::u16string_view kAgentNamespace = u"com.tarn.harrowlite.fieldmark.dotnet.";
constexpr std::u16string_view kAgentAssembly = SharedNames::kAgentAssembly;
// The core library's namespace of the runtime's own helpers (casting, boxing,
// statics, method tables), reached from generated code rather than called:
// the injected code itself boxes and reads statics through them.
constexpr std::u16string_view kHelperNamespace = u"System.Runtime.CompilerServices.";
// Exception dispatch, the stubs of calls into native code, and the thread,
// whose statics base every thread-static read of the shim and the agent goes
// through. The runtime's own classes stand directly in System.Runtime; the
// public ones in its subnamespaces.
constexpr std::u16string_view kCoreClasses[] = {
    u"System.Runtime.ExceptionServices.InternalCalls",
    u"System.StubHelpers.",
    u"System.Threading.Thread",
    u"System.RuntimeTypeHandle",
};
constexpr std::u16string_view kRuntimeNamespace = u"System.Runtime.";

bool startsWith(std::u16string_view text, std::u16string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

// The outermost class of a nested name "Outer+Inner" or "Outer/Inner".
std::u16string_view outermost(std::u16string_view name) {
    size_t nested = name.find_first_of(u"+/");
    return nested == std::u16string_view::npos ? name : name.substr(0, nested);
}

bool isRuntimeHelper(std::u16string_view name) {
    if (startsWith(name, kRuntimeNamespace) && name.find(u'.', kRuntimeNamespace.size()) == std::u16string_view::npos) {
        return true;
    }
    if (startsWith(name, kHelperNamespace) && name.find(u'.', kHelperNamespace.size()) == std::u16string_view::npos) {
        return true;
    }
    for (std::u16string_view core : kCoreClasses) {
        if (core.back() == u'.' ? startsWith(name, core) : name == core) return true;
    }
    return false;
}

}  // namespace

bool TracePath::contains(const char16_t* assembly, const char16_t* className, bool coreLibrary) {
    if (className == nullptr) return false;
    std::u16string_view name = outermost(className);
    if (startsWith(name, kAgentNamespace)) return true;
    if (assembly != nullptr) {
        // The agent and its own satellite assemblies ("tarn.Agent.*"), not any
        // other name that happens to start alike.
        std::u16string_view owner(assembly);
        if (owner == kAgentAssembly || (startsWith(owner, kAgentAssembly) && owner[kAgentAssembly.size()] == u'.')) {
            return true;
        }
    }
    return coreLibrary && isRuntimeHelper(name);
}
