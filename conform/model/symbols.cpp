#include "conform/model/symbols.h"

#include <dlfcn.h>

#include <fmt/format.h>

namespace conform {

void *find_symbol(const char *name)
{
    return dlsym(RTLD_DEFAULT, name);
}

void *need_symbol(const char *name)
{
    void *const symbol = find_symbol(name);
    if (symbol == nullptr)
        throw MissingSymbol(fmt::format("{} is missing", name));
    return symbol;
}

} // namespace conform
