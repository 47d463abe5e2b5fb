// The shape of the synthetic shim class: its four delegate types, and a
// delegate field for each of the agent's trace functions (rewrite/TraceMembers.h)
// with the shim method of the same name and signature that calls through it,
// and the stub the class constructor points it at until the agent's method
// replaces it.
#pragma once

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
    // The trace function the field leads to: the shim method of its name and
    // signature calls through the field.
    TraceMembers::Index member;
    InitialTarget initialTarget;

    constexpr const char16_t* methodName() const { return TraceMembers::kMembers[member].name; }
    // Whether the class constructor points the field at the loader.
    constexpr bool startsAtLoader(bool attached) const {
        return initialTarget == InitialTarget::LoadInitTrace ||
               (initialTarget == InitialTarget::LoadInitTraceIfAttached && attached);
    }
    // The delegate type of the function's signature, told by its bytes: a
    // constant expression may not compare the addresses of two tables.
    constexpr DelegateKind kind() const {
        const TraceMembers::Member& traced = TraceMembers::kMembers[member];
        for (unsigned int kind = 0; kind < DelegateKindCount; ++kind) {
            const DelegateShape& shape = delegates[kind];
            bool same = shape.signatureLength == traced.length;
            for (unsigned int i = 0; same && i < traced.length; ++i) same = shape.signature[i] == traced.signature[i];
            if (same) return static_cast<DelegateKind>(kind);
        }
        return DelegateKindCount;
    }
};

inline constexpr unsigned int kFieldCount = TraceMembers::kCount;
inline constexpr FieldShape fields[kFieldCount] = {
    {u"InitTraceDelegate", TraceMembers::kInitTrace, InitialTarget::LoadInitTrace},
    {u"CorInitTraceDelegate", TraceMembers::kCorInitTrace, InitialTarget::LoadInitTraceIfAttached},
    {u"LoadTraceDelegate", TraceMembers::kLoadTrace, InitialTarget::EmptyStub},
    {u"LoadTraceObjDelegate", TraceMembers::kLoadTraceObject, InitialTarget::EmptyStub},
    {u"PushTraceDelegate", TraceMembers::kPushTrace, InitialTarget::EmptyStub},
    {u"StartTraceDelegate", TraceMembers::kStartTrace, InitialTarget::EmptyStub},
    {u"FinishValueTypeTraceDelegate", TraceMembers::kFinishValueTypeTrace, InitialTarget::EmptyStub},
    {u"FinishTraceDelegate", TraceMembers::kFinishTrace, InitialTarget::EmptyStub},
    {u"FinishTraceObjDelegate", TraceMembers::kFinishTraceObject, InitialTarget::EmptyStub},
    {u"CatchTraceDelegate", TraceMembers::kCatchTrace, InitialTarget::EmptyStub},
};
static_assert(
    [] {
        for (const FieldShape& field : fields) {
            if (field.kind() == DelegateKindCount) return false;
        }
        return true;
    }(),
    "every trace function's signature has its delegate type");

}  // namespace ShimDelegateTable
