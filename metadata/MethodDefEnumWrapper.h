// The method definitions of one type.
#pragma once

#include "metadata/CoreTokenEnumWrapper.h"

class MethodDefEnumWrapper : public CoreTokenEnumWrapper {
public:
    MethodDefEnumWrapper(IMetaDataImport* import, mdTypeDef typeDef)
        : CoreTokenEnumWrapper(import), typeDef(typeDef) {}

    void FillBuffer() override;

private:
    mdTypeDef typeDef;
};
