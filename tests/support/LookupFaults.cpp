#include "LookupFaults.h"

#include <algorithm>
#include <cstdio>
#include <fstream>

#include "VtableSlotOf.h"

namespace {

// The two words an Itanium vtable keeps in front of its first slot (offset to
// top, type information).
constexpr size_t kHead = 2;

// Slots copied: the import is the primary base of the runtime's metadata
// object, whose table goes on with the slots of every other interface it
// implements, and the runtime calls those through it too. The copy takes up
// to 1024 slots, stopping where the mapping that holds the table ends.
size_t slotsToCopy(void** table) {
    const auto address = reinterpret_cast<uintptr_t>(table);
    size_t slots = 1024;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        uintptr_t start = 0, end = 0;
        if (sscanf(line.c_str(), "%lx-%lx", &start, &end) == 2 && start <= address && address < end) {
            slots = std::min(slots, (end - address) / sizeof(void*));
        }
    }
    return slots;
}

std::map<IMetaDataImport*, LookupFaults*>& installed() {
    static std::map<IMetaDataImport*, LookupFaults*> faults;
    return faults;
}

void**& tableOf(IMetaDataImport* import) { return *reinterpret_cast<void***>(import); }

}  // namespace

LookupFaults::LookupFaults(IMetaDataImport* import)
    : import(import), originalTable(tableOf(import)), table(originalTable - kHead, originalTable + slotsToCopy(originalTable)) {
    const size_t typeSlot = kHead + vtableSlotOf(&IMetaDataImport::FindTypeDefByName);
    const size_t methodSlot = kHead + vtableSlotOf(&IMetaDataImport::EnumMethodsWithName);
    realFindTypeDefByName = reinterpret_cast<FindTypeDefByName>(table[typeSlot]);
    realEnumMethodsWithName = reinterpret_cast<EnumMethodsWithName>(table[methodSlot]);
    table[typeSlot] = reinterpret_cast<void*>(&LookupFaults::findTypeDefByName);
    table[methodSlot] = reinterpret_cast<void*>(&LookupFaults::enumMethodsWithName);
    installed()[import] = this;
    tableOf(import) = table.data() + kHead;
}

LookupFaults::~LookupFaults() {
    tableOf(import) = originalTable;
    installed().erase(import);
}

LookupFaults& LookupFaults::of(IMetaDataImport* self) { return *installed().at(self); }

HRESULT LookupFaults::findTypeDefByName(IMetaDataImport* self, LPCWSTR name, mdToken enclosing, mdTypeDef* type) {
    LookupFaults& faults = of(self);
    faults.soughtTypes.emplace_back(name);
    auto failure = faults.typeFailures.find(name);
    return failure != faults.typeFailures.end() ? failure->second
                                                : faults.realFindTypeDefByName(self, name, enclosing, type);
}

HRESULT LookupFaults::enumMethodsWithName(IMetaDataImport* self, HCORENUM* enumerator, mdTypeDef type, LPCWSTR name,
                                          mdMethodDef* methods, ULONG size, ULONG* count) {
    LookupFaults& faults = of(self);
    auto failure = faults.methodFailures.find(name);
    if (failure == faults.methodFailures.end()) {
        return faults.realEnumMethodsWithName(self, enumerator, type, name, methods, size, count);
    }
    *count = 0;
    return failure->second;
}
