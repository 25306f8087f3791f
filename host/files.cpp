#include "host/files.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include "sim/capture.h"

namespace host {

namespace {

std::string reason()
{
    return std::strerror(errno); // NOLINT(concurrency-mt-unsafe): there are no threads
}

} // namespace

std::FILE *Files::open(const std::string &name, bool to_write) const
{
    return sim::open_any_file(name, to_write);
}

FolderFiles::FolderFiles(std::string folder) : path_(std::move(folder))
{
    if (path_.empty())
        return;
    folder_.reset(::open(path_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)); // NOLINT(*-vararg)
    if (folder_.get() < 0)
        throw std::runtime_error(fmt::format("{}: {}", path_, reason()));
}

std::FILE *FolderFiles::open(const std::string &name, bool to_write) const
{
    if (path_.empty())
        throw std::runtime_error("a client reads and makes no files; --control-files names a folder for them");
    if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos)
        throw std::runtime_error(fmt::format("expected the name of a file in {}, without a slash", path_));

    // A pipe or a device could keep the caller waiting; it is opened without, and closed again.
    const int how = (to_write ? O_WRONLY | O_CREAT : O_RDONLY) | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    sim::Descriptor file(openat(folder_.get(), name.c_str(), how, 0666)); // NOLINT(*-vararg)
    if (file.get() < 0)
        throw std::runtime_error(errno == ELOOP ? "it is a symbolic link" : reason());
    struct stat kind {};
    if (fstat(file.get(), &kind) != 0 || !S_ISREG(kind.st_mode))
        throw std::runtime_error("it is no regular file");
    std::FILE *stream = fdopen(file.get(), to_write ? "w" : "r");
    if (stream == nullptr)
        throw std::runtime_error(reason());
    file.release();
    return stream;
}

} // namespace host
