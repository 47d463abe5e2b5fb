#include "hub/CoClasses.h"

#include "hub/ProfilerCallback.h"

namespace {
constexpr char kProfilerCallbackClsid[] = "{7C1E42A9-63D0-4B1F-9E25-3AD8F06B17C4}";
}  // namespace

TARN_EXPORT const CLSID CLSID_PROFILERCALLBACK = guidOf(kProfilerCallbackClsid);

const COCLASS_REGISTER g_CoClasses[] = {
    {&CLSID_PROFILERCALLBACK, kProfilerCallbackClsid, &ProfilerCallback::CreateObject},
    {nullptr, nullptr, nullptr},
};

TARN_EXPORT const char* GetGUIDAsString() {
    return kProfilerCallbackClsid;
}
