// A set of methods, by module and method token, kept as bits by the token's
// row in a list for each module: every search for precompiled code asks it,
// and a hash of (module, token) pairs missed the cache twice for each.
//
// Contract: no lock inside. A module's methods go with it (eraseModule) before
// its id can be given to another.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "runtime/CorProfilerInfo.h"

class MethodsByModule {
public:
    // False if the method was in the set already.
    bool insert(ModuleID module, mdMethodDef method);
    bool contains(ModuleID module, mdMethodDef method) const;
    void eraseModule(ModuleID module);
    size_t size() const { return count; }

private:
    // The modules with a method in the set, searched one after another (a
    // few dozen at most), and beside each the bits of its methods' rows.
    std::vector<ModuleID> modules;
    std::vector<std::vector<uint64_t>> rows;
    size_t count = 0;
};
