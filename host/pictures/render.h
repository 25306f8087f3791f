/// Graphviz: text into a picture.
#ifndef KYBRIDGE_HOST_RENDER_H
#define KYBRIDGE_HOST_RENDER_H

#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include <sys/types.h>

namespace host {

/// The program dot of Graphviz at work, or the text itself. Failures throw std::runtime_error.
class Rendering {
public:
    /// @param dot the picture in Graphviz's language
    /// @param file whose name's end says which kind of picture: .svg, .png, or .dot, the text itself
    Rendering(const std::string &dot, const std::string &file);
    ~Rendering(); ///< ends the program, if it still works
    Rendering(const Rendering &) = delete;
    Rendering &operator=(const Rendering &) = delete;

    /// Waits a millisecond at most. @return the picture, once it is made
    std::optional<std::string> wait();

private:
    struct CloseFile {
        void operator()(std::FILE *file) const { static_cast<void>(std::fclose(file)); }
    };

    std::unique_ptr<std::FILE, CloseFile> text_;
    std::unique_ptr<std::FILE, CloseFile> picture_;
    pid_t child_ = -1; ///< -1: none works
};

} // namespace host

#endif
