#include "rewrite/CachedTokenGetter.h"

HRESULT CachedTokenGetter::getToken(unsigned long moduleID, unsigned int* token) {
    auto found = tokens.find(moduleID);
    if (found != tokens.end()) {
        *token = found->second;
        return S_OK;
    }
    const HRESULT hr = getter->getToken(moduleID, token);
    if (hr == S_OK) {
        tokens.emplace(moduleID, *token);
    }
    return hr;
}
