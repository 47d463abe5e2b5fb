// The wrapper that every descriptive getter is handed out in. Its map is
// looked at first, but nothing fills it: every request resolves anew in the
// module, which keeps the answer right after the module's metadata changed.
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

private:
    AutoPointer<BaseTokenGetter> getter;
    std::map<unsigned long, unsigned int> tokens;
};
