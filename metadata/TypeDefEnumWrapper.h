// All type definitions of a scope.
#pragma once

#include "metadata/CoreTokenEnumWrapper.h"

class TypeDefEnumWrapper : public CoreTokenEnumWrapper {
public:
    explicit TypeDefEnumWrapper(IMetaDataImport* import) : CoreTokenEnumWrapper(import) {}

    void FillBuffer() override;
};
