#include "rewrite/OwnMemberTokenGetter.h"

HRESULT OwnMemberTokenGetter::getToken(const ModuleMetaData& module, unsigned int* token) {
    mdTypeDef type = 0;
    mdToken member = 0;
    if (FAILED(module.import->FindTypeDefByName(className.c_str(), mdTokenNil, &type)) ||
        FAILED(module.import->FindMember(type, memberName.c_str(), signature.data(),
                                         static_cast<ULONG>(signature.size()), &member))) {
        return E_FAIL;
    }
    *token = member;
    return S_OK;
}
