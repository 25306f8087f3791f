#include "host/module/module.h"

#include <dlfcn.h>
#include <link.h>

#include <cstddef>
#include <filesystem>
#include <vector>

#include <fmt/format.h>

#include "sdk/sdk.h"

namespace host {

namespace {

template <typename Symbol> void find_symbol(void *library, const char *name, const std::string &file, Symbol &symbol)
{
    symbol = reinterpret_cast<Symbol>(dlsym(library, name));
    if (symbol == nullptr)
        throw ModuleError(
            fmt::format("{} does not export {}: it is not the bridge module, or another version", file, name));
}

/// Where the program's own libraries are looked for, its run path among them, first to last. The dynamic
/// linker walks the same directories for a bare name, but on behalf of whoever calls it: under a sanitizer
/// that is the sanitizer, which has no run path.
std::vector<std::string> search_path()
{
    std::vector<std::string> directories;
    void *program = dlopen(nullptr, RTLD_NOW);
    Dl_serinfo size{};
    if (program == nullptr || dlinfo(program, RTLD_DI_SERINFOSIZE, &size) != 0)
        return directories;
    std::vector<std::max_align_t> room(size.dls_size / sizeof(std::max_align_t) + 1);
    auto *info = reinterpret_cast<Dl_serinfo *>(room.data());
    info->dls_size = size.dls_size;
    info->dls_cnt = size.dls_cnt;
    if (dlinfo(program, RTLD_DI_SERINFO, info) == 0)
        for (unsigned i = 0; i < info->dls_cnt; ++i)
            directories.emplace_back(static_cast<const Dl_serpath *>(info->dls_serpath)[i].dls_name);
    return directories;
}

std::string find_in_search_path(const std::string &file)
{
    if (file.find('/') == std::string::npos)
        for (const std::string &directory : search_path())
            if (std::filesystem::exists(std::filesystem::path(directory) / file))
                return std::filesystem::path(directory) / file;
    return file;
}

} // namespace

Module load_module(const std::string &file)
{
    const std::string path = find_in_search_path(file);
    void *library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        const char *reason = dlerror(); // NOLINT(concurrency-mt-unsafe): one thread
        throw ModuleError(fmt::format("the module cannot be loaded: {}", reason));
    }

    Module module;
    module.file = path;
#define KYBRIDGE_FIND(answer, function, ...) find_symbol(library, #function, module.file, module.function);
    KYBRIDGE_FUNCTIONS(KYBRIDGE_FIND)
#undef KYBRIDGE_FIND
    find_symbol(library, "bridge_db", module.file, module.bridge_db);
    find_symbol(library, "swid_validation_func_ptr", module.file, module.swid_validation_func_ptr);

    *module.swid_validation_func_ptr = sdk_validate_swid;
    sdk::device().bridge_port_set = module.ky_bridge_port_set;
    return module;
}

} // namespace host
