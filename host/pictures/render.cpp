#include "host/pictures/render.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fmt/format.h>

namespace host {

namespace {

constexpr useconds_t patience = 500; ///< microseconds between looks at the program

[[noreturn]] void fail(const char *what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

/// Starts Graphviz: text from one file, the picture into another.
/// @param format as its option -T has it
pid_t start_graphviz(std::FILE *text, std::FILE *picture, const std::string &format)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fileno(text), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, fileno(picture), STDOUT_FILENO);
    std::string program = "dot";
    std::string option = "-T" + format;
    const std::array<char *, 3> arguments = {program.data(), option.data(), nullptr};
    pid_t child = -1;
    const int error = posix_spawnp(&child, program.c_str(), &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        throw std::runtime_error("dot of Graphviz cannot be run (Debian's package is graphviz): " +
                                 std::generic_category().message(error));
    return child;
}

} // namespace

Rendering::Rendering(const std::string &dot, const std::string &file) : text_(std::tmpfile()), picture_(std::tmpfile())
{
    const std::string extension = std::filesystem::path(file).extension();
    if (extension != ".svg" && extension != ".png" && extension != ".dot")
        throw std::runtime_error(fmt::format("{}: expected a name that ends in .svg, .png or .dot", file));
    if (!text_ || !picture_)
        fail("a temporary file");
    std::FILE *into = extension == ".dot" ? picture_.get() : text_.get();
    if (std::fwrite(dot.data(), 1, dot.size(), into) != dot.size() || std::fflush(into) != 0)
        fail("a temporary file");
    std::rewind(text_.get());
    if (extension != ".dot")
        child_ = start_graphviz(text_.get(), picture_.get(), extension.substr(1));
}

Rendering::~Rendering()
{
    if (child_ < 0)
        return;
    kill(child_, SIGKILL);
    waitpid(child_, nullptr, 0);
}

std::optional<std::string> Rendering::wait()
{
    int status = 0;
    if (child_ >= 0) {
        const pid_t ended = waitpid(child_, &status, WNOHANG);
        if (ended < 0 && errno != EINTR)
            fail("waiting for dot");
        if (ended <= 0) {
            usleep(patience);
            return std::nullopt;
        }
        child_ = -1;
    }
    if (status != 0)
        throw std::runtime_error("dot of Graphviz could not make the picture");

    std::rewind(picture_.get());
    std::string picture;
    std::array<char, 65536> part{};
    for (std::size_t count = 0; (count = std::fread(part.data(), 1, part.size(), picture_.get())) > 0;)
        picture.append(part.data(), count);
    if (std::ferror(picture_.get()) != 0)
        fail("a temporary file");
    return picture;
}

} // namespace host
