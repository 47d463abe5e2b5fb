// The agent's trace functions: the contract with the managed agent. Each is a
// public static method of the agent's class, and of the synthetic shim, with
// this name and signature; the injected code calls them by these. Constant
// data: nothing runs when the library loads.
#pragma once

#include "runtime/CorTypes.h"

namespace TraceMembers {

// Standard method signatures, default calling convention.
inline constexpr COR_SIGNATURE kInt32OfInt32[] = {0x00, 0x01, 0x08, 0x08};             // int32 (int32)
inline constexpr COR_SIGNATURE kVoidOfInt32Object[] = {0x00, 0x02, 0x01, 0x08, 0x1C};  // void (int32, object)
inline constexpr COR_SIGNATURE kVoid[] = {0x00, 0x00, 0x01};                           // void ()
inline constexpr COR_SIGNATURE kVoidOfObject[] = {0x00, 0x01, 0x01, 0x1C};             // void (object)

struct Member {
    const char16_t* name;
    const COR_SIGNATURE* signature;
    unsigned int length;
    // The number of parameters, as the signature's second byte says.
    constexpr unsigned int parameters() const { return signature[1]; }
    // The parameters as the agent's source declares them, for the log.
    constexpr const char* parameterList() const {
        if (signature == kInt32OfInt32) return "(int)";
        if (signature == kVoidOfInt32Object) return "(int, object)";
        if (signature == kVoidOfObject) return "(object)";
        return "()";
    }
};

template <unsigned int N>
constexpr Member member(const char16_t* name, const COR_SIGNATURE (&signature)[N]) {
    return {name, signature, N};
}

// The trace functions by their place in kMembers. The desktop hijack keeps
// the forwarder of each at the same place (see Profiler::hijackTokens).
enum Index : unsigned int {
    kCorInitTrace,
    kInitTrace,
    kLoadTrace,
    kLoadTraceObject,
    kPushTrace,
    kStartTrace,
    kFinishValueTypeTrace,
    kFinishTrace,
    kFinishTraceObject,
    kCatchTrace,
    kCount,
};

inline constexpr Member kMembers[kCount] = {
    member(u"corInitTrace", kInt32OfInt32),
    member(u"initTrace", kInt32OfInt32),
    member(u"loadTrace", kVoid),
    member(u"loadTrace", kVoidOfObject),
    member(u"pushTrace", kVoidOfInt32Object),
    member(u"startTrace", kVoid),
    member(u"finishValueTypeTrace", kVoidOfObject),
    member(u"finishTrace", kVoid),
    member(u"finishTrace", kVoidOfObject),
    member(u"catchTrace", kVoidOfObject),
};

}  // namespace TraceMembers
