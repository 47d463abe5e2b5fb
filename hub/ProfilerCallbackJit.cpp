// The compile path: the runtime's compile, precompiled-code and inlining
// events.
#include <new>

#include "platform/HeldLock.h"
#include "hub/ProfilerCallback.h"
#include "platform/FormattedOutput.h"
#include "rewrite/TraceLabels.h"
#include "runtime/Guids.h"

namespace {

// The method whose compile event last ended on this thread, and when: the
// runtime's own compile of it runs until its finish event.
thread_local FunctionID compiling = 0;
thread_local int64_t compileStart = 0;

} // namespace

HRESULT ProfilerCallback::JITCompilationStarted(FunctionID functionId, BOOL fIsSafeToBlock) {
    // Rewritten when its module loaded, a method only needs its offset map.
    return startCompile(functionId, fIsSafeToBlock,
                        rewritesOnLoad ? CompileKind::kOffsetMapOnly : CompileKind::kOwnBody);
}

HRESULT ProfilerCallback::startCompile(FunctionID functionId, BOOL fIsSafeToBlock, CompileKind kind) {
    // A method compiled where the profiler may not block is left untouched.
    if (!fIsSafeToBlock || disabled || !jitEnabled) {
        return S_OK;
    }
    try {
        HeldLock held(&profilerLock);
        // Our own work can set off a compile on this thread: it passes untouched.
        if (inJITCallback) {
            return S_OK;
        }
        ReentranceMark reentrance(inJITCallback);
        if (kind == CompileKind::kOwnBody) {
            compileMethod(functionId, kind);
        } else if (kind == CompileKind::kOffsetMapOnly && profiler != nullptr && controller != nullptr) {
            // Remembered as decided, so that a hot reload compares it too.
            const bool rewritten = profiler->mapRewrittenOnLoad(functionId);
            if (controller->getCompiledMethods().emplace(functionId, rewritten ? S_OK : S_FALSE).second) {
                noteDecided(functionId);
            }
        }
    } catch (...) {
        // The runtime compiles the method's own body.
    }
    timeRuntimeCompile(functionId);
    return S_OK;
}

void ProfilerCallback::timeRuntimeCompile(FunctionID functionId) {
    compiling = functionId;
    compileStart = ProfilerAccount::now();
}

HRESULT ProfilerCallback::JITCompilationFinished(FunctionID functionId, HRESULT hrStatus, BOOL fIsSafeToBlock) {
    // A compile nested in another's leaves the outer one uncounted.
    if (functionId == compiling) {
        account.runtimeCompiled(ProfilerAccount::now() - compileStart);
        compiling = 0;
    }
    return S_OK;
}

void ProfilerCallback::compileMethod(FunctionID functionId, CompileKind kind) {
    IMetaDataContext* context = metaDataContext;
    if (context == nullptr || controller == nullptr || profiler == nullptr) {
        return;
    }
    // A ReJIT version's method is in hand already, with no function where it
    // is generic.
    HRESULT result = S_OK;
    if (kind == CompileKind::kOwnBody) {
        ProfilerAccount::Timed timed(account, ProfilerAccount::kMetadata);
        result = context->setFunction(functionId);
    }
    // A method whose metadata cannot be read passes untouched; a module's own
    // shim is ours: neither is decided nor counted.
    if (FAILED(result)) {
        return;
    }
    if (auto shim = moduleShims.find(context->getModuleID());
        shim != moduleShims.end() && context->getTypeDef() == shim->second.shimClass) {
        return;
    }
    bool monitored = false;
    {
        ProfilerAccount::Timed timed(account, ProfilerAccount::kDecision);
        monitored = decide(context) == 0;
    }
    account.methodCompiled(monitored);
    char16_t* assembly = nullptr;
    char16_t* className = nullptr;
    char16_t* method = nullptr;

    // A method compiled before the profiler saw it (before an attach) runs
    // code of its own body; compiled again now, for a tier-up or for the
    // continuation of a loop that runs, which resumes at an offset of that
    // body, it must keep the body: a new one would be entered at the wrong
    // place (the runtime throws InvalidProgramException). Its ReJIT, asked for
    // at the attach, brings the traced body. Nor is such a method the first
    // after an attach.
    if (kind == CompileKind::kOwnBody && (monitored || (attached && !firstAttachMethodSeen)) &&
        !profiler->hasOutcome(context) && runsOwnBody(functionId)) {
        if (monitored && logEnabled && methodNames(&assembly, &className, &method)) {
            fprintf_8(nativeLog, "Kept the running body of [%S]%S::%S: compiled before the profiler saw it\n", assembly,
                      className, method);
            fflush(nativeLog);
        }
        return;
    }
    // The first method after an attach carries instrumentation in any case, so
    // that the agent gets its chance to start, and goes back to its own body
    // on the service thread's next round.
    if (attached && !firstAttachMethodSeen) {
        firstAttachMethodSeen = true;
        if (!monitored && !controller->isByRefLike(context)) {
            monitored = true;
            RequestReJIT(context->getModuleID(), context->getMethodDef(), true);
        }
    }
    // A method that nobody monitors goes on only as the hijack target.
    const bool goesOn =
        monitored || (!agentHijacked && clrVersion >= 4 && controller->shouldHijackMethod(context) == 0);

    if (goesOn) {
        if (SUCCEEDED(result) && !agentHijacked && controller->shouldHijackMethod(context) == 0) {
            {
                ProfilerAccount::Timed timed(account, ProfilerAccount::kRewrite);
                result = profiler->hijackMethod(context);
            }
            agentHijacked = SUCCEEDED(result);
            if (logEnabled && methodNames(&assembly, &className, &method)) {
                ProfilerAccount::Timed timed(account, ProfilerAccount::kLog);
                fprintf_8(nativeLog, "%S [%S]%S::%S\n", SUCCEEDED(result) ? u"Hijacked" : u"Failed to hijack",
                          assembly, className, method);
                fflush(nativeLog);
            }
        }
        unsigned int step = 0;
        {
            ProfilerAccount::Timed timed(account, ProfilerAccount::kRewrite);
            result = profiler->instrumentMethod(context, &step);
        }
        // Step 0: another instantiation of a method already decided.
        if (step != 0) account.rewritten(result, profiler->getLastError());
        ProfilerAccount::Timed timed(account, ProfilerAccount::kLog);
        if (logEnabled && methodNames(&assembly, &className, &method)) {
            fprintf_8(nativeLog, "%S [%S]%S::%S - 0x%X(%02d) - [functionID = 0x%llx]",
                      SUCCEEDED(result) ? u"Instrumented" : u"Failed to instrument", assembly, className, method,
                      result, step, static_cast<unsigned long long>(functionId));
            // A refusal says why, as on the module-load path.
            const char16_t* error = profiler->getLastError();
            if (FAILED(result)) fprintf_8(nativeLog, " (%S)", error != nullptr ? error : u"Unknown error.");
            fprintf_8(nativeLog, "\n");
            fflush(nativeLog);
        }
        if (SUCCEEDED(result) && logMethodBytes && step > 0) {
            IMethodBuilder* builder = profiler->getBuilder();
            const int label = builder->findLabel(LABEL_METHOD_BODY);
            builder->print(nativeLog, builder->getILByteIndex(static_cast<unsigned int>(label)));
            fflush(nativeLog);
        }
    } else if (kind == CompileKind::kReJIT) {
        // A ReJIT version of a method not selected, reverted or never
        // rewritten, takes the body the method had before its first rewrite;
        // with none kept, the method's own.
        (void)profiler->restoreOriginalBody(context);
    }
    if (SUCCEEDED(result) && logUninstrumented && logEnabled && methodNames(&assembly, &className, &method)) {
        fprintf_8(nativeLog, "%S [%S]%S::%S \n", SUCCEEDED(result) ? u"Processed" : u"Failed to process", assembly,
                  className, method);
        fflush(nativeLog);
    }
}

bool ProfilerCallback::runsOwnBody(FunctionID functionId) {
    AutoCOMPointer<ICorProfilerInfo4> info4;
    ULONG32 pieces = 0;
    return SUCCEEDED(profilerInfo->QueryInterface(IID_ICorProfilerInfo4, reinterpret_cast<void**>(&info4))) &&
           SUCCEEDED(info4->GetCodeInfo3(functionId, 0, 0, &pieces, nullptr)) && pieces > 0;
}

bool ProfilerCallback::methodNames(char16_t** assembly, char16_t** className, char16_t** method) {
    return SUCCEEDED(metaDataContext->getClassName(assembly, className)) &&
           SUCCEEDED(metaDataContext->getMethodName(method));
}

HRESULT ProfilerCallback::JITCachedFunctionSearchStarted(FunctionID functionId, BOOL* pbUseCachedFunction) {
    ProfilerAccount::Timed timed(account, ProfilerAccount::kPrecompiledSearch);
    try {
        HeldLock held(&profilerLock);
        if (metaDataContext == nullptr || controller == nullptr || pbUseCachedFunction == nullptr) {
            return S_OK;
        }
        // Precompiled code of a monitored method would never reach the compile
        // event, nor would the selected methods that precompiled code inlined.
        // Where the agent trigger waits, the compile event decides: asked
        // here, the trigger would be used up without the method being rewritten.
        if (FAILED(metaDataContext->setFunction(functionId))) {
            return S_OK;
        }
        if (controller->isGenericAgentTriggerPendingFor(metaDataContext) ||
            precompiledInliners.contains(metaDataContext->getModuleID(), metaDataContext->getMethodDef()) ||
            decide(metaDataContext) == 0) {
            *pbUseCachedFunction = FALSE;
        }
    } catch (...) {
        // The runtime's default stands.
    }
    return S_OK;
}

HRESULT ProfilerCallback::JITInlining(FunctionID callerId, FunctionID calleeId, BOOL* pfShouldInline) {
    try {
        HeldLock held(&profilerLock);
        if (metaDataContext == nullptr || controller == nullptr || pfShouldInline == nullptr ||
            FAILED(metaDataContext->setFunction(calleeId))) {
            return S_OK;
        }
        // An inlined method would never reach the compile event.
        if (decide(metaDataContext) == 0) {
            *pfShouldInline = FALSE;
        }
        // With dynamic instrumentation every method outside its skip filter
        // stays a call of its own, to be picked up later.
        if (controller->shouldEnableDynamicInstrumentation() == 0 &&
            controller->shouldSkipDynamicInstrumentation(metaDataContext) != 0) {
            *pfShouldInline = FALSE;
        }
    } catch (...) {
        // The runtime's answer stands.
    }
    return S_OK;
}

