#include "hub/CoClasses.h"

#include "hub/ProfilerCallback.h"

namespace {
constexpr char kProfilerCallbackClsid[] = "{7C1E42A9-63D0-4B1F-9E25-3AD8F06B17C4}";
}  // namespace

TARN_EXPORT const CLSID CLSID_PROFILERCALLBACK = {
    0x7C1E42A9, 0x63D0, 0x4B1F, {0x9E, 0x25, 0x3A, 0xD8, 0xF0, 0x6B, 0x17, 0xC4}};

const COCLASS_REGISTER g_CoClasses[] = {
    {&CLSID_PROFILERCALLBACK, kProfilerCallbackClsid, &ProfilerCallback::CreateObject},
    {nullptr, nullptr, nullptr},
};

TARN_EXPORT const char* GetGUIDAsString() {
    return kProfilerCallbackClsid;
}
