// The wrapper that every descriptive getter is handed out in: what it resolved
// in a module is kept until the module unloads. A token, once found or defined,
// stays the module's for its life; the module's id may be reused after it.
#pragma once

#include <map>

#include "platform/AutoPointer.h"
#include "rewrite/BaseTokenGetter.h"
#include "rewrite/ITypeSpecTokenGetter.h"

class CachedTokenGetter : public ITypeTokenGetter,
                          public IMemberTokenGetter,
                          public ISignatureTokenGetter,
                          public ITypeSpecTokenGetter {
public:
    // Takes over getter.
    explicit CachedTokenGetter(BaseTokenGetter* getter) : getter(getter) {}

    HRESULT getToken(unsigned long moduleID, unsigned int* token) override;
    void forgetModule(unsigned long moduleID) override { tokens.erase(moduleID); }

private:
    AutoPointer<BaseTokenGetter> getter;
    std::map<unsigned long, unsigned int> tokens;
};
