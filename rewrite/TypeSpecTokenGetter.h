// A TypeSpec blob in a module, by GetTokenFromTypeSpec, which finds an
// equal blob or adds it.
#pragma once

#include "rewrite/SignatureTokenGetter.h"

class TypeSpecTokenGetter : public SignatureTokenGetter {
public:
    using SignatureTokenGetter::SignatureTokenGetter;

    using SignatureTokenGetter::getToken;
    HRESULT getToken(const ModuleMetaData& metadata, unsigned int* token) override;
};
