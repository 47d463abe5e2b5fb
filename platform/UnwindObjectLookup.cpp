// The unwinder of the static C++ runtime finds the object that holds a code
// address through _dl_find_object, which the C library has only from 2.35 on
// (see GlibcBaseline.cpp): the same answer is had here from dl_iterate_phdr,
// which every C library has. Only the object's span and its exception frame
// table are filled in, which is what the unwinder reads.
#include <dlfcn.h>
#include <link.h>

#include <cstdint>

namespace {

struct Lookup {
    uintptr_t address;
    dl_find_object* result;
    bool found;
};

int visit(dl_phdr_info* info, size_t, void* data) {
    auto* lookup = static_cast<Lookup*>(data);
    uintptr_t start = UINTPTR_MAX;
    uintptr_t end = 0;
    bool holds = false;
    const ElfW(Phdr)* frames = nullptr;
    for (ElfW(Half) i = 0; i < info->dlpi_phnum; ++i) {
        const ElfW(Phdr)& header = info->dlpi_phdr[i];
        if (header.p_type == PT_GNU_EH_FRAME) frames = &header;
        if (header.p_type != PT_LOAD) continue;
        const uintptr_t begin = info->dlpi_addr + header.p_vaddr;
        const uintptr_t limit = begin + header.p_memsz;
        if (begin < start) start = begin;
        if (limit > end) end = limit;
        if (lookup->address >= begin && lookup->address < limit) holds = true;
    }
    if (!holds) return 0;
    lookup->found = true;
    *lookup->result = {};
    lookup->result->dlfo_map_start = reinterpret_cast<void*>(start);
    lookup->result->dlfo_map_end = reinterpret_cast<void*>(end);
    lookup->result->dlfo_eh_frame =
        frames != nullptr ? reinterpret_cast<void*>(info->dlpi_addr + frames->p_vaddr) : nullptr;
    return 1;
}

}  // namespace

extern "C" __attribute__((visibility("hidden"))) int _dl_find_object(void* address, dl_find_object* result) noexcept {
    Lookup lookup{reinterpret_cast<uintptr_t>(address), result, false};
    dl_iterate_phdr(visit, &lookup);
    return lookup.found ? 0 : -1;
}
