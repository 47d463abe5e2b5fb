// The method trace registry: class identifiers named by the agent, the marks
// of enclosing methods on each thread, and the timing records that the enter
// and leave hooks would keep for the methods traced inside them.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "hub/ProfilerCallback.h"
#include "platform/HeldLock.h"

namespace {

// Milliseconds since the enclosing method's start, from a 32-bit tick difference.
int64_t GetMillisecondTime(int64_t start, uint32_t startTick) {
    return start + static_cast<uint32_t>(GetTickCount() - startTick);
}

// Holds one mode of a registry lock for a scope.
class ReadHeld {
public:
    explicit ReadHeld(MultipleReaderSingleWriter& lock) : lock(lock) { lock.AcquireReadLock(); }
    ~ReadHeld() { lock.ReleaseReadLock(); }

private:
    MultipleReaderSingleWriter& lock;
};

class WriteHeld {
public:
    explicit WriteHeld(MultipleReaderSingleWriter& lock) : lock(lock) { lock.AccquireWriteLock(); }
    ~WriteHeld() { lock.ReleaseWriteLock(); }

private:
    MultipleReaderSingleWriter& lock;
};

}  // namespace

int ProfilerCallback::RegisterClassIdentifier(char16_t* name, unsigned long classId) {
    const UINT length = SysStringLen(name);
    auto copy = std::make_unique<char16_t[]>(length + 1);
    std::memcpy(copy.get(), name, length * sizeof(char16_t));
    copy[length] = 0;
    WriteHeld held(classLock);
    // A fresh pointer is never found: each registration adds an entry.
    classIdentifiers.emplace(std::move(copy), classId);
    return 0;
}

unsigned long ProfilerCallback::GetClassIdFromClassName(char16_t* name) {
    if (name == nullptr || name[0] == 0) {
        return 0;
    }
    ReadHeld held(classLock);
    auto found = classIdentifiers.find(name);
    return found != classIdentifiers.end() ? found->second : 0;
}

char16_t* ProfilerCallback::getRegisteredClassName(unsigned long classId) {
    ReadHeld held(classLock);
    for (const auto& [name, identifier] : classIdentifiers) {
        if (identifier == classId) {
            return name.get();
        }
    }
    return nullptr;
}

// The record of this token and class, or, if none matches, the last one looked
// at; null only while there are none.
FunctionData* ProfilerCallback::getFunctionData(const char16_t* className, unsigned int token) {
    ReadHeld held(functionLock);
    FunctionData* last = nullptr;
    for (const auto& [functionId, data] : functionData) {
        last = data.get();
        if (data->methodToken == token && data->className != nullptr && className != nullptr &&
            std::u16string_view(data->className) == std::u16string_view(className)) {
            break;
        }
    }
    return last;
}

int ProfilerCallback::RegisterMethodTrace(unsigned long classId, unsigned int token, unsigned long enclosingClassId,
                                          unsigned int enclosingToken) {
    char16_t* className = getRegisteredClassName(classId);
    FunctionData* data = className != nullptr ? getFunctionData(className, token) : nullptr;
    if (data != nullptr) {
        data->traced = true;
        data->enclosingId = GetUniqueClassMethodId(enclosingClassId, enclosingToken);
    }
    return 0;
}

int ProfilerCallback::UnregsiterMethodTrace(unsigned long classId, unsigned int token) {
    char16_t* className = getRegisteredClassName(classId);
    FunctionData* data = className != nullptr ? getFunctionData(className, token) : nullptr;
    if (data != nullptr) {
        data->traced = false;
        data->enclosingId = 0;
    }
    return 0;
}

int ProfilerCallback::ToggleEnterLeaveFunctionHooks(bool enable) {
    HeldLock held(&profilerLock);
    hooksEnabled = enable;
    return 0;
}

namespace {

// The runtime's identifier of the calling thread, or 0.
ThreadID currentThread(ICorProfilerInfo* info, CRITICAL_SECTION* profilerLock) {
    HeldLock held(profilerLock);
    ThreadID thread = 0;
    if (info == nullptr || FAILED(info->GetCurrentThreadID(&thread))) {
        return 0;
    }
    return thread;
}

}  // namespace

void ProfilerCallback::MarkEnteredEnclosingMethod(unsigned long classId, unsigned int token, long startTime) {
    const unsigned long uniqueId = GetUniqueClassMethodId(classId, token);
    const ThreadID thread = currentThread(profilerInfo.get(), &profilerLock);
    if (thread == 0 || !hooksEnabled) {
        return;
    }
    ThreadData* books = nullptr;
    {
        ReadHeld held(threadLock);
        auto found = threadData.find(thread);
        books = found != threadData.end() ? found->second.get() : nullptr;
    }
    if (books == nullptr) {
        auto made = std::make_unique<ThreadData>();
        WriteHeld held(threadLock);
        books = threadData.emplace(thread, std::move(made)).first->second.get();
    }
    auto slot = std::make_unique<PerThreadEnclosingData>();
    slot->startTime = startTime;
    slot->startTick = GetTickCount();
    // The thread owns its books. A second entry of the same method keeps the first.
    books->emplace(uniqueId, std::move(slot));
}

void ProfilerCallback::MarkExitEnclosingMethod(unsigned long classId, unsigned int token) {
    const unsigned long uniqueId = GetUniqueClassMethodId(classId, token);
    const ThreadID thread = currentThread(profilerInfo.get(), &profilerLock);
    // Taken out under the lock, the books go when this returns.
    std::unique_ptr<PerThreadEnclosingData> slot;
    ReadHeld held(threadLock);
    auto books = threadData.find(thread);
    if (books != threadData.end()) {
        auto found = books->second->find(uniqueId);
        if (found != books->second->end()) {
            slot = std::move(found->second);
            books->second->erase(found);
        }
    }
}

PerThreadEnclosingData* ProfilerCallback::GetMethodDataSlot(unsigned long classId, unsigned int token) {
    return GetExecutingEnclosingMethodDataSlot(GetUniqueClassMethodId(classId, token));
}

PerThreadEnclosingData* ProfilerCallback::GetExecutingEnclosingMethodDataSlot(unsigned long uniqueId) {
    const ThreadID thread = currentThread(profilerInfo.get(), &profilerLock);
    ReadHeld held(threadLock);
    auto books = threadData.find(thread);
    if (books == threadData.end()) {
        return nullptr;
    }
    auto found = books->second->find(uniqueId);
    return found != books->second->end() ? found->second.get() : nullptr;
}

int ProfilerCallback::GetTraceData(unsigned long classId, unsigned int token, MethodData* out, int maximum) {
    PerThreadEnclosingData* slot = GetMethodDataSlot(classId, token);
    if (slot == nullptr || out == nullptr) {
        return 0;
    }
    int count = 0;
    for (auto& [function, record] : slot->methods) {
        if (record.index >= static_cast<uint32_t>(std::max(maximum, 0))) {
            continue;
        }
        MethodData& copy = out[record.index];
        copy.index = record.index;
        copy.startTime = record.startTime;
        copy.endTime = record.endTime;
        copy.depth = record.depth;
        copy.methodId = record.methodId;
        // The agent sees the state before this call: new, or seen while running.
        copy.state = record.state;
        record.state = record.endTime > 0 ? 2 : 1;
        ++count;
    }
    return count;
}

FunctionData* ProfilerCallback::MapFunction(FunctionID functionId, BOOL* hookFunction) {
    HeldLock held(&profilerLock);
    *hookFunction = TRUE;
    if (metaDataContext == nullptr || controller == nullptr) {
        *hookFunction = FALSE;
        return nullptr;
    }
    if (FAILED(metaDataContext->setFunction(functionId)) && nativeLog != nullptr) {
        fprintf_8(nativeLog, "ProfilerCallback::FunctionIDMapper : FAILED setFunction  %x! \n", functionId);
    }
    const mdTypeDef typeDef = metaDataContext->getTypeDef();
    const mdMethodDef methodToken = metaDataContext->getMethodDef();
    char16_t* assembly = nullptr;
    char16_t* className = nullptr;
    // Without names the class simply gets no entry below.
    (void)metaDataContext->getClassName(&assembly, &className);
    FunctionData* data = nullptr;
    if (controller->shouldSkipDynamicInstrumentation(metaDataContext) != 0) {
        WriteHeld written(functionLock);
        auto name = classNames.find(typeDef);
        if (name == classNames.end() && className != nullptr) {
            name = classNames.emplace(typeDef, className).first;
        }
        auto& made = functionData[functionId];
        made.reset(new FunctionData{functionId, methodToken, name != classNames.end() ? name->second.c_str() : nullptr,
                                    false, 0});
        data = made.get();
    } else {
        *hookFunction = FALSE;
    }
    inJITCallback = false;
    return data;
}

// The books of the enclosing method that a traced function runs in on this
// thread, or null when the hooks have nothing to record for it.
PerThreadEnclosingData* ProfilerCallback::hookSlot(FunctionData* function) {
    if (!hooksEnabled || function == nullptr || !function->traced || function->enclosingId == 0) {
        return nullptr;
    }
    return GetExecutingEnclosingMethodDataSlot(function->enclosingId);
}

void ProfilerCallback::FunctionEntered(FunctionData* function) {
    try {
        PerThreadEnclosingData* slot = hookSlot(function);
        if (slot == nullptr) {
            return;
        }
        auto [found, added] = slot->methods.try_emplace(function->functionId);
        MethodData& record = found->second;
        if (!added) {
            ++record.active;
            return;
        }
        record.index = slot->nextIndex++;
        record.depth = slot->depth++;
        record.methodId = GetUniqueClassMethodId(GetClassIdFromClassName(const_cast<char16_t*>(function->className)),
                                                 function->methodToken);
        record.startTime = GetMillisecondTime(slot->startTime, slot->startTick);
        record.active = 1;
    } catch (...) {
        // A hook never disturbs the method it times.
    }
}

void ProfilerCallback::FunctionLeft(FunctionData* function) {
    try {
        PerThreadEnclosingData* slot = hookSlot(function);
        if (slot == nullptr) {
            return;
        }
        auto found = slot->methods.find(function->functionId);
        if (found == slot->methods.end()) {
            return;
        }
        MethodData& record = found->second;
        // A method entered again after it ended keeps its first end.
        if (record.active == 1 && record.endTime == 0) {
            record.endTime = GetMillisecondTime(slot->startTime, slot->startTick);
            --slot->depth;
        }
        --record.active;
    } catch (...) {
        // A hook never disturbs the method it times.
    }
}

UINT_PTR TarnFunctionIDMapper(FunctionID functionId, BOOL* hookFunction) {
    if (fpc == nullptr) {
        *hookFunction = FALSE;
        return 0;
    }
    return reinterpret_cast<UINT_PTR>(fpc->MapFunction(functionId, hookFunction));
}

void TarnFunctionEnter2(FunctionData* function) {
    if (fpc != nullptr) fpc->FunctionEntered(function);
}

void TarnFunctionLeave2(FunctionData* function) {
    if (fpc != nullptr) fpc->FunctionLeft(function);
}

void TarnFunctionTailcall2(FunctionData* function) {
    TarnFunctionLeave2(function);
}
