/// Which files a command may read and make: that depends on who gives it.
#ifndef KYBRIDGE_HOST_FILES_H
#define KYBRIDGE_HOST_FILES_H

#include <cstdio>
#include <string>

#include "sim/descriptor.h"

namespace host {

/// Opens files. Failures throw std::runtime_error with the reason alone.
class Files {
public:
    Files() = default;
    virtual ~Files() = default;
    Files(const Files &) = delete;
    Files &operator=(const Files &) = delete;

    /// Any file that the process may open.
    /// @param to_write made where it is missing, and not yet emptied
    virtual std::FILE *open(const std::string &name, bool to_write) const;
};

/// Regular files of one folder, by their names alone: not what a symbolic link in it leads to.
class FolderFiles final : public Files {
public:
    /// @param folder empty: no file at all
    /// Throws std::runtime_error, with the folder, when it cannot be had.
    explicit FolderFiles(std::string folder);
    std::FILE *open(const std::string &name, bool to_write) const override;

private:
    std::string path_;
    sim::Descriptor folder_;
};

} // namespace host

#endif
