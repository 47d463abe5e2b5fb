// The shim's class constructor: every delegate field starts out at a stub
// that does nothing, or at the loader for the fields that bring the agent in.
#include "shim/SyntheticAgentShim.h"

#include "platform/AutoPointer.h"
#include "platform/FormattedOutput.h"

using namespace ShimDelegateTable;

namespace {

constexpr DWORD kClassCtorFlags = mdStatic | mdSpecialName | mdRTSpecialName;
constexpr COR_SIGNATURE kClassCtorSig[] = {0x00, 0x00, 0x01};  // void ()

}  // namespace

HRESULT SyntheticAgentShim::DefineClassCtor() {
    mdMethodDef cctor = 0;
    HRESULT hr =
        emit->DefineMethod(shimType, u".cctor", kClassCtorFlags, kClassCtorSig, sizeof(kClassCtorSig), 0, 0, &cctor);
    AutoPointer<IMethodBuilder> builder(IMethodBuilder::newInstance());
    if (SUCCEEDED(hr) && builder.get() == nullptr) {
        hr = E_OUTOFMEMORY;
    }

    ILEmitter il(builder.get(), 0, hr);
    if (il.ok()) {
        builder->getFatHeader()->MaxStack = 10;
    }
    for (unsigned int i = 0; i < kFieldCount; ++i) {
        const DelegateRecord& record = delegateRecords[fields[i].kind()];
        mdMethodDef target = record.emptyMethod;
        // Without an attach, corInitTrace stays quiet until code outside the
        // core library has brought the agent in through initTrace.
        if (fields[i].startsAtLoader(attached)) {
            target = loadInitTraceMethod;
        }
        GenerateAssignEmptyDelegate(il, delegateFields[i], record.ctor, target);
    }
    hr = il.op(Opcode::ret).then([&] { return AssignMethodBody(cctor, builder.get()); }).status();
    if (FAILED(hr)) {
        fprintf_8(log, "Failed to AssignMethodBody\n");
    }
    return hr;
}

void SyntheticAgentShim::GenerateAssignEmptyDelegate(ILEmitter& il, mdFieldDef field, mdMethodDef delegateCtor,
                                                     mdMethodDef method) {
    // field = new DelegateType(null, &method)
    il.op(Opcode::ldnull).op(Opcode::ldftn, method).op(Opcode::newobj, delegateCtor).op(Opcode::stsfld, field);
}
