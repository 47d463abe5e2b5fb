#include "rewrite/TypeSpecTokenGetter.h"

HRESULT TypeSpecTokenGetter::getToken(const ModuleMetaData& module, unsigned int* token) {
    return module.emit->GetTokenFromTypeSpec(signature.get(), signatureLength, token);
}
