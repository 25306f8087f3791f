/// Capture files: frames of a pcap or pcapng file go into a port, and what leaves each port is written to
/// a pcap file of its own, with the time stamps of the frames that caused it.
#ifndef KYBRIDGE_SIM_CAPTURE_H
#define KYBRIDGE_SIM_CAPTURE_H

#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <string>

#include "sim/pcap_handle.h"
#include "sim/switch.h"

namespace sim {

/// Time of a frame since 1970, as far as the file gives it to the nanosecond.
struct Timestamp {
    std::int64_t seconds = 0;
    std::uint32_t nanoseconds = 0;
};

struct CapturedFrame {
    Timestamp time;
    BytesView bytes;           ///< valid until the next frame is read
    std::size_t wire_size = 0; ///< in bytes; more than `bytes` when the capture cut the frame short
};

/// Opens a file: to read, or to write, made where it is missing and not yet emptied. Throws std::runtime_error with the
/// reason alone. The caller closes it.
using OpenFile = std::function<std::FILE *(const std::string &path, bool to_write)>;
std::FILE *open_any_file(const std::string &path, bool to_write);

/// Reads a capture of Ethernet frames. Failures throw std::runtime_error, which names the file.
class CaptureReader {
public:
    CaptureReader(std::string path, const OpenFile &open);
    std::FILE *file() const;
    bool next(CapturedFrame &frame); ///< false: the file has ended

private:
    std::string path_;
    PcapHandle handle_;
};

/// Writes a pcap file with time stamps in nanoseconds, and completes it when it is destroyed.
class CaptureWriter {
public:
    /// @param source open file that must not be written over
    CaptureWriter(std::string path, const OpenFile &open, std::FILE *source);
    void write(const Timestamp &time, BytesView frame);
    void finish(); ///< writes out what is buffered; throws std::runtime_error when that fails

private:
    std::string path_;
    PcapHandle format_;
    PcapDumper file_;
};

struct Replay {
    std::uint64_t frames = 0;                   ///< in the file
    std::uint64_t cut_short = 0;                ///< of them, not sent: the capture holds only their first bytes
    std::map<std::uint32_t, std::uint64_t> out; ///< frames written, by logical port
};

/// Sends a capture file into a port, frame by frame. Failures throw std::runtime_error; frames in front of a damaged
/// one have been forwarded then.
class Replayer {
public:
    /// @param path_of names the file for what leaves a port; asked once for each port that a frame leaves at
    Replayer(Switch &forwarder, std::uint32_t port, const std::string &path,
             std::function<std::string(std::uint32_t)> path_of, OpenFile open);

    bool step(); ///< sends the next frame; false: there was none, and all that left is written
    const Replay &so_far() const { return so_far_; }

private:
    Switch &switch_;
    std::uint32_t port_;
    std::function<std::string(std::uint32_t)> path_of_;
    OpenFile open_;
    CaptureReader reader_;
    std::map<std::uint32_t, CaptureWriter> writers_; ///< by logical port
    Replay so_far_;
};

} // namespace sim

#endif
