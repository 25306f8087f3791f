#include "record/attach.h"

#include <cstring>
#include <initializer_list>

#include <dlfcn.h>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

namespace record {

namespace {

constexpr const char *module_soname = "libkybridge.so.1";

/// The part of an object's dynamic section that is needed to go through its relocations.
struct Dynamic {
    const ElfW(Sym) *symbols = nullptr;
    const char *strings = nullptr;
    struct Table {
        std::uintptr_t at = 0;
        std::size_t size = 0;
    } with_addend, without_addend, of_calls;
    bool calls_have_addend = false;
};

/// glibc stores most of these as addresses already; where it does not, they are offsets in the object.
std::uintptr_t address_in(const link_map &object, ElfW(Addr) value)
{
    return value < object.l_addr ? object.l_addr + value : value;
}

Dynamic read_dynamic(const link_map &object)
{
    Dynamic dynamic;
    for (const ElfW(Dyn) *entry = object.l_ld; entry->d_tag != DT_NULL; ++entry) {
        const std::uintptr_t address = address_in(object, entry->d_un.d_ptr);
        switch (entry->d_tag) {
        case DT_SYMTAB:
            dynamic.symbols = reinterpret_cast<const ElfW(Sym) *>(address);
            break;
        case DT_STRTAB:
            dynamic.strings = reinterpret_cast<const char *>(address);
            break;
        case DT_RELA:
            dynamic.with_addend.at = address;
            break;
        case DT_RELASZ:
            dynamic.with_addend.size = entry->d_un.d_val;
            break;
        case DT_REL:
            dynamic.without_addend.at = address;
            break;
        case DT_RELSZ:
            dynamic.without_addend.size = entry->d_un.d_val;
            break;
        case DT_JMPREL:
            dynamic.of_calls.at = address;
            break;
        case DT_PLTRELSZ:
            dynamic.of_calls.size = entry->d_un.d_val;
            break;
        case DT_PLTREL:
            dynamic.calls_have_addend = entry->d_un.d_val == DT_RELA;
            break;
        default:
            break;
        }
    }
    return dynamic;
}

/// Stores into a slot that the dynamic linker may have made read-only.
bool store(void **slot, void *value)
{
    const auto page_size = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    auto *const page = reinterpret_cast<void *>(reinterpret_cast<std::uintptr_t>(slot) & ~(page_size - 1));
    if (mprotect(page, page_size, PROT_READ | PROT_WRITE) != 0)
        return false;
    __atomic_store_n(slot, value, __ATOMIC_RELEASE);
    return true; // the page stays writable, as the tables of objects that bind late always are
}

/// Calls visit(symbol name, place) for each relocation of a table that names a symbol.
template <typename Relocation, typename Visit>
void visit_relocations(const link_map &object, const Dynamic &dynamic, const Dynamic::Table &table, Visit visit)
{
    const auto *const begin = reinterpret_cast<const Relocation *>(table.at);
    for (const auto *entry = begin; entry != begin + table.size / sizeof(Relocation); ++entry) {
        constexpr unsigned symbol_shift = sizeof entry->r_info == 8 ? 32 : 8;
        const auto symbol = entry->r_info >> symbol_shift;
        if (symbol != 0)
            visit(dynamic.strings + dynamic.symbols[symbol].st_name,
                  reinterpret_cast<void **>(object.l_addr + entry->r_offset));
    }
}

template <typename Visit> void visit_relocations(const link_map &object, Visit visit)
{
    const Dynamic dynamic = read_dynamic(object);
    visit_relocations<ElfW(Rela)>(object, dynamic, dynamic.with_addend, visit);
    visit_relocations<ElfW(Rel)>(object, dynamic, dynamic.without_addend, visit);
    if (dynamic.calls_have_addend)
        visit_relocations<ElfW(Rela)>(object, dynamic, dynamic.of_calls, visit);
    else
        visit_relocations<ElfW(Rel)>(object, dynamic, dynamic.of_calls, visit);
}

/// Where an object lies in memory.
void find_extent(const link_map &object, Module &module)
{
    struct Search {
        const link_map &object;
        Module &module;
    } search{object, module};
    dl_iterate_phdr(
        [](dl_phdr_info *info, std::size_t, void *data) {
            const auto &[wanted, found] = *static_cast<Search *>(data);
            if (info->dlpi_addr != wanted.l_addr)
                return 0;
            for (int i = 0; i < info->dlpi_phnum; ++i) {
                const auto &segment = info->dlpi_phdr[i];
                if (segment.p_type != PT_LOAD)
                    continue;
                const std::uintptr_t begin = info->dlpi_addr + segment.p_vaddr;
                found.begin = found.begin == 0 || begin < found.begin ? begin : found.begin;
                found.end = begin + segment.p_memsz > found.end ? begin + segment.p_memsz : found.end;
            }
            return 1;
        },
        &search);
}

} // namespace

Dlsym real_dlsym()
{
    static Dlsym found = nullptr;
    // Its version differs between processors: 2.34, or the first that glibc had there.
    for (const char *version : {"GLIBC_2.34", "GLIBC_2.2.5", "GLIBC_2.17", "GLIBC_2.27", "GLIBC_2.4", "GLIBC_2.0"})
        if (found == nullptr)
            found = reinterpret_cast<Dlsym>(dlvsym(RTLD_NEXT, "dlsym", version));
    return found;
}

void *find_in_module(const char *name)
{
    void *const next = real_dlsym()(RTLD_NEXT, name);
    if (next != nullptr)
        return next;
    void *const module = dlopen(module_soname, RTLD_LAZY | RTLD_NOLOAD);
    if (module == nullptr)
        return nullptr;
    void *const found = real_dlsym()(module, name);
    dlclose(module); // only what was asked for here: whoever loaded it keeps it
    return found;
}

Module attach(void *function, Slot *slots, unsigned slot_count)
{
    Module module{};
    Dl_info info{};
    void *extra = nullptr;
    if (dladdr1(function, &info, &extra, RTLD_DL_LINKMAP) == 0 || extra == nullptr)
        return module;
    const auto &object = *static_cast<const link_map *>(extra);
    find_extent(object, module);
    module.file = object.l_name;
    visit_relocations(object, [&](const char *name, void **place) {
        for (Slot *slot = slots; slot != slots + slot_count; ++slot) {
            if (std::strcmp(slot->name, name) != 0 || *place == slot->recorder)
                continue;
            void *const before = *place;
            if (store(place, slot->recorder)) {
                slot->real = before;
                slot->at = place;
            }
        }
        if (std::strcmp(name, "swid_validation_func_ptr") == 0)
            module.swid_validation = static_cast<ky_swid_validation_func_t *>(*place);
        if (std::strcmp(name, "rm_resource_global") == 0)
            module.resources = static_cast<const rm_resource_t *>(*place);
    });
    return module;
}

} // namespace record
