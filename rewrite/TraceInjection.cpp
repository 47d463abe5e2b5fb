// The rewrite of one method: its own body wrapped by calls of the trace
// functions on entry, on the shared normal exit and in an added filter that
// reports an exception passing through without catching it.
#include <iterator>
#include <new>
#include <vector>

#include "rewrite/BodyVerifier.h"
#include "rewrite/Profiler.h"
#include "rewrite/TraceLabels.h"
#include "runtime/Guids.h"

namespace {

constexpr unsigned int kNameSize = 2048;
constexpr size_t kKeptMapEntries = 4096;
const char16_t kNativeIntegerMessage[] = u"Native integer types are not supported.";
const char16_t kTailCallMessage[] = u"Methods with tail calls are not traced.";
const char16_t kJumpMessage[] = u"Methods with a jmp instruction are not traced.";
const char16_t kNoILMessage[] = u"The method has no IL body.";
constexpr HRESULT kFunctionNotIL = static_cast<HRESULT>(0x80131354);
constexpr unsigned int kStageCount = 9;

// What failed, for a stage that gave no reason of its own: by the stage
// reached (see runStage and writeBody).
const char16_t* stageFailure(unsigned int stage) {
    static const char16_t* const failures[] = {
        u"The method could not be read.",
        u"The method's body could not be read.",
        u"The method's signature could not be read.",
        u"The method's code could not be decoded.",
        u"The trace functions could not be referenced in the module.",
        u"The entry trace could not be placed.",
        u"The core library's entry guard could not be placed.",
        u"The start trace could not be placed.",
        u"The exit trace could not be placed.",
        u"The exception filter could not be placed.",
        u"No memory for the new body.",
        u"The new body could not be written.",
        u"The runtime refused the new body.",
    };
    return stage < std::size(failures) ? failures[stage] : failures[0];
}

unsigned int atLeast(unsigned int value, unsigned int floor) {
    return value < floor ? floor : value;
}

// The byte offsets of a clause's edges, its filter's start included.
template <typename Clause>
void addClausePlaces(const Clause& clause, std::vector<unsigned long>& places) {
    places.push_back(clause.TryOffset);
    places.push_back(static_cast<unsigned long>(clause.TryOffset) + clause.TryLength);
    places.push_back(clause.HandlerOffset);
    places.push_back(static_cast<unsigned long>(clause.HandlerOffset) + clause.HandlerLength);
    if ((clause.Flags & COR_ILEXCEPTION_CLAUSE_FILTER) != 0) places.push_back(clause.ClassToken);
}

}  // namespace

HRESULT Profiler::instrumentMethod(IMetaDataContext* newContext, unsigned int* step) {
    lastError = nullptr;
    unsigned int counter = 0;
    const ModuleID module = newContext->getModuleID();
    const mdMethodDef method = newContext->getMethodDef();
    if (auto facts = modules.find(module); version == nullptr && facts != modules.end()) {
        if (auto found = facts->second.outcomes.find(method); found != facts->second.outcomes.end()) {
            *step = 0;
            if (FAILED(found->second.result)) lastError = found->second.reason.c_str();
            return found->second.result;
        }
    }

    HRESULT hr = runStages(newContext, &counter);
    hr = writeBody(&counter, hr);
    if (FAILED(hr) && lastError == nullptr) lastError = hr == kFunctionNotIL ? kNoILMessage : stageFailure(counter);
    try {
        Outcome& outcome = modules[module].outcomes[method];
        outcome.result = hr;
        if (FAILED(hr)) outcome.reason = lastError;
    } catch (const std::bad_alloc&) {
        // Unremembered, the method is simply tried again next time.
    }
    *step = counter;
    return hr;
}

HRESULT Profiler::runStage(unsigned int stage, IMetaDataContext* newContext) {
    switch (stage) {
    case 1:
        return updateContext(newContext);
    case 2:
        return updateSignatures();
    case 3:
        return updateOriginalCode();
    case 4:
        return updateTokens();
    case 5:
        return updateInitTrace();
    case 6:
        return updateCorTrace();
    case 7:
        return updateStartTrace();
    case 8:
        return updateFinishTrace();
    case 9:
        return updateCatchTrace();
    default:
        return E_UNEXPECTED;
    }
}

// Stages 1 to 9 build the new body in the builder; the counter ends on the
// stage that was reached.
HRESULT Profiler::runStages(IMetaDataContext* newContext, unsigned int* counter) {
    HRESULT hr = S_OK;
    for (unsigned int stage = 1; stage <= kStageCount && SUCCEEDED(hr); ++stage) {
        ++*counter;
        try {
            hr = runStage(stage, newContext);
        } catch (const std::bad_alloc&) {
            hr = E_OUTOFMEMORY;
        }
    }
    if (SUCCEEDED(hr)) {
        IMAGE_COR_ILMETHOD_FAT* header = current.builder->getFatHeader();
        // The field has 16 bits; the addition wraps within them.
        header->MaxStack = static_cast<unsigned short>(header->MaxStack + current.stackGrowth);
        if (header->MaxStack < current.minStack) header->MaxStack = current.minStack;
    }
    return hr;
}

// Stages 10 to 12: memory from the runtime's allocator, the body written into
// it, and the body installed. The runtime keeps the block.
HRESULT Profiler::writeBody(unsigned int* counter, HRESULT hr) {
    if (FAILED(hr)) return hr;
    ++*counter;
    hr = allocateBody(current.context->getModuleID(), current.builder->getTotalSize(), &current.newBody);
    if (SUCCEEDED(hr)) {
        ++*counter;
        hr = current.builder->writeToBuffer(current.newBody);
    }
    // A body the runtime would refuse is never installed: the method keeps its
    // own, and the log says why.
    if (SUCCEEDED(hr)) hr = verifyBody();
    if (SUCCEEDED(hr)) {
        ++*counter;
        hr = version != nullptr ? version->SetILFunctionBody(current.builder->getTotalSize(), current.newBody)
                                : info->SetILFunctionBody(current.context->getModuleID(),
                                                          current.context->getMethodDef(), current.newBody);
    }
    if (SUCCEEDED(hr)) mapOriginalOffsets();
    return hr;
}

// Stack traces and debuggers see the offsets of the method's own code. The
// body stands without the map, so a failure here is no failure of the rewrite.
// A method rewritten on module load has no function id yet: its map waits
// until the method compiles.
void Profiler::mapOriginalOffsets() {
    FunctionID function = current.context->getFunctionID();
    // The map's room stays for the next method, unless a method far above the
    // usual size grew it.
    std::vector<COR_IL_MAP>& map = originMap;
    if (map.capacity() > kKeptMapEntries) std::vector<COR_IL_MAP>().swap(map);
    map.clear();
    try {
        if (FAILED(current.builder->mapOrigins(map)) || map.empty()) return;
        if (version != nullptr) {
            version->SetILInstrumentedCodeMap(static_cast<ULONG>(map.size()), map.data());
        } else if (function == 0) {
            current.facts->loadTimeMaps[current.context->getMethodDef()] = map;
        } else {
            info->SetILInstrumentedCodeMap(function, TRUE, static_cast<ULONG>(map.size()), map.data());
        }
    } catch (const std::bad_alloc&) {
        // Stack traces then show offsets of the new body.
    }
}

bool Profiler::mapRewrittenOnLoad(FunctionID function) {
    ClassID type = 0;
    ModuleID module = 0;
    mdToken method = 0;
    if (FAILED(info->GetFunctionInfo(function, &type, &module, &method))) return false;
    // Each instantiation of a generic method compiles the body anew: the map stays.
    auto facts = modules.find(module);
    if (facts == modules.end()) return false;
    auto found = facts->second.loadTimeMaps.find(method);
    if (found == facts->second.loadTimeMaps.end()) return false;
    std::vector<COR_IL_MAP>& map = found->second;
    info->SetILInstrumentedCodeMap(function, TRUE, static_cast<ULONG>(map.size()), map.data());
    return true;
}

HRESULT Profiler::verifyBody() {
    VerifiedMethod method{current.newBody,
                          current.builder->getTotalSize(),
                          current.paramCount + (current.hasThis ? 1u : 0u),
                          current.localCount,
                          current.hasReturn,
                          current.signature->getBytes(),
                          current.signature->getLength(),
                          current.localSignature->getBytes(),
                          current.localSignature->getLength(),
                          current.import(),
                          &current.facts->callees};
    const HRESULT hr = BodyVerifier::verify(method, verifierReason, kVerifierReasonSize);
    if (hr == E_FAIL) lastError = verifierReason;
    return hr;
}

HRESULT Profiler::updateOriginalCode() {
    current.builder->copyHeader(current.buffer->getHeader());
    IMAGE_COR_ILMETHOD_SECT_EH* section = current.buffer->hasEH() ? current.buffer->getEH() : nullptr;
    const unsigned int clauses = section != nullptr ? current.buffer->getEHClauses() : 0;
    const bool small = section != nullptr && current.buffer->isSmallEH();
    // The clauses' edges get their labels while the code is decoded.
    clausePlaces.clear();
    for (unsigned int i = 0; i < clauses; ++i) {
        if (small) {
            addClausePlaces(section->Small.Clauses[i], clausePlaces);
        } else {
            addClausePlaces(section->Fat.Clauses[i], clausePlaces);
        }
    }
    HRESULT hr = current.builder->decodeIL(current.buffer->getCode(), current.buffer->getCodeSize(), clausePlaces);
    for (unsigned int i = 0; i < clauses && SUCCEEDED(hr); ++i) {
        hr = small ? current.builder->insertEHClause(&section->Small.Clauses[i])
                   : current.builder->insertEHClause(&section->Fat.Clauses[i]);
    }
    if (SUCCEEDED(hr)) hr = current.builder->insertIL(0, Opcode::OPCODE_LABEL, LABEL_METHOD_BODY, 0);

    if (SUCCEEDED(hr)) hr = refuseUnwrappableCode();
    if (SUCCEEDED(hr) && current.context->isInstanceTypeInitializer()) {
        unsigned int ctorBody = 1;
        if (!current.isValueType) hr = findBaseConstructorCall(&ctorBody);
        if (SUCCEEDED(hr)) hr = current.builder->insertIL(ctorBody, Opcode::OPCODE_LABEL, LABEL_CTOR_BODY, 0);
    }

    if (SUCCEEDED(hr)) {
        // The list ends in the end label of the decoded code.
        int last = static_cast<int>(current.builder->getILCount()) - 1;
        while (last >= 0 && current.builder->getIL(last)->opcode() == Opcode::OPCODE_LABEL) --last;
        int scanFrom = 0;
        if (last >= 0 && current.builder->getIL(last)->opcode() == Opcode::ret) {
            // That ret stays as the only one, behind the shared exit.
            hr = current.builder->insertIL(last, Opcode::OPCODE_LABEL, LABEL_EXIT, 0);
            scanFrom = last - 1;
        } else {
            unsigned int end = current.builder->getILCount();
            hr = current.builder->insertIL(end, Opcode::OPCODE_LABEL, LABEL_EXIT, 0);
            if (SUCCEEDED(hr)) hr = current.builder->insertIL(end + 1, Opcode::ret, 0, 0);
            scanFrom = static_cast<int>(end);
        }
        // Each other ret becomes a branch in place, so that a branch that
        // aimed at it reaches the shared exit with the value on the stack.
        for (int i = scanFrom; i >= 0 && SUCCEEDED(hr); --i) {
            if (current.builder->getIL(i)->opcode() == Opcode::ret)
                hr = current.builder->replaceIL(i, Opcode::br, 0, LABEL_EXIT);
        }
    }
    if (SUCCEEDED(hr)) current.builder->getFatHeader()->LocalVarSigTok = current.localSigToken;
    return hr;
}

// A tail call leaves the frame before the exit code could run, and a jmp may
// not leave a protected block: such bodies cannot be wrapped.
HRESULT Profiler::refuseUnwrappableCode() {
    for (unsigned int i = 0; i < current.builder->getILCount(); ++i) {
        Opcode opcode = current.builder->getIL(i)->opcode();
        if (opcode == Opcode::tail || opcode == Opcode::jmp) {
            lastError = opcode == Opcode::tail ? kTailCallMessage : kJumpMessage;
            return E_FAIL;
        }
    }
    return S_OK;
}

// The entry code of a class's constructor goes behind the call of the base or
// chained constructor: the first call of a constructor of this class or of
// its base class (a struct's constructors on locals are other calls). Without
// one, as in the root class, the entry code goes first.
HRESULT Profiler::findBaseConstructorCall(unsigned int* index) {
    IMetaDataImport* import = current.import();
    mdToken extends = 0;
    HRESULT hr = import->GetTypeDefProps(current.context->getTypeDef(), nullptr, 0, nullptr, nullptr, &extends);
    if (FAILED(hr)) return hr;
    unsigned int own = current.context->getTypeDef();
    unsigned int base = classOf(import, extends);
    unsigned int count = current.builder->getILCount();
    for (unsigned int i = 0; i + 1 < count; ++i) {
        const Instruction* instruction = current.builder->getIL(i);
        if (instruction->opcode() != Opcode::call) continue;
        unsigned int token = static_cast<unsigned int>(instruction->operand());
        char16_t name[kNameSize] = {};
        ULONG length = 0;
        mdToken parent = 0;
        HRESULT nameResult = E_FAIL;
        if (TypeFromToken(token) == mdtMethodDef) {
            nameResult = import->GetMethodProps(token, &parent, name, kNameSize, &length, nullptr, nullptr, nullptr,
                                                nullptr, nullptr);
        } else if (TypeFromToken(token) == mdtMemberRef) {
            nameResult = import->GetMemberRefProps(token, &parent, name, kNameSize, &length, nullptr, nullptr);
        }
        if (FAILED(nameResult) || std::u16string_view(name) != u".ctor") continue;
        unsigned int target = classOf(import, parent);
        if (target == own || (base != 0 && target == base)) {
            *index = i + 1;
            return S_OK;
        }
    }
    return S_OK;
}

// The class token behind a TypeSpec of a generic instance; other tokens as
// they are.
unsigned int Profiler::classOf(IMetaDataImport* import, unsigned int token) {
    unsigned int resolved = 0;
    if (TypeFromToken(token) == mdtTypeSpec && SUCCEEDED(resolveTypeSpecClassToken(import, token, &resolved))) {
        return resolved;
    }
    return token;
}

// An emitter right behind a label of the new body; failed from the start
// when the body has no such label.
ILEmitter Profiler::behindLabel(unsigned int label) {
    const int found = current.builder->findLabel(label);
    return found < 0 ? ILEmitter(current.builder.get(), 0, E_UNEXPECTED)
                     : ILEmitter(current.builder.get(), static_cast<unsigned int>(found) + 1);
}

// An emitter where the entry code goes: the start, or behind a constructor's
// base call.
ILEmitter Profiler::atEntry() {
    return current.context->isInstanceTypeInitializer() ? behindLabel(LABEL_CTOR_BODY)
                                                        : ILEmitter(current.builder.get(), 0);
}

HRESULT Profiler::updateInitTrace() {
    ILEmitter il = atEntry();
    il.label(LABEL_INIT_TRACE)
        .op(Opcode::ldc_i4, current.context->getMethodID())
        .op(Opcode::call, current.traceTokens[kInitToken])
        .op(Opcode::stloc, current.traceLocal)
        .label(LABEL_INIT_TRACE_END);
    current.minStack = atLeast(current.minStack, 1);
    return il.status();
}

HRESULT Profiler::updateCorTrace() {
    if (!current.isCoreLibrary || isDotnetCore) return S_OK;
    // Until the agent has recorded its first operations the method stays
    // untraced: the field guards the call of initTrace.
    ILEmitter il = atEntry();
    il.label(LABEL_COR_TRACE)
        .op(Opcode::ldsfld, hijackTokens[0])
        .op(Opcode::ldc_i4_1)
        .jump(Opcode::bgt_s, LABEL_COR_TRACE_READY)
        .op(Opcode::ldc_i4_0)
        .op(Opcode::stloc_s, current.traceLocal)
        .jump(Opcode::br_s, LABEL_INIT_TRACE_END)
        .label(LABEL_COR_TRACE_READY);
    return il.status();
}

HRESULT Profiler::getClassToken(unsigned int* token) {
    if (clrVersion != 2 && clrVersion != 4) {
        *token = current.context->getTypeDef();
        return S_OK;
    }
    return valueTypeGetter->getToken(current.context->getModuleID(), current.context->getTypeDef(), token);
}

HRESULT Profiler::updateStartTrace() {
    ILEmitter il = behindLabel(LABEL_INIT_TRACE_END);
    il.label(LABEL_START_TRACE).op(Opcode::ldloc, current.traceLocal).jump(Opcode::brfalse, LABEL_START_TRACE_END);
    if (current.hasThis) il.op(Opcode::ldarg_0);
    if (current.hasThis && current.isValueType) boxedCopy(il);
    il.op(Opcode::call, current.traceTokens[kLoadToken]);
    if (current.paramCount != 0) {
        il.label(LABEL_PUSH_TRACE)
            .op(Opcode::ldloc, current.traceLocal)
            .op(Opcode::ldc_i4, 2)
            .jump(Opcode::blt_s, LABEL_PUSH_TRACE_END);
        insertParameters(il);
        il.label(LABEL_PUSH_TRACE_END);
    }
    il.op(Opcode::call, current.traceTokens[kStartToken]).label(LABEL_START_TRACE_END);
    current.minStack = atLeast(current.minStack, 2);
    return il.status();
}

// The value of this, on the stack as its address, copied out and boxed.
void Profiler::boxedCopy(ILEmitter& il) {
    unsigned int classToken = 0;
    il.then([&] { return getClassToken(&classToken); });
    il.op(Opcode::ldobj, classToken).op(Opcode::box, classToken);
}

void Profiler::insertParameters(ILEmitter& il) {
    current.signature->shiftToFirstParam();
    unsigned int first = current.hasThis ? 1 : 0;
    for (unsigned int argument = first; argument < current.paramCount + first && il.ok(); ++argument) {
        il.then([&] { return insertParameter(il, argument, first); });
    }
}

// The value of one argument goes to the agent as an object: boxed, or as the
// reference it is. What cannot be an object (addresses, typed references,
// function and unmanaged pointers, byref-like values) is left out.
HRESULT Profiler::insertParameter(ILEmitter& il, unsigned int argument, unsigned int first) {
    current.signature->skipCustomMods();
    unsigned int position = current.signature->getIndex();
    unsigned char type = 0;
    unsigned int typeToken = 0;
    HRESULT hr = current.signature->readParam(&type, &typeToken);
    if (FAILED(hr)) return hr;

    unsigned int boxToken = 0;
    bool box = false;
    switch (type) {
    case ELEMENT_TYPE_STRING:
    case ELEMENT_TYPE_CLASS:
    case ELEMENT_TYPE_OBJECT:
    case ELEMENT_TYPE_SZARRAY:
    case ELEMENT_TYPE_ARRAY:
        break;
    case ELEMENT_TYPE_VALUETYPE:
        if (isStackOnlyType(typeToken)) return S_OK;
        boxToken = typeToken;
        box = true;
        break;
    case ELEMENT_TYPE_GENERICINST:
        hr = getGenInstToken(current.signature.get(), position, &boxToken);
        if (FAILED(hr)) return hr;
        // Only a value-type instance is boxed; a class instance is a reference.
        box = hr == S_OK;
        if (box && isStackOnlyType(boxToken)) return S_OK;
        break;
    case ELEMENT_TYPE_VAR:
    case ELEMENT_TYPE_MVAR:
        if (mayBeByRefLike(type, current.signature.get(), position)) return S_OK;
        hr = type == ELEMENT_TYPE_VAR ? getVarTypeToken(current.signature.get(), position, &boxToken)
                                      : getMVarTypeToken(current.signature.get(), position, &boxToken);
        box = true;
        break;
    case ELEMENT_TYPE_I:
    case ELEMENT_TYPE_U:
        lastError = kNativeIntegerMessage;
        return E_NOTIMPL;
    default:
        if (type < ELEMENT_TYPE_BOOLEAN || type > ELEMENT_TYPE_R8) return S_OK;
        hr = getPrimativeToken(type, &boxToken);
        box = true;
        break;
    }
    if (FAILED(hr)) return hr;
    il.op(Opcode::ldc_i4, argument - first).op(Opcode::ldarg, argument);
    if (box) il.op(Opcode::box, boxToken);
    return il.op(Opcode::call, current.traceTokens[kPushToken]).status();
}

HRESULT Profiler::updateFinishTrace() {
    ILEmitter il = behindLabel(LABEL_EXIT);
    il.label(LABEL_FINISH_TRACE).op(Opcode::ldloc, current.traceLocal).jump(Opcode::brfalse, LABEL_FINISH_TRACE_END);
    if (current.isValueType && current.hasThis) {
        // A fresh copy of this value, as the body left it.
        il.op(Opcode::ldarg_0);
        boxedCopy(il);
        il.op(Opcode::call, current.traceTokens[kFinishValueTypeToken]);
    }
    if (current.hasReturn && current.resultReported) {
        insertResultBoxing(il.op(Opcode::dup));
    } else if (current.hasReturn) {
        il.op(Opcode::ldnull);
    }
    il.op(Opcode::call, current.traceTokens[kFinishToken]).label(LABEL_FINISH_TRACE_END);
    current.minStack = atLeast(current.minStack, 2);
    current.stackGrowth = atLeast(current.stackGrowth, 2);
    return il.status();
}

// Values go out boxed, references as they are. A generic parameter, of the class
// or of the method, is boxed through its TypeSpec: for a value-type instantiation
// an unboxed value in the object argument would be an invalid program. A result
// that cannot be an object is reported as null instead (see resultReported).
void Profiler::insertResultBoxing(ILEmitter& il) {
    switch (current.returnType) {
    case ELEMENT_TYPE_VALUETYPE:
    case ELEMENT_TYPE_VAR:
    case ELEMENT_TYPE_MVAR:
        il.op(Opcode::box, current.returnToken);
        return;
    case ELEMENT_TYPE_GENERICINST:
        if (current.returnToken != 0) il.op(Opcode::box, current.returnToken);
        return;
    default:
        break;
    }
    if (current.returnType < ELEMENT_TYPE_BOOLEAN || current.returnType > ELEMENT_TYPE_R8) return;
    unsigned int token = 0;
    il.then([&] { return getPrimativeToken(current.returnType, &token); });
    il.op(Opcode::box, token);
}

// The exception is reported from a filter that always answers "continue
// search": the runtime's first pass calls it, and the exception goes on its
// way untouched. A catch that rethrew would start a new dispatch on top of
// every instrumented frame it left, so the stack an exception needs would grow
// with their number, and an exception thrown by the agent would replace the
// program's own; the runtime swallows one thrown in a filter.
HRESULT Profiler::updateCatchTrace() {
    // All exits meet here: the value is parked across the leave, which empties
    // the stack, and reloaded behind the protected block.
    ILEmitter exit = behindLabel(LABEL_EXIT);
    if (current.hasReturn) exit.op(Opcode::stloc, current.resultLocal);
    exit.jump(Opcode::leave, LABEL_TRY_END).label(LABEL_TRY_END);
    if (current.hasReturn) exit.op(Opcode::ldloc, current.resultLocal);
    if (!exit.ok()) return exit.status();
    current.builder->getFatHeader()->Flags |= CorILMethod_MoreSects;

    // The filter: what a catch of System.Exception would have caught goes to
    // the agent when the call is traced. Behind it, the handler the clause
    // format needs; the filter never lets the runtime in.
    ILEmitter filterCode(current.builder.get(), current.builder->getILCount());
    filterCode.label(LABEL_CATCH_TRACE)
        .op(Opcode::ldloc, current.traceLocal)
        .jump(Opcode::brfalse, LABEL_CATCH_TRACE_END)
        .op(Opcode::isinst, current.traceTokens[kExceptionToken])
        .op(Opcode::dup)
        .jump(Opcode::brfalse, LABEL_CATCH_TRACE_END)
        .op(Opcode::dup)
        .op(Opcode::call, current.traceTokens[kCatchToken])
        .label(LABEL_CATCH_TRACE_END)
        .op(Opcode::pop)
        .op(Opcode::ldc_i4_0)
        .op(Opcode::endfilter)
        .label(LABEL_FILTER_HANDLER)
        .op(Opcode::pop)
        .op(Opcode::rethrow);
    HRESULT hr = filterCode.status();
    if (FAILED(hr)) return hr;

    // The added clause is the last one, so it encloses all incoming clauses.
    hr = current.builder->insertFilterClause(
        current.context->isInstanceTypeInitializer() ? LABEL_CTOR_BODY : LABEL_METHOD_BODY, LABEL_TRY_END,
        LABEL_CATCH_TRACE, LABEL_FILTER_HANDLER);
    // Branches that cannot be settled leave the code without a size to allocate.
    if (SUCCEEDED(hr) && current.builder->getCodeSize() == IMethodBuilder::kUnsettled) hr = E_UNEXPECTED;
    current.minStack = atLeast(current.minStack, 3);
    current.stackGrowth = atLeast(current.stackGrowth, 2);
    return hr;
}
