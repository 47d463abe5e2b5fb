#include "rewrite/VarTypeSpecTokenGetter.h"

#include <new>

IVarTypeSpecTokenGetter* IVarTypeSpecTokenGetter::newTokenGetter(ICorProfilerInfo* info, unsigned char elementType) {
    return new VarTypeSpecTokenGetter(info, elementType);
}

HRESULT VarTypeSpecTokenGetter::getToken(unsigned long moduleID, unsigned char number, unsigned int* token) {
    if (number >= kParameterLimit) return E_FAIL;
    AutoPointer<ITypeSpecTokenGetter>& getter = getters[number];
    if (getter.get() == nullptr) {
        // The new getter takes the two bytes over.
        unsigned char* bytes = new unsigned char[2]{elementType, number};
        getter = ITypeSpecTokenGetter::newTokenGetter(info, bytes, 2);
    }
    if (getter.get() == nullptr) return E_FAIL;
    return getter->getToken(moduleID, token);
}
