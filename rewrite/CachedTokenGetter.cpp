#include "rewrite/CachedTokenGetter.h"

HRESULT CachedTokenGetter::getToken(unsigned long moduleID, unsigned int* token) {
    auto found = tokens.find(moduleID);
    if (found != tokens.end()) {
        *token = found->second;
        return S_OK;
    }
    return getter->getToken(moduleID, token);
}
