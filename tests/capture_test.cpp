// Capture files: what goes in comes out, with its time, and what cannot be read is told.
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "sim/capture.h"

namespace {

using namespace sim;

/// Three ports that are plain members of VLAN 100, the third untagged, and a directory for files.
class CaptureTest : public testing::Test {
protected:
    CaptureTest()
    {
        std::filesystem::create_directory(directory);
        for (const std::uint32_t port : {1U, 2U, 3U}) {
            sdk::device().ports.ports[port];
            sdk::device().vlans.join(port, 100, port == 3 ? KY_EGRESS_MODE_UNTAGGED : KY_EGRESS_MODE_TAGGED);
        }
    }
    ~CaptureTest() override { std::filesystem::remove_all(directory); }

    std::string file(const std::string &name) const { return directory / name; }

    /// Writes words in the machine's byte order, as capture files are.
    std::string write_words(const std::string &name, const std::vector<std::uint32_t> &words) const
    {
        std::ofstream(file(name), std::ios::binary)
            .write(reinterpret_cast<const char *>(words.data()), static_cast<std::streamsize>(words.size() * 4));
        return file(name);
    }

    Replay replay_into_1(const std::string &path)
    {
        Replayer replayer(forwarder, 1, path, [this](std::uint32_t port) { return file(std::to_string(port)); });
        while (replayer.step()) {
        }
        return replayer.so_far();
    }

    static std::string failure(const std::function<void()> &action)
    {
        try {
            action();
        } catch (const std::runtime_error &error) {
            return error.what();
        }
        return "none";
    }

    struct Reset {
        Reset() { sdk::device().reset(); }
    } reset; ///< before the switch takes its hook
    std::filesystem::path directory =
        std::filesystem::path(testing::TempDir()) / ("capture_test_" + std::to_string(::getpid()));
    Switch forwarder;
};

const Header tagged{{{2, 0, 0, 0, 0, 2}}, {{2, 0, 0, 0, 0, 1}}, Tag{.pcp = 3, .vid = 100}, 0x0800};
const Header untagged{tagged.destination, tagged.source, std::nullopt, 0x0800};

constexpr std::uint32_t pcap_magic = 0xa1b2c3d4; // time stamps in microseconds
constexpr std::uint32_t ethernet = 1, raw_ip = 101;

TEST_F(CaptureTest, EveryPortGetsItsFramesWithTheirTimes)
{
    const std::vector<Timestamp> times{{1700000000, 0}, {1700000000, 123456789}, {1700000001, 999999999}};
    const std::vector<Bytes> payloads{Bytes(46, 1), Bytes(1500, 2), Bytes(9198, 3)};
    {
        CaptureWriter writer(file("in"));
        for (std::size_t i = 0; i < times.size(); ++i)
            writer.write(times[i], build(tagged, payloads[i]));
        writer.write({1700000002, 0}, Bytes(13)); // a runt is dropped by the switch, not by the file
    }

    const Replay result = replay_into_1(file("in"));
    EXPECT_EQ(result.frames, 4U);
    EXPECT_EQ(result.cut_short, 0U);
    EXPECT_EQ(result.out, (std::map<std::uint32_t, std::uint64_t>{{2, 3}, {3, 3}}));
    EXPECT_FALSE(std::filesystem::exists(file("1")));
    for (const auto &[name, header] : {std::pair{"2", tagged}, std::pair{"3", untagged}}) {
        CaptureReader reader(file(name));
        CapturedFrame frame;
        for (std::size_t i = 0; i < times.size(); ++i) {
            ASSERT_TRUE(reader.next(frame)) << name;
            EXPECT_EQ(frame.time, times[i]);
            EXPECT_EQ(Bytes(frame.bytes.begin(), frame.bytes.end()), build(header, payloads[i])) << name;
        }
        EXPECT_FALSE(reader.next(frame));
    }
}

TEST_F(CaptureTest, ReadsBothFormatsAndCountsFramesThatWereCutShort)
{
    // Two frames of 64 bytes with their times in microseconds; of the second only 20 bytes were kept.
    const Bytes frame = build(tagged, Bytes(46));
    std::vector<std::uint32_t> whole(16);
    std::memcpy(whole.data(), frame.data(), 64);
    const std::vector<std::uint32_t> cut(whole.begin(), whole.begin() + 5);
    std::vector<std::uint32_t> pcap{pcap_magic, 0x00040002, 0, 0, 65535, ethernet};
    // A section and an interface: type, length, contents, length again; so are the frames' blocks.
    std::vector<std::uint32_t> pcapng{0x0A0D0D0A, 28, 0x1A2B3C4D, 1,        0xFFFFFFFF, 0xFFFFFFFF,
                                      28,         1,  20,         ethernet, 0,          20};
    constexpr std::uint64_t start = 1700000000;
    for (const auto &[kept, microseconds] : {std::pair(whole, 5U), std::pair(cut, 6U)}) {
        const auto size = static_cast<std::uint32_t>(kept.size() * 4);
        const std::uint64_t time = start * 1000000 + microseconds;
        pcap.insert(pcap.end(), {start, microseconds, size, 64});
        pcapng.insert(pcapng.end(), {6, 32 + size, 0, static_cast<std::uint32_t>(time >> 32),
                                     static_cast<std::uint32_t>(time), size, 64});
        for (auto *const file : {&pcap, &pcapng})
            file->insert(file->end(), kept.begin(), kept.end());
        pcapng.push_back(32 + size);
    }

    for (const auto &words : {pcap, pcapng}) {
        const Replay result = replay_into_1(write_words("in", words));
        EXPECT_EQ(result.frames, 2U);
        EXPECT_EQ(result.cut_short, 1U);
        EXPECT_EQ(result.out.at(2), 1U);
        CapturedFrame read;
        ASSERT_TRUE(CaptureReader(file("2")).next(read));
        EXPECT_EQ(read.time, (Timestamp{start, 5000}));
    }
}

TEST_F(CaptureTest, TellsWhatItCannotReadOrWrite)
{
    const std::string ip = write_words("ip", {pcap_magic, 0x00040002, 0, 0, 65535, raw_ip});
    const std::string broken = write_words("broken", {pcap_magic, 0x00040002, 0, 0, 65535, ethernet, 0, 0, 64, 64, 1});

    EXPECT_EQ(failure([&] { replay_into_1(ip); }),
              "cannot read capture file " + ip + ": its link type is RAW, expected Ethernet");
    for (const std::string &path : {broken, file("missing")})
        EXPECT_EQ(failure([&] { replay_into_1(path); }).find("cannot read capture file " + path + ": "), 0U) << path;

    {
        CaptureWriter writer(file("2")); // where the frames of port 2 would go
        writer.write({1700000000, 0}, build(tagged, Bytes(46)));
    }
    const auto size = std::filesystem::file_size(file("2"));
    EXPECT_EQ(failure([&] { replay_into_1(file("2")); }),
              "cannot write capture file " + file("2") + ": it is the one that is read");
    EXPECT_EQ(std::filesystem::file_size(file("2")), size);

    const std::string nowhere = file("missing/out");
    EXPECT_EQ(failure([&] { CaptureWriter writer(nowhere); }).find("cannot write capture file " + nowhere), 0U);
}

} // namespace
