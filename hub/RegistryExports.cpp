// The agent's door to the method trace registry. These keep their C++
// decorated names, which carry the argument types: the agent's P/Invokes name
// that form. Each gives 0, or does nothing, while there is no profiler.
#include "hub/Exports.h"
#include "hub/ProfilerCallback.h"

// name is a BSTR: its length comes before the text.
TARN_EXPORT_DECORATED int Native_RegisterClassIdentifier(char16_t* name, unsigned long classId) {
    if (fpc == nullptr || name == nullptr) {
        return 0;
    }
    try {
        return fpc->RegisterClassIdentifier(name, classId);
    } catch (...) {
        return 0;
    }
}

TARN_EXPORT_DECORATED int Native_RegisterMethodTrace(unsigned long classId, unsigned int token,
                                                     unsigned long enclosingClassId, unsigned int enclosingToken) {
    return fpc != nullptr ? fpc->RegisterMethodTrace(classId, token, enclosingClassId, enclosingToken) : 0;
}

TARN_EXPORT_DECORATED int Native_UnregisterMethodTrace(unsigned long classId, unsigned int token) {
    return fpc != nullptr ? fpc->UnregsiterMethodTrace(classId, token) : 0;
}

TARN_EXPORT_DECORATED int Native_ToggleEnterLeaveFunctionHooks(bool enable) {
    return fpc != nullptr ? fpc->ToggleEnterLeaveFunctionHooks(enable) : 0;
}

TARN_EXPORT_DECORATED void Native_MarkEnteredEnclosingMethod(unsigned long classId, unsigned int token,
                                                            long startTime) {
    if (fpc == nullptr) {
        return;
    }
    try {
        fpc->MarkEnteredEnclosingMethod(classId, token, startTime);
    } catch (...) {
        // The mark is lost; the method it marks runs on.
    }
}

TARN_EXPORT_DECORATED void Native_MarkExitEnclosingMethod(unsigned long classId, unsigned int token) {
    if (fpc != nullptr) {
        fpc->MarkExitEnclosingMethod(classId, token);
    }
}

TARN_EXPORT_DECORATED int Native_GetTraceData(unsigned long classId, unsigned int token, MethodData* out,
                                              int maximum) {
    return fpc != nullptr ? fpc->GetTraceData(classId, token, out, maximum) : 0;
}
