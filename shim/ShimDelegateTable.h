// The shape of the synthetic shim class: its four delegate types, and the ten
// delegate fields with the shim method that calls through each, the stub the
// class constructor points it at, and the agent method that replaces the stub.
// The agent's class holds a public static method of the same name and
// signature for every row: that is the contract with the managed agent.
#pragma once

#include "platform/SharedNames.h"
#include "rewrite/TraceMembers.h"
#include "runtime/CorTypes.h"

namespace ShimDelegateTable {

// The signatures of the agent's trace functions (see rewrite/TraceMembers.h).
inline constexpr auto& initTraceSig = TraceMembers::kInt32OfInt32;
inline constexpr auto& pushTraceSig = TraceMembers::kVoidOfInt32Object;
inline constexpr auto& traceSig = TraceMembers::kVoid;
inline constexpr auto& traceObjSig = TraceMembers::kVoidOfObject;

// The delegate types in the order in which they are defined.
enum DelegateKind : unsigned int { InitTrace, PushTrace, Trace, TraceObj, DelegateKindCount };

struct DelegateShape {
    const char16_t* typeName;
    const char16_t* emptyMethod;  // the stub that does nothing
    const COR_SIGNATURE* signature;
    ULONG signatureLength;
};

inline constexpr DelegateShape delegates[DelegateKindCount] = {
    {u"InitTrace", u"emptyInitTrace", initTraceSig, sizeof(initTraceSig)},
    {u"PushTrace", u"emptyPushTrace", pushTraceSig, sizeof(pushTraceSig)},
    {u"Trace", u"emptyTrace", traceSig, sizeof(traceSig)},
    {u"TraceObj", u"emptyTraceObj", traceObjSig, sizeof(traceObjSig)},
};

// Where the class constructor points a field before the agent is loaded.
enum class InitialTarget { LoadInitTrace, LoadInitTraceIfAttached, EmptyStub };

struct FieldShape {
    const char16_t* fieldName;
    DelegateKind kind;
    // The shim method, and the agent method of the same name.
    const char16_t* methodName;
    InitialTarget initialTarget;
};

inline constexpr unsigned int kFieldCount = 10;

inline constexpr FieldShape fields[kFieldCount] = {
    {u"InitTraceDelegate", InitTrace, SharedNames::kInitTrace, InitialTarget::LoadInitTrace},
    {u"CorInitTraceDelegate", InitTrace, SharedNames::kCorInitTrace, InitialTarget::LoadInitTraceIfAttached},
    {u"LoadTraceDelegate", Trace, SharedNames::kLoadTrace, InitialTarget::EmptyStub},
    {u"LoadTraceObjDelegate", TraceObj, SharedNames::kLoadTrace, InitialTarget::EmptyStub},
    {u"PushTraceDelegate", PushTrace, SharedNames::kPushTrace, InitialTarget::EmptyStub},
    {u"StartTraceDelegate", Trace, SharedNames::kStartTrace, InitialTarget::EmptyStub},
    {u"FinishValueTypeTraceDelegate", TraceObj, SharedNames::kFinishValueTypeTrace, InitialTarget::EmptyStub},
    {u"FinishTraceDelegate", Trace, SharedNames::kFinishTrace, InitialTarget::EmptyStub},
    {u"FinishTraceObjDelegate", TraceObj, SharedNames::kFinishTrace, InitialTarget::EmptyStub},
    {u"CatchTraceDelegate", TraceObj, SharedNames::kCatchTrace, InitialTarget::EmptyStub},
};

}  // namespace ShimDelegateTable
