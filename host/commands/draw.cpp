// Pictures of the switch, and of a frame's way through it.
#include "host/commands/commands.h"

#include <cerrno>
#include <memory>
#include <stdexcept>
#include <system_error>

#include <unistd.h>

#include <fmt/format.h>

#include "host/pictures/picture.h"
#include "host/pictures/render.h"

namespace host {

namespace {

/// The file is opened only when the picture is made.
void write_file(const std::string &bytes, const std::string &name, const Files &files)
{
    struct CloseFile {
        void operator()(std::FILE *file) const { static_cast<void>(std::fclose(file)); }
    };
    const std::unique_ptr<std::FILE, CloseFile> file(files.open(name, true));
    if (ftruncate(fileno(file.get()), 0) != 0 ||
        std::fwrite(bytes.data(), 1, bytes.size(), file.get()) != bytes.size() || std::fflush(file.get()) != 0)
        throw std::system_error(errno, std::generic_category());
}

/// Waits for the picture in parts, for those who have other things to do meanwhile.
Result go_on(const std::shared_ptr<Rendering> &rendering, const std::string &name, const Files &files)
{
    const auto picture = rendering->wait();
    if (!picture) {
        Result unfinished;
        unfinished.rest = [rendering, name, &files] { return go_on(rendering, name, files); };
        return unfinished;
    }
    try {
        write_file(*picture, name, files);
    } catch (const std::runtime_error &error) {
        throw std::runtime_error(fmt::format("{}: {}", name, error.what()));
    }
    return {KY_STATUS_SUCCESS, "drawn: " + name};
}

Result draw(const Host &host, const std::string &picture, const std::string &name)
{
    return go_on(std::make_shared<Rendering>(picture, name), name, *host.giver->files);
}

Result draw_switch(Host &host, const Arguments &arguments)
{
    return draw(host, picture(host), arguments.text("FILE"));
}

Result draw_frame(Host &host, const Arguments &arguments)
{
    if (!host.giver->last_frame)
        throw ScriptError("no frame was sent yet; 'frame' sends one");
    return draw(host, picture(host, &*host.giver->last_frame), arguments.text("FILE"));
}

} // namespace

CommandGroup draw_commands()
{
    return {"PICTURES (the end of the file's name says which kind: .svg, .png, or .dot for Graphviz)",
            {
                {"draw", "FILE", "Draws ports, virtual ports, bridges and rules", "draw switch.svg", draw_switch},
                {"draw frame", "FILE", "Draws the same with the last frame's way, and where it was dropped",
                 "draw frame frame.svg", draw_frame},
            }};
}

} // namespace host
