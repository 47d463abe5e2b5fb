#include "rewrite/VarTypeSpecTokenGetter.h"

#include <new>

IVarTypeSpecTokenGetter* IVarTypeSpecTokenGetter::newTokenGetter(ICorProfilerInfo* info, unsigned char elementType) {
    return new (std::nothrow) VarTypeSpecTokenGetter(info, elementType);
}

HRESULT VarTypeSpecTokenGetter::getToken(unsigned long moduleID, unsigned char number, unsigned int* token) {
    if (number >= kParameterLimit) return E_FAIL;
    AutoPointer<ITypeSpecTokenGetter>& getter = getters[number];
    if (getter.get() == nullptr) {
        unsigned char* bytes = new (std::nothrow) unsigned char[2];
        if (bytes != nullptr) {
            bytes[0] = elementType;
            bytes[1] = number;
            getter = ITypeSpecTokenGetter::newTokenGetter(info, bytes, 2);
        }
    }
    if (getter.get() == nullptr) return E_FAIL;
    return getter->getToken(moduleID, token);
}
