/// What the file of a shared library says of itself, read without loading it.
#ifndef KYBRIDGE_HOST_ELF_FILE_H
#define KYBRIDGE_HOST_ELF_FILE_H

#include <cstdint>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace host {

/// A symbol that a library exports.
struct ExportedSymbol {
    bool is_object = false; ///< data, not a function
    std::uint64_t size = 0; ///< bytes
};

struct LibraryFile {
    std::string soname;
    std::vector<std::string> needed;   ///< libraries that the dynamic linker brings along
    std::vector<std::string> run_path; ///< directories in which it looks for them first
    std::map<std::string, ExportedSymbol> exports;
    std::set<std::string> imports; ///< without those that may stay undefined
    bool has_sections = false;     ///< without them nothing is known but that it can be loaded
};

/// The file is not a library that this process could load; the text says why.
class ElfError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Reads a library's file: its processor and word size before anything that depends on them, and that all of it
/// is there before anything in it.
/// @throws ElfError
LibraryFile read_library(const std::string &file);

} // namespace host

#endif
