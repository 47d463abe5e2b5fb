#include "hub/MethodsByModule.h"

#include <algorithm>
#include <bit>

#include "runtime/CorMetadataEnums.h"

bool MethodsByModule::insert(ModuleID module, mdMethodDef method) {
    auto at = std::find(modules.begin(), modules.end(), module);
    if (at == modules.end()) {
        modules.push_back(module);
        rows.emplace_back();
        at = modules.end() - 1;
    }
    std::vector<uint64_t>& bits = rows[static_cast<size_t>(at - modules.begin())];
    const RID row = RidFromToken(method);
    if (row / 64 >= bits.size()) bits.resize(row / 64 + 1, 0);
    const uint64_t bit = uint64_t{1} << (row % 64);
    if ((bits[row / 64] & bit) != 0) return false;
    bits[row / 64] |= bit;
    ++count;
    return true;
}

bool MethodsByModule::contains(ModuleID module, mdMethodDef method) const {
    const auto at = std::find(modules.begin(), modules.end(), module);
    if (at == modules.end()) return false;
    const std::vector<uint64_t>& bits = rows[static_cast<size_t>(at - modules.begin())];
    const RID row = RidFromToken(method);
    return row / 64 < bits.size() && (bits[row / 64] >> (row % 64) & 1) != 0;
}

void MethodsByModule::eraseModule(ModuleID module) {
    const auto at = std::find(modules.begin(), modules.end(), module);
    if (at == modules.end()) return;
    const size_t index = static_cast<size_t>(at - modules.begin());
    for (uint64_t word : rows[index]) count -= static_cast<size_t>(std::popcount(word));
    modules.erase(at);
    rows.erase(rows.begin() + static_cast<long>(index));
}
