// A module's metadata for reading, served from the image that the runtime
// mapped, through a scope of our own. Once the runtime has handed out its own
// readable interface for a module, it serves its own lookups in that module
// through its slower writable form for the rest of the process: tens of
// milliseconds of a service's start-up when every module was looked at. A
// module without an image (a dynamic one), or whose image cannot be read,
// gets the runtime's interface.
//
// Thread-safe. A scope is kept per module until forget, which the module's
// unload calls: the image goes with the module.
#pragma once

#include "runtime/CorProfilerInfo.h"
#include "runtime/MetaDataInterfaces.h"

class ImageMetaData {
public:
    // Like ICorProfilerInfo::GetModuleMetaData with ofRead: a new reference to
    // the interface riid of the module's metadata.
    [[nodiscard]] static HRESULT open(ICorProfilerInfo* info, ModuleID module, REFIID riid, IUnknown** out);
    static void forget(ModuleID module);
};
