// The entry point by which the runtime obtains the class factory of the profiler.
#pragma once

#include "hub/Exports.h"
#include "runtime/Unknown.h"

// Looks rclsid up in g_CoClasses: CLASS_E_CLASSNOTAVAILABLE if it is not there,
// otherwise the factory's answer to QueryInterface(riid, ppv).
TARN_EXPORT HRESULT DllGetClassObject(REFCLSID rclsid, REFIID riid, void** ppv);
