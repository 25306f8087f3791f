#include "conform/libraries.h"

#include <string_view>

#include <dlfcn.h>

#include "conform/calls.h"

namespace conform {

namespace {

/// What the dynamic linker said last.
std::string linker_error()
{
    const char *const text = dlerror(); // NOLINT(concurrency-mt-unsafe): a child of this process has one thread
    return text != nullptr ? text : "";
}

/// Opens a library for everybody. @return what the dynamic linker says against it; empty: it is open
std::string open(const std::string &file)
{
    calling(fmt::format("dlopen(\"{}\", RTLD_NOW | RTLD_GLOBAL)", file));
    return dlopen(file.c_str(), RTLD_NOW | RTLD_GLOBAL) != nullptr ? "" : linker_error();
}

} // namespace

void open_sdk(const Settings &settings)
{
    for (const std::string &file : settings.sdk) {
        // A name without a slash is meant as a file too, not as one that the dynamic linker knows.
        const std::string path = file.find('/') == std::string::npos ? "./" + file : file;
        const std::string error = open(path);
        expect(error.empty(), error, "a library that supplies services");
    }
    if (settings.setup.empty())
        return;
    calling(fmt::format("{}(), the set-up", settings.setup));
    void *const setup = find_symbol(settings.setup.c_str());
    expect(setup != nullptr, "there is no such function", "int f(void), in one of the libraries");
    const int answered = reinterpret_cast<int (*)()>(setup)();
    expect(answered == 0, fmt::format("{}", answered), "0");
}

void open_module(const Settings &settings)
{
    const std::string error = open(settings.module);
    expect(error.empty(), error, "the module, loaded with all its symbols");
}

void expect_module(const Settings &settings)
{
    const std::string error = open(settings.module);
    expect(error.empty() || error.find("undefined symbol") != std::string::npos, error, "the bridge module");
    if (!error.empty())
        return;
    calling(settings.module);
    expect(find_symbol("ky_bridge_init") != nullptr, "has no ky_bridge_init", "the bridge module");
}

} // namespace conform
