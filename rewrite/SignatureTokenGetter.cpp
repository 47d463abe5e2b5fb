#include "rewrite/SignatureTokenGetter.h"

HRESULT SignatureTokenGetter::getToken(const ModuleMetaData& module, unsigned int* token) {
    return module.emit->GetTokenFromSig(signature.get(), signatureLength, token);
}
