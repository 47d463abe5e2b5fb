// The one class the library offers the runtime, and how it is made.
#pragma once

#include "hub/Exports.h"
#include "runtime/Unknown.h"

using CreateObjectFunction = HRESULT (*)(REFIID riid, void** ppv);

struct COCLASS_REGISTER {
    const GUID* pClsid;
    const char* szClsid;
    CreateObjectFunction pfnCreateObject;
};

// {7C1E42A9-63D0-4B1F-9E25-3AD8F06B17C4}, the value of CORECLR_PROFILER.
TARN_EXPORT const CLSID CLSID_PROFILERCALLBACK;
// The same identifier as text, braces included.
TARN_EXPORT const char* GetGUIDAsString();

// Closed by a row whose pClsid is null.
extern const COCLASS_REGISTER g_CoClasses[];
