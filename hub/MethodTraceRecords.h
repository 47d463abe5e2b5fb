// The records of the method trace registry: what the function-id mapper keeps
// of each hooked function, the timing record of one traced method within one
// run of an enclosing method (handed to the managed agent as it lies in
// memory), and the per-thread books of the enclosing methods that run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>

#include "runtime/CorTypes.h"

struct FunctionData {
    FunctionID functionId;
    mdMethodDef methodToken;
    const char16_t* className;  // shared with the class name map, not owned
    bool traced;
    unsigned long enclosingId;  // unique identifier of the enclosing method, 0 for none
};

// 40 bytes, little-endian, as the agent reads them.
struct MethodData {
    uint32_t state;  // 0 never reported, 1 reported while running, 2 reported after it ended
    uint32_t depth;
    uint32_t index;   // order of first entry, and place in the agent's array
    uint32_t active;  // entries not yet left; not copied out
    int64_t startTime;
    int64_t endTime;  // 0 while running
    uint64_t methodId;
};
static_assert(sizeof(MethodData) == 40 && offsetof(MethodData, startTime) == 16 &&
              offsetof(MethodData, methodId) == 32);

struct PerThreadEnclosingData {
    uint32_t nextIndex = 0;
    uint32_t depth = 1;
    int64_t startTime = 0;
    uint32_t startTick = 0;
    std::map<FunctionID, MethodData> methods;
};

// The enclosing methods running on one thread, by unique identifier.
using ThreadData = std::map<unsigned long, std::unique_ptr<PerThreadEnclosingData>>;

// The identifier of a method across classes: the plain sum, collisions accepted.
inline unsigned long GetUniqueClassMethodId(unsigned long classId, unsigned int methodToken) {
    return classId + methodToken;
}
