#include "host/module/elf_file.h"

#include <fcntl.h>
#include <gelf.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <fmt/format.h>

namespace host {

namespace {

/// What the first bytes of an ELF file say, which lie alike for every processor.
struct Platform {
    unsigned char word_size = ELFCLASSNONE;
    unsigned char byte_order = ELFDATANONE;
    unsigned type = ET_NONE;
    unsigned machine = EM_NONE;

    bool is_same_as(const Platform &other) const
    {
        return word_size == other.word_size && byte_order == other.byte_order && machine == other.machine;
    }
    std::string text() const
    {
        static const std::map<unsigned, const char *> machines = {
            {EM_X86_64, "x86-64"}, {EM_386, "i386"},        {EM_AARCH64, "aarch64"}, {EM_ARM, "arm"},
            {EM_RISCV, "riscv"},   {EM_PPC64, "powerpc64"}, {EM_S390, "s390"},       {EM_MIPS, "mips"}};
        const auto found = machines.find(machine);
        return fmt::format("{}, {} bits, {}-endian",
                           found != machines.end() ? found->second : fmt::format("ELF machine {}", machine),
                           word_size == ELFCLASS64 ? 64 : 32, byte_order == ELFDATA2MSB ? "big" : "little");
    }
};

/// @throws ElfError when the file cannot be read, or is no ELF file
Platform platform_of(const std::string &file)
{
    std::array<unsigned char, EI_NIDENT + 4> start{};
    std::ifstream stream(file, std::ios::binary);
    if (!stream)
        throw ElfError(fmt::format("it cannot be read: {}", std::strerror(errno))); // NOLINT(concurrency-mt-unsafe)
    stream.read(reinterpret_cast<char *>(start.data()), start.size());
    if (!stream || std::memcmp(start.data(), ELFMAG, SELFMAG) != 0)
        throw ElfError("it is no ELF shared object; give the file of the built or installed library");

    Platform platform;
    platform.word_size = start[EI_CLASS];
    platform.byte_order = start[EI_DATA];
    const auto number = [&](std::size_t at) {
        return platform.byte_order == ELFDATA2MSB ? start[at] << 8U | start[at + 1] : start[at] | start[at + 1] << 8U;
    };
    platform.type = static_cast<unsigned>(number(EI_NIDENT));
    platform.machine = static_cast<unsigned>(number(EI_NIDENT + 2));
    return platform;
}

/// An ELF file of this process's kind while it is read.
class ElfFile {
public:
    explicit ElfFile(const std::string &file)
        : descriptor_(open(file.c_str(), O_RDONLY | O_CLOEXEC)), size_(std::filesystem::file_size(file)),
          directory_(std::filesystem::absolute(file).parent_path())
    {
        elf_version(EV_CURRENT);
        elf_ = elf_begin(descriptor_, ELF_C_READ, nullptr);
    }
    ~ElfFile()
    {
        elf_end(elf_);
        close(descriptor_);
    }
    ElfFile(const ElfFile &) = delete;
    ElfFile &operator=(const ElfFile &) = delete;

    /// @throws ElfError unless the file holds every segment, as the dynamic linker will map them
    void expect_whole() const
    {
        std::size_t count = 0;
        if (elf_ == nullptr || elf_getphdrnum(elf_, &count) != 0)
            throw ElfError(no_headers());
        for (std::size_t i = 0; i < count; ++i) {
            GElf_Phdr segment{};
            if (gelf_getphdr(elf_, static_cast<int>(i), &segment) == nullptr)
                throw ElfError(no_headers());
            if (segment.p_filesz > size_ || segment.p_offset > size_ - segment.p_filesz)
                throw ElfError(fmt::format("it is truncated or damaged: it has {} bytes, and a segment of {} bytes "
                                           "begins at byte {}",
                                           size_, segment.p_filesz, segment.p_offset));
        }
    }

    LibraryFile read() const
    {
        LibraryFile library;
        for (Elf_Scn *section = elf_nextscn(elf_, nullptr); section != nullptr; section = elf_nextscn(elf_, section)) {
            GElf_Shdr header{};
            Elf_Data *data = elf_getdata(section, nullptr);
            if (gelf_getshdr(section, &header) == nullptr || data == nullptr || header.sh_entsize == 0)
                continue;
            // No more than libelf has read, whatever the header says.
            const int entries =
                static_cast<int>(std::min<std::uint64_t>(header.sh_size, data->d_size) / header.sh_entsize);
            for (int entry = 0; entry < entries; ++entry) {
                if (header.sh_type == SHT_DYNAMIC)
                    read_dynamic(data, entry, header.sh_link, library);
                else if (header.sh_type == SHT_DYNSYM)
                    read_symbol(data, entry, header.sh_link, library);
            }
            library.has_sections = library.has_sections || header.sh_type == SHT_DYNSYM;
        }
        return library;
    }

private:
    std::string no_headers() const
    {
        return fmt::format("it is truncated or damaged: its {} bytes do not hold its headers", size_);
    }

    std::string text(std::size_t strings, std::size_t at) const
    {
        const char *text = elf_strptr(elf_, strings, at);
        return text != nullptr ? text : "";
    }

    void read_dynamic(Elf_Data *data, int entry, std::size_t strings, LibraryFile &library) const
    {
        GElf_Dyn dynamic{};
        if (gelf_getdyn(data, entry, &dynamic) == nullptr)
            return;
        switch (dynamic.d_tag) {
        case DT_SONAME:
            library.soname = text(strings, dynamic.d_un.d_val);
            break;
        case DT_NEEDED:
            library.needed.push_back(text(strings, dynamic.d_un.d_val));
            break;
        case DT_RPATH:
        case DT_RUNPATH:
            read_run_path(text(strings, dynamic.d_un.d_val), library);
            break;
        default:
            break;
        }
    }

    void read_run_path(const std::string &directories, LibraryFile &library) const
    {
        std::istringstream stream(directories);
        for (std::string directory; std::getline(stream, directory, ':');) {
            for (const std::string origin : {"$ORIGIN", "${ORIGIN}"})
                if (directory.starts_with(origin))
                    directory.replace(0, origin.size(), directory_);
            library.run_path.push_back(directory);
        }
    }

    void read_symbol(Elf_Data *data, int entry, std::size_t strings, LibraryFile &library) const
    {
        GElf_Sym symbol{};
        if (gelf_getsym(data, entry, &symbol) == nullptr || GELF_ST_BIND(symbol.st_info) == STB_LOCAL)
            return;
        if (symbol.st_shndx != SHN_UNDEF)
            library.exports[text(strings, symbol.st_name)] = {GELF_ST_TYPE(symbol.st_info) == STT_OBJECT,
                                                              symbol.st_size};
        else if (GELF_ST_BIND(symbol.st_info) != STB_WEAK)
            library.imports.insert(text(strings, symbol.st_name));
    }

    int descriptor_;
    std::uint64_t size_;
    std::string directory_;
    Elf *elf_;
};

} // namespace

LibraryFile read_library(const std::string &file)
{
    const Platform platform = platform_of(file);
    const Platform process = platform_of("/proc/self/exe");
    if (!platform.is_same_as(process))
        throw ElfError(
            fmt::format("it is for another kind of process: {}; this one is {}", platform.text(), process.text()));
    if (platform.type != ET_DYN)
        throw ElfError("it is no ELF shared object; give the file of the built or installed library");
    const ElfFile elf(file);
    elf.expect_whole();
    return elf.read();
}

} // namespace host
