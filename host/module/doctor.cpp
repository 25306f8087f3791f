#include "host/module/doctor.h"

#include <dlfcn.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iterator>
#include <map>
#include <vector>

#include <fmt/format.h>

#include "host/module/elf_file.h"
#include "host/module/module.h"
#include "kybridge/ky_sdk.h"

namespace host {

namespace {

constexpr const char *module_soname = "libkybridge.so.1";
constexpr unsigned load_limit = 10; // seconds that a library may take to load

/// What a file should be, by what it exports.
struct Kind {
    const char *name;
    std::vector<std::string> functions;
    std::map<std::string, std::uint64_t> objects; ///< with the bytes that each has at least
};

const Kind &module_kind()
{
    static const Kind kind{"the bridge module",
                           {std::begin(record::function_names), std::end(record::function_names)},
                           {{"bridge_db", sizeof(void *)}, {"swid_validation_func_ptr", sizeof(void *)}}};
    return kind;
}

const Kind &sdk_kind()
{
    static const Kind kind = [] {
        Kind of_sdk{"an SDK's library",
                    {std::begin(record::service_names), std::end(record::service_names)},
                    {{"rm_resource_global", sizeof(rm_resource_t)}}};
        std::erase_if(of_sdk.functions, [](const std::string &name) { return !record::is_supplied_by_name(name); });
        of_sdk.functions.emplace_back("ky_log");
        return of_sdk;
    }();
    return kind;
}

/// Says what is right and what is wrong, at once, and remembers whether anything was wrong.
class Findings {
public:
    // NOLINTNEXTLINE(readability-convert-member-functions-to-static): reads as the twin of wrong
    void right(const std::string &text) { say("right", text); }
    void wrong(const std::string &text)
    {
        say("WRONG", text);
        is_well_ = false;
    }
    bool is_well() const { return is_well_; }

private:
    static void say(const char *verdict, const std::string &text)
    {
        fmt::print("  {}  {}\n", verdict, text);
        static_cast<void>(std::fflush(stdout)); // what follows may end the process
    }

    bool is_well_ = true;
};

/// How far the child has come with a file.
enum class Stage { reading, resolving, loading, found_well, found_ill };

// ---- In the child ----------------------------------------------------------------------------------------

void examine_soname(const LibraryFile &library, Findings &findings)
{
    if (library.soname == module_soname)
        findings.right(fmt::format("its soname is {}", module_soname));
    else
        findings.wrong(fmt::format("its soname is {}; expected {}: it is another library, or another version",
                                   library.soname.empty() ? "missing" : library.soname, module_soname));
}

/// The names of a kind that a library lacks.
std::vector<std::string> missing_exports(const LibraryFile &library, const Kind &kind)
{
    std::vector<std::string> missing;
    for (const std::string &function : kind.functions)
        if (const auto found = library.exports.find(function);
            found == library.exports.end() || found->second.is_object)
            missing.push_back(function);
    for (const auto &[object, size] : kind.objects)
        if (const auto found = library.exports.find(object);
            found == library.exports.end() || !found->second.is_object || found->second.size < size)
            missing.push_back(fmt::format("{} of at least {} bytes", object, size));
    return missing;
}

void examine_exports(const LibraryFile &library, const Kind &kind, const Kind &other_kind, Findings &findings)
{
    const auto missing = missing_exports(library, kind);
    const std::size_t expected = kind.functions.size() + kind.objects.size();
    if (missing.empty())
        findings.right(fmt::format("it exports all {} names of {}", expected, kind.name));
    else if (missing.size() == expected && missing_exports(library, other_kind).empty())
        findings.wrong(fmt::format("it is {}, not {}", other_kind.name, kind.name));
    else
        findings.wrong(fmt::format("it does not export {}: it is another library, another version, or stripped of them",
                                   fmt::join(missing, ", ")));
}

/// Loads what a library needs, but not the library itself.
std::vector<void *> load_needed(const LibraryFile &library, Findings &findings)
{
    std::vector<void *> loaded;
    for (const std::string &needed : library.needed) {
        std::string path = needed;
        for (const std::string &directory : library.run_path)
            if (path == needed && std::filesystem::exists(std::filesystem::path(directory) / needed))
                path = std::filesystem::path(directory) / needed;
        if (void *handle = dlopen(path.c_str(), RTLD_LAZY | RTLD_LOCAL); handle != nullptr)
            loaded.push_back(handle);
        else
            findings.wrong(fmt::format("it needs {}: {}", needed, dlerror())); // NOLINT(concurrency-mt-unsafe)
    }
    return loaded;
}

/// The file that a symbol's address lies in, without its directory.
std::string file_of(const void *address)
{
    Dl_info info{};
    if (dladdr(address, &info) == 0 || info.dli_fname == nullptr)
        return "the process";
    return std::filesystem::path(info.dli_fname).filename();
}

/// Who supplies each import: file names, with the imports of each; under the empty name those of nobody.
void examine_imports(const LibraryFile &library, Findings &findings)
{
    const std::vector<void *> needed = load_needed(library, findings);
    std::map<std::string, std::vector<std::string>> suppliers;
    for (const std::string &import : library.imports) {
        const void *address = dlsym(RTLD_DEFAULT, import.c_str());
        for (void *handle : needed)
            if (address == nullptr)
                address = dlsym(handle, import.c_str());
        suppliers[address != nullptr ? file_of(address) : ""].push_back(import);
    }
    for (const auto &[supplier, imports] : suppliers) {
        if (!supplier.empty())
            findings.right(fmt::format("{} supplies {}", supplier, fmt::join(imports, ", ")));
        else if (needed.size() == library.needed.size())
            findings.wrong(fmt::format("this process lacks {}: it, or a library that it is linked with, must define "
                                       "and export them",
                                       fmt::join(imports, ", ")));
        else
            findings.wrong(fmt::format("nobody else supplies {}", fmt::join(imports, ", ")));
    }
}

void examine_loading(const std::string &file, Findings &findings)
{
    alarm(load_limit);
    // With a directory, so that this file is loaded and no other of its name.
    if (dlopen(std::filesystem::absolute(file).c_str(), RTLD_NOW | RTLD_LOCAL) != nullptr)
        findings.right("it loads, with every symbol bound at once");
    else
        findings.wrong(fmt::format("it does not load: {}", dlerror())); // NOLINT(concurrency-mt-unsafe): one thread
}

/// Reads first, then loads what the file needs, and the file itself only when nothing is wrong so far.
void examine_in_child(const std::string &file, const Kind &kind, const Kind &other_kind, volatile Stage &stage)
{
    Findings findings;
    try {
        const LibraryFile library = read_library(file);
        findings.right("it is a whole ELF shared object for this processor");
        if (!library.has_sections)
            findings.wrong(
                "it has no section of dynamic symbols; it is stripped of what tells its exports, cut off or damaged");
        else
            examine_exports(library, kind, other_kind, findings);
        if (&kind == &module_kind())
            examine_soname(library, findings);
        stage = Stage::resolving;
        examine_imports(library, findings);
    } catch (const std::exception &error) { // memory for a damaged size among them
        findings.wrong(error.what());
    }
    if (findings.is_well()) {
        stage = Stage::loading;
        examine_loading(file, findings);
    } else {
        fmt::print("         so it was not loaded\n");
    }
    static_cast<void>(std::fflush(stdout));
    stage = findings.is_well() ? Stage::found_well : Stage::found_ill;
}

/// A crash is to end the child and nothing else: no handler of this process, no core file.
void forget_crash_handlers()
{
    for (const int number : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGALRM})
        static_cast<void>(std::signal(number, SIG_DFL));
    const rlimit none{};
    setrlimit(RLIMIT_CORE, &none);
}

// ---- In this process -------------------------------------------------------------------------------------

std::string text_of_end(int status)
{
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM)
        return fmt::format("is not done after {} seconds", load_limit);
    if (WIFSIGNALED(status))
        return fmt::format("ends the process by signal {}, {}", WTERMSIG(status),
                           strsignal(WTERMSIG(status))); // NOLINT(concurrency-mt-unsafe): one thread
    return fmt::format("ends the process with exit status {}", WEXITSTATUS(status));
}

bool examine(const std::string &file, const Kind &kind, const Kind &other_kind)
{
    fmt::print("{}\n", file);
    static_cast<void>(std::fflush(stdout)); // or the child writes it again
    void *const shared = mmap(nullptr, sizeof(Stage), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    const pid_t child = shared != MAP_FAILED ? fork() : -1;
    if (child < 0)
        throw std::runtime_error(fmt::format("no child process to examine {} in: {}", file,
                                             std::strerror(errno))); // NOLINT(concurrency-mt-unsafe): one thread
    auto &stage = *static_cast<volatile Stage *>(shared);
    if (child == 0) {
        forget_crash_handlers();
        examine_in_child(file, kind, other_kind, stage);
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);

    Findings findings;
    switch (stage) {
    case Stage::reading:
        findings.wrong(fmt::format("reading it {}: its headers are damaged", text_of_end(status)));
        break;
    case Stage::resolving:
        findings.wrong(fmt::format("loading what it needs {}", text_of_end(status)));
        break;
    case Stage::loading:
        findings.wrong(
            fmt::format("loading it {}: its start-up code does that, or it is damaged", text_of_end(status)));
        break;
    case Stage::found_well:
    case Stage::found_ill:
        break;
    }
    const bool is_well = stage == Stage::found_well;
    munmap(shared, sizeof(Stage));
    return is_well;
}

} // namespace

bool examine_module(const std::string &file)
{
    return examine(file, module_kind(), sdk_kind());
}

bool examine_sdk(const std::string &file)
{
    return examine(file, sdk_kind(), module_kind());
}

} // namespace host
