// The metadata interfaces of one module, gathered for one token resolution.
// Each field holds one reference, released with the record.
#pragma once

#include "platform/AutoPointer.h"
#include "runtime/MetaDataInterfaces.h"

struct ModuleMetaData {
    unsigned long moduleID = 0;
    AutoCOMPointer<IMetaDataImport> import;
    AutoCOMPointer<IMetaDataAssemblyImport> assemblyImport;
    AutoCOMPointer<IMetaDataEmit> emit;
    AutoCOMPointer<IMetaDataAssemblyEmit> assemblyEmit;
};
