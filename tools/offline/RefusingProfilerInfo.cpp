#include "offline/RefusingProfilerInfo.h"

#include "runtime/Guids.h"

namespace {
const IID* const kInfoVersions[] = {
    &IID_ICorProfilerInfo,  &IID_ICorProfilerInfo2, &IID_ICorProfilerInfo3, &IID_ICorProfilerInfo4,
    &IID_ICorProfilerInfo5, &IID_ICorProfilerInfo6, &IID_ICorProfilerInfo7, &IID_ICorProfilerInfo8,
    &IID_ICorProfilerInfo9, &IID_ICorProfilerInfo10,
};
}  // namespace

RefusingProfilerInfo::RefusingProfilerInfo(int highestVersion) : highestVersion(highestVersion) {}

HRESULT RefusingProfilerInfo::QueryInterface(REFIID riid, void** ppvObject) {
    queriedInterfaces.push_back(riid);
    bool offered = riid == IID_IUnknown;
    for (int version = 1; version <= highestVersion && !offered; ++version) {
        offered = riid == *kInfoVersions[version - 1];
    }
    if (!offered) {
        *ppvObject = nullptr;
        return E_NOINTERFACE;
    }
    *ppvObject = static_cast<ICorProfilerInfo10*>(this);
    AddRef();
    return S_OK;
}

ULONG RefusingProfilerInfo::AddRef() {
    return ++referenceCount;
}

// The fake lives on the test's stack: the count is only observed.
ULONG RefusingProfilerInfo::Release() {
    return --referenceCount;
}

HRESULT RefusingProfilerInfo::SetEventMask(DWORD dwEvents) {
    count("SetEventMask");
    eventMask = dwEvents;
    return setEventMaskResult;
}

int RefusingProfilerInfo::calls(const std::string& name) const {
    auto found = callCounts.find(name);
    return found == callCounts.end() ? 0 : found->second;
}

int RefusingProfilerInfo::totalCalls() const {
    int total = 0;
    for (const auto& entry : callCounts) {
        total += entry.second;
    }
    return total;
}

HRESULT RefusingProfilerInfo::fail(const char* name) {
    count(name);
    return E_NOTIMPL;
}

void RefusingProfilerInfo::count(const char* name) {
    ++callCounts[name];
}
