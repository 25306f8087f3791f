// Frames through the software switch: described ones, captured ones, and what must have become of them.
#include "host/commands/commands.h"

#include <algorithm>
#include <memory>
#include <stdexcept>

#include <fmt/format.h>

#include "host/output/terminal.h"
#include "host/screens/screens.h"
#include "sim/capture.h"
#include "sim/trace.h"

namespace host {

namespace {

constexpr std::uint32_t frame_bytes = 60; ///< the smallest frame on a wire, without its check sequence
constexpr std::uint16_t ipv4 = 0x0800;
constexpr int frames_a_part = 64; ///< that are replayed before others get their turn

sim::Mac mac_or(const Arguments &arguments, const std::string &key, const sim::Mac &otherwise)
{
    return arguments.has(key) ? *sim::parse_mac(arguments.text(key)) : otherwise;
}

/// The frame that the arguments describe, filled up to its size with a pattern.
sim::Bytes described_frame(const Arguments &arguments)
{
    sim::Header header;
    header.destination = mac_or(arguments, "to", {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}});
    header.source = mac_or(arguments, "from", station_at(arguments.number("PORT")));
    header.ether_type = static_cast<std::uint16_t>(arguments.number_or("type", ipv4));
    if (arguments.has("vlan") || arguments.has("pcp") || arguments.has("dei"))
        header.tag = sim::Tag{.pcp = static_cast<std::uint8_t>(arguments.number_or("pcp", 0)),
                              .dei = arguments.has("dei"),
                              .vid = static_cast<std::uint16_t>(arguments.number_or("vlan", 0))};
    sim::Bytes payload;
    if (arguments.has("inner")) { // a second tag, which is payload to the switch
        const auto inner = static_cast<std::uint16_t>(arguments.number("inner"));
        payload = {static_cast<std::uint8_t>(inner >> 8U), static_cast<std::uint8_t>(inner),
                   static_cast<std::uint8_t>(header.ether_type >> 8U), static_cast<std::uint8_t>(header.ether_type)};
        header.ether_type = sim::tag_protocol;
    }
    sim::Bytes frame = sim::build(header, payload);
    frame.resize(arguments.number_or("size", std::max(frame_bytes, static_cast<std::uint32_t>(frame.size()))), 0x5A);
    return frame;
}

Result send(Host &host, std::uint32_t log_port, const sim::Bytes &frame)
{
    std::string text = sim::trace(host.send(log_port, frame), host.port_names());
    text.pop_back(); // the line end, which every result gets
    return {KY_STATUS_SUCCESS, text};
}

Result send_described(Host &host, const Arguments &arguments)
{
    return send(host, arguments.number("PORT"), described_frame(arguments));
}

Result send_bytes(Host &host, const Arguments &arguments)
{
    return send(host, arguments.number("PORT"), *sim::parse_hex(arguments.text("HEX")));
}

/// Where a frame leaves, and with which tag.
struct FrameExit {
    std::uint32_t port;
    std::optional<sim::Tag> tag;
};

/// As scripts say it, sorted: "south vlan 100 pcp 5", "uplink untagged".
std::vector<std::string> exit_texts(const Host &host, std::span<const FrameExit> exits)
{
    std::vector<std::string> texts;
    for (const auto &[log_port, tag] : exits)
        texts.push_back(
            host.names.port(log_port) +
            (tag ? fmt::format(" vlan {}{}", tag->vid, tag->pcp != 0 ? fmt::format(" pcp {}", tag->pcp) : "")
                 : " untagged"));
    std::ranges::sort(texts);
    return texts;
}

/// Reads the ports that a frame must leave at, each with its tag.
/// @param names as for Grammar::read @throws ScriptError that tells what was expected
std::vector<FrameExit> read_exits(std::span<const std::string> words, const Names *names)
{
    static const Grammar port("PORT");
    static const Grammar vlan("vlan TAG-VLAN");
    static const Grammar pcp("pcp PCP");
    std::vector<FrameExit> exits;
    const auto take = [&words](std::size_t count) {
        const auto taken = words.first(std::min(count, words.size()));
        words = words.subspan(taken.size());
        return taken;
    };
    if (words.size() == 1 && words.front() == "nowhere")
        return exits;
    if (words.empty())
        throw ScriptError("expected 'nowhere', or ports, each followed by 'vlan N' or 'untagged'");
    while (!words.empty()) {
        const std::uint32_t log_port = port.read(take(1), names).number("PORT");
        std::optional<sim::Tag> tag;
        if (!words.empty() && words.front() == "untagged") {
            take(1);
        } else {
            tag = sim::Tag{.vid = vlan.read(take(2), names).number16("vlan")};
            if (!words.empty() && words.front() == "pcp")
                tag->pcp = static_cast<std::uint8_t>(pcp.read(take(2), names).number("pcp"));
        }
        exits.push_back({log_port, tag});
    }
    return exits;
}

void check_exits(const Arguments &arguments, const Names *names)
{
    read_exits(arguments.rest(), names);
}

Result expect_frame(Host &host, const Arguments &arguments)
{
    if (!host.giver->last_frame)
        throw ScriptError("no frame was sent yet; 'frame' sends one");
    const std::vector<std::string> expected = exit_texts(host, read_exits(arguments.rest(), &host.names));
    std::vector<FrameExit> left;
    for (const sim::Transmission &sent : host.giver->last_frame->transmissions) {
        sim::Header header;
        sim::parse(sent.frame, header);
        left.push_back({sent.port, header.tag});
    }
    const std::vector<std::string> actual = exit_texts(host, left);

    const auto list = [](const std::vector<std::string> &exits) {
        return exits.empty() ? std::string("nowhere") : fmt::format("{}", fmt::join(exits, ", "));
    };
    if (actual == expected)
        return {KY_STATUS_SUCCESS, "the frame left as expected: " + list(expected)};
    return {KY_STATUS_SUCCESS,
            fmt::format("the frame left at: {}\n  expected:          {}", list(actual), list(expected)), true};
}

/// A capture on its way into a port.
struct Replaying {
    Replaying(Host &host_given, const Arguments &arguments)
        : host(host_given), file(arguments.text("FILE")), prefix(arguments.text("out")), port(arguments.number("into")),
          replayer(
              host.software_switch, port, file, [this](std::uint32_t log_port) { return path(log_port); },
              [files = host.giver->files](const std::string &name, bool to_write) {
                  return files->open(name, to_write);
              }),
          progress(file, "frames")
    {
    }
    std::string path(std::uint32_t log_port) const
    {
        return fmt::format("{}-{}.pcap", prefix, host.names.port(log_port));
    }
    std::string summary() const;

    Host &host;
    std::string file;
    std::string prefix;
    std::uint32_t port;
    sim::Replayer replayer;
    terminal::Progress progress;
};

std::string Replaying::summary() const
{
    const sim::Replay &done = replayer.so_far();
    std::string text = fmt::format("{} frames of {} into port {}", done.frames, file, host.names.port(port));
    if (done.cut_short != 0)
        text += fmt::format("; {} were left out, the capture cut them short", done.cut_short);
    for (const auto &[log_port, frames] : done.out)
        text += fmt::format("\n  {} frames left at {}: {}", frames, host.names.port(log_port), path(log_port));
    return text;
}

Result go_on(const std::shared_ptr<Replaying> &replaying)
{
    try {
        for (int i = 0; i < frames_a_part; ++i) {
            if (!replaying->replayer.step())
                return {KY_STATUS_SUCCESS, replaying->summary()};
            replaying->progress.step();
        }
    } catch (const std::runtime_error &error) { // the frames before have been sent
        return {KY_STATUS_SUCCESS, fmt::format("{}\n  {}", error.what(), replaying->summary()), true};
    }
    Result part;
    part.rest = [replaying] { return go_on(replaying); };
    return part;
}

Result replay(Host &host, const Arguments &arguments)
{
    known_port(host, arguments.number("into"));
    return go_on(std::make_shared<Replaying>(host, arguments));
}

Result flush_fdb(Host &host, const Arguments &)
{
    const std::size_t entries = host.software_switch.fdb().size();
    host.software_switch.fdb().flush();
    return {KY_STATUS_SUCCESS, fmt::format("FDB flushed: {} entries forgotten", entries)};
}

Result set_ageing(Host &host, const Arguments &arguments)
{
    host.software_switch.fdb().set_ageing(std::chrono::seconds(arguments.number("AGEING")));
    return {KY_STATUS_SUCCESS, fmt::format("stations are forgotten after {} s", arguments.number("AGEING"))};
}

Result advance_clock(Host &host, const Arguments &arguments)
{
    host.software_switch.fdb().advance(std::chrono::seconds(arguments.number("SECONDS")));
    return {KY_STATUS_SUCCESS, fmt::format("{} s have passed", arguments.number("SECONDS"))};
}

/// In two parts, as a full database takes milliseconds to list and as many to lay out.
Result show_fdb(Host &host, const Arguments &)
{
    Result listed;
    listed.rest = [&host, screen = std::make_shared<Table>(fdb_screen(host))] {
        host.show(*screen);
        return Result{};
    };
    return listed;
}

Result show_counters(Host &host, const Arguments &)
{
    host.show(counters_screen(host));
    return {};
}

} // namespace

CommandGroup frame_commands()
{
    return {"FRAMES",
            {
                {"frame",
                 "PORT [from MAC] [to MAC] [vlan TAG-VLAN] [pcp PCP] [dei] [inner TAG-VLAN] [type TYPE] [size BYTES]",
                 "Sends a frame into a port and shows its way through the switch", "frame north vlan 100 pcp 5",
                 send_described},
                {"send", "PORT HEX", "Sends a frame of just these bytes into a port and shows its way",
                 "send north ffffffffffff02000000000a81000064080045", send_bytes},
                {"expect frame", "EXIT...",
                 "Fails unless the last frame left exactly there: 'nowhere', or ports with 'vlan N [pcp N]' or "
                 "'untagged'",
                 "expect frame south untagged uplink vlan 100 pcp 5", expect_frame, check_exits},
                {"replay", "FILE into PORT out FILE",
                 "Sends a capture file into a port; what leaves each port goes to a file of its own",
                 "replay tenants.pcap into north out leaving", replay},
                {"show fdb", "", "Shows the stations that the switch has learned", "show fdb", show_fdb},
                {"show counters", "", "Shows the frames that each port received, sent and dropped", "show counters",
                 show_counters},
                {"fdb flush", "", "Forgets all stations", "fdb flush", flush_fdb},
                {"fdb ageing", "AGEING", "Sets after how many seconds a station that is not heard is forgotten",
                 "fdb ageing 300", set_ageing},
                {"clock advance", "SECONDS",
                 "Lets time pass for the switch's stations; between real interfaces it passes by itself",
                 "clock advance 10", advance_clock},
            }};
}

} // namespace host
