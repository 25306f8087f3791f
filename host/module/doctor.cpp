#include "host/module/doctor.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gelf.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>
#include <stdexcept>
#include <vector>

#include <fmt/format.h>

#include "host/module/module.h"

namespace host {

namespace {

constexpr const char *module_soname = "libkybridge.so.1";

/// What the dynamic sections of an ELF file say.
struct Library {
    std::string soname;
    std::vector<std::string> needed; ///< libraries that the dynamic linker brings along
    std::set<std::string> exports;
    std::set<std::string> imports; ///< without those that may stay undefined
};

/// An ELF file while it is read.
class ElfFile {
public:
    /// @throws std::runtime_error when the file cannot be read, or is no shared object
    explicit ElfFile(const std::string &file)
    {
        elf_version(EV_CURRENT);
        descriptor_ = open(file.c_str(), O_RDONLY | O_CLOEXEC);
        if (descriptor_ < 0)
            throw std::runtime_error(fmt::format("it cannot be read: {}",
                                                 std::strerror(errno))); // NOLINT(concurrency-mt-unsafe): one thread
        elf_ = elf_begin(descriptor_, ELF_C_READ, nullptr);
        GElf_Ehdr header{};
        if (elf_ == nullptr || gelf_getehdr(elf_, &header) == nullptr || header.e_type != ET_DYN) {
            close_all();
            throw std::runtime_error("it is no ELF shared object; give the file of the built or installed library");
        }
    }
    ~ElfFile() { close_all(); }
    ElfFile(const ElfFile &) = delete;
    ElfFile &operator=(const ElfFile &) = delete;

    Library read() const
    {
        Library library;
        for (Elf_Scn *section = elf_nextscn(elf_, nullptr); section != nullptr; section = elf_nextscn(elf_, section)) {
            GElf_Shdr header{};
            Elf_Data *data = elf_getdata(section, nullptr);
            if (gelf_getshdr(section, &header) == nullptr || data == nullptr || header.sh_entsize == 0)
                continue;
            const int entries = static_cast<int>(header.sh_size / header.sh_entsize);
            for (int entry = 0; entry < entries; ++entry) {
                if (header.sh_type == SHT_DYNAMIC)
                    read_dynamic(data, entry, header.sh_link, library);
                else if (header.sh_type == SHT_DYNSYM)
                    read_symbol(data, entry, header.sh_link, library);
            }
        }
        return library;
    }

private:
    std::string text(std::size_t strings, std::size_t at) const
    {
        const char *text = elf_strptr(elf_, strings, at);
        return text != nullptr ? text : "";
    }

    void read_dynamic(Elf_Data *data, int entry, std::size_t strings, Library &library) const
    {
        GElf_Dyn dynamic{};
        if (gelf_getdyn(data, entry, &dynamic) == nullptr)
            return;
        if (dynamic.d_tag == DT_SONAME)
            library.soname = text(strings, dynamic.d_un.d_val);
        else if (dynamic.d_tag == DT_NEEDED)
            library.needed.push_back(text(strings, dynamic.d_un.d_val));
    }

    void read_symbol(Elf_Data *data, int entry, std::size_t strings, Library &library) const
    {
        GElf_Sym symbol{};
        if (gelf_getsym(data, entry, &symbol) == nullptr || GELF_ST_BIND(symbol.st_info) == STB_LOCAL)
            return;
        if (symbol.st_shndx != SHN_UNDEF)
            library.exports.insert(text(strings, symbol.st_name));
        else if (GELF_ST_BIND(symbol.st_info) != STB_WEAK)
            library.imports.insert(text(strings, symbol.st_name));
    }

    void close_all()
    {
        elf_end(elf_);
        if (descriptor_ >= 0)
            close(descriptor_);
    }

    int descriptor_ = -1;
    Elf *elf_ = nullptr;
};

/// What the module must export, and this program looks up.
const std::vector<std::string> &expected_exports()
{
    static const std::vector<std::string> names = {
#define KYBRIDGE_NAME(function) #function,
        KYBRIDGE_FUNCTIONS(KYBRIDGE_NAME)
#undef KYBRIDGE_NAME
            "bridge_db",
        "swid_validation_func_ptr"};
    return names;
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
std::map<std::string, std::vector<std::string>> suppliers(const Library &library)
{
    // What the library brings along is loaded for the question alone, and without it.
    std::vector<void *> brought;
    for (const std::string &needed : library.needed)
        if (void *handle = dlopen(needed.c_str(), RTLD_LAZY | RTLD_LOCAL); handle != nullptr)
            brought.push_back(handle);

    std::map<std::string, std::vector<std::string>> suppliers;
    for (const std::string &import : library.imports) {
        const void *address = dlsym(RTLD_DEFAULT, import.c_str());
        for (void *handle : brought)
            if (address == nullptr)
                address = dlsym(handle, import.c_str());
        suppliers[address != nullptr ? file_of(address) : ""].push_back(import);
    }
    for (void *handle : brought)
        dlclose(handle);
    return suppliers;
}

/// Says what is right and what is wrong, and remembers whether anything was.
class Findings {
public:
    // NOLINTNEXTLINE(readability-convert-member-functions-to-static): reads as the twin of wrong
    void right(const std::string &text) { fmt::print("  right  {}\n", text); }
    void wrong(const std::string &text)
    {
        fmt::print("  WRONG  {}\n", text);
        is_well_ = false;
    }
    bool is_well() const { return is_well_; }

private:
    bool is_well_ = true;
};

void examine_soname(const Library &library, Findings &findings)
{
    if (library.soname == module_soname)
        findings.right(fmt::format("its soname is {}", module_soname));
    else
        findings.wrong(fmt::format("its soname is {}; expected {}: it is another library, or another version",
                                   library.soname.empty() ? "missing" : library.soname, module_soname));
}

void examine_exports(const Library &library, Findings &findings)
{
    std::vector<std::string> missing;
    for (const std::string &name : expected_exports())
        if (!library.exports.contains(name))
            missing.push_back(name);
    if (missing.empty())
        findings.right(fmt::format("it exports all {} names that processes use", expected_exports().size()));
    else
        findings.wrong(fmt::format("it does not export {}: it is another library, another version, or stripped of them",
                                   fmt::join(missing, ", ")));
}

void examine_imports(const Library &library, Findings &findings)
{
    for (const auto &[supplier, imports] : suppliers(library)) {
        if (supplier.empty())
            findings.wrong(fmt::format("this process lacks {}: it, or a library that it is linked with, must define "
                                       "and export them",
                                       fmt::join(imports, ", ")));
        else
            findings.right(fmt::format("{} supplies {}", supplier, fmt::join(imports, ", ")));
    }
}

void examine_loading(const std::string &file, Findings &findings)
{
    // With a directory, so that this file is loaded and no other of its name.
    void *library = dlopen(std::filesystem::absolute(file).c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        findings.wrong(fmt::format("it does not load: {}", dlerror())); // NOLINT(concurrency-mt-unsafe): one thread
        return;
    }
    findings.right("it loads, with every symbol bound at once");
    dlclose(library);
}

} // namespace

bool examine(const std::string &file)
{
    fmt::print("{}\n", file);
    Findings findings;
    try {
        const Library library = ElfFile(file).read();
        findings.right("it is an ELF shared object");
        examine_soname(library, findings);
        examine_exports(library, findings);
        examine_imports(library, findings);
    } catch (const std::runtime_error &error) {
        findings.wrong(error.what());
    }
    if (findings.is_well())
        examine_loading(file, findings);
    else
        fmt::print("         so it was not loaded\n");
    return findings.is_well();
}

} // namespace host
