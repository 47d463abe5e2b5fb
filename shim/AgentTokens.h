// The agent's trace functions as method tokens of its own assembly, read from
// the file with the runtime's metadata dispenser before the runtime loads it.
// The shim's loader then binds each function by token: looking the class up
// by name costs a start-up the compilation of the type-name parser's generic
// methods, and each lookup of a method by name a walk of the class.
#pragma once

#include <string>

#include "runtime/CorTypes.h"
#include "shim/ShimDelegateTable.h"

struct AgentTokens {
    // Of each delegate field's function, in the order of the fields.
    mdMethodDef methods[ShimDelegateTable::kFieldCount] = {};
    // The assembly's module version id: tokens hold for that build only.
    GUID moduleVersion = {};
    // What an assembly that gave none lacks, for the log: the agent's class,
    // or the first of its functions.
    bool lacksClass = false;
    const TraceMembers::Member* lacksFunction = nullptr;

    // All of them, or none: a file that is not a regular file or cannot be
    // read as an assembly, or that lacks the class or one of its functions,
    // leaves the loader to bind by name, as it always can.
    static AgentTokens read(const std::u16string& path);
    // The first reading of the file in this process, kept: every module's shim
    // binds the agent it first read, as the runtime loads one assembly.
    static AgentTokens readOnce(const std::u16string& path);
    bool found() const { return methods[0] != 0; }
};
