// Names that more than one part of the profiler spells: the environment
// variables of the agent profile, the property keys read in several places,
// and the managed names of the agent's contract and of the core library.
#pragma once

namespace SharedNames {

// The agent profile (properties file) the process runs with; the capitalised
// form is read when the first is absent.
inline constexpr char16_t kAgentProfileVariable[] = u"com.tarn.harrowlite.agentProfile";
inline constexpr char16_t kAgentProfileCapitalVariable[] = u"com.tarn.harrowlite.AgentProfile";

inline constexpr char16_t kDeepInstrumentationKey[] = u"harrowlite.agent.deep.instrumentation.enabled";
inline constexpr char16_t kExcludedApplicationsKey[] = u"harrowlite.agent.dotnet.monitorApplications.exclude";

// The managed agent and the shim classes through which rewritten code reaches it.
inline constexpr char16_t kAgentAssembly[] = u"tarn.Agent";
inline constexpr char16_t kPreAgentShimClass[] = u"com.tarn.harrowlite.fieldmark.dotnet.PreAgentShim";
inline constexpr char16_t kSyntheticAgentShimClass[] = u"com.tarn.harrowlite.fieldmark.dotnet.SyntheticAgentShim";

// Core library names.
inline constexpr char16_t kCoreLibrary[] = u"System.Private.CoreLib";
inline constexpr char16_t kDesktopCoreLibrary[] = u"mscorlib";
inline constexpr char16_t kValueType[] = u"System.ValueType";
inline constexpr char16_t kIsByRefLikeAttribute[] = u"System.Runtime.CompilerServices.IsByRefLikeAttribute";
inline constexpr char16_t kIsReadOnlyAttribute[] = u"System.Runtime.CompilerServices.IsReadOnlyAttribute";

}  // namespace SharedNames
