// Names a value type for boxing its own `this`: the TypeDef itself, or for a
// generic struct a TypeSpec of its instantiation over its own parameters.
// Results are kept by module and TypeDef; module ids are never removed.
#pragma once

#include <map>

#include "platform/AutoPointer.h"
#include "rewrite/IValueTypeSpecTokenGetter.h"

class ValueTypeSpecTokenGetter : public IValueTypeSpecTokenGetter {
public:
    explicit ValueTypeSpecTokenGetter(ICorProfilerInfo* info) : info(info) {}

    HRESULT getToken(unsigned long moduleID, unsigned int typeDef, unsigned int* token) override;
    void forgetModule(unsigned long moduleID) override { modules.erase(moduleID); }

private:
    [[nodiscard]] HRESULT getTokenImpl(unsigned long moduleID, unsigned int typeDef, unsigned int* token);

    ICorProfilerInfo* info;
    std::map<unsigned long, AutoPointer<std::map<unsigned int, unsigned int>>> modules;
};
