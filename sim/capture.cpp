#include "sim/capture.h"

#include <array>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <fmt/format.h>
#include <pcap/pcap.h>

namespace sim {
namespace {

constexpr int snapshot_size = 65535; // in bytes, written into the head of a capture file

std::string link_type_name(int type)
{
    const char *name = pcap_datalink_val_to_name(type);
    return name != nullptr ? name : fmt::format("{}", type);
}

} // namespace

void PcapClose::operator()(pcap *handle) const
{
    pcap_close(handle);
}
void PcapClose::operator()(pcap_dumper *file) const
{
    pcap_dump_close(file);
}

CaptureReader::CaptureReader(std::string path) : path_(std::move(path))
{
    std::array<char, PCAP_ERRBUF_SIZE> error{};
    handle_.reset(pcap_open_offline_with_tstamp_precision(path_.c_str(), PCAP_TSTAMP_PRECISION_NANO, error.data()));
    if (handle_ == nullptr)
        throw std::runtime_error(fmt::format("cannot read capture file {}: {}", path_, error.data()));
    const int link_type = pcap_datalink(handle_.get());
    if (link_type != DLT_EN10MB)
        throw std::runtime_error(fmt::format("cannot read capture file {}: its link type is {}, expected Ethernet",
                                             path_, link_type_name(link_type)));
}

bool CaptureReader::next(CapturedFrame &frame)
{
    pcap_pkthdr *header = nullptr;
    const u_char *bytes = nullptr;
    switch (pcap_next_ex(handle_.get(), &header, &bytes)) {
    case 1:
        break;
    case PCAP_ERROR_BREAK: // the end of the file
        return false;
    default:
        throw std::runtime_error(fmt::format("cannot read capture file {}: {}", path_, pcap_geterr(handle_.get())));
    }
    frame.time = {header->ts.tv_sec, static_cast<std::uint32_t>(header->ts.tv_usec)};
    frame.bytes = {bytes, header->caplen};
    frame.wire_size = header->len;
    return true;
}

CaptureWriter::CaptureWriter(std::string path)
    : path_(std::move(path)),
      format_(pcap_open_dead_with_tstamp_precision(DLT_EN10MB, snapshot_size, PCAP_TSTAMP_PRECISION_NANO)),
      file_(pcap_dump_open(format_.get(), path_.c_str()))
{
    if (file_ == nullptr)
        throw std::runtime_error(fmt::format("cannot write capture file {}", pcap_geterr(format_.get())));
}

void CaptureWriter::write(const Timestamp &time, BytesView frame)
{
    pcap_pkthdr header{};
    header.ts.tv_sec = time.seconds;
    header.ts.tv_usec = time.nanoseconds; // nanoseconds, by the file's precision
    header.caplen = header.len = static_cast<bpf_u_int32>(frame.size());
    pcap_dump(reinterpret_cast<u_char *>(file_.get()), &header, frame.data()); // libpcap's own idiom
}

void CaptureWriter::finish()
{
    if (pcap_dump_flush(file_.get()) != 0 || std::ferror(pcap_dump_file(file_.get())) != 0)
        throw std::runtime_error(fmt::format("cannot write capture file {}: the disk is full or failed", path_));
}

Replay replay(Switch &forwarder, std::uint32_t port, const std::string &path,
              const std::function<std::string(std::uint32_t)> &path_of,
              const std::function<void(const Outcome &)> &watch)
{
    Replay result;
    CaptureReader reader(path);
    std::map<std::uint32_t, CaptureWriter> writers;

    for (CapturedFrame frame; reader.next(frame);) {
        ++result.frames;
        if (frame.bytes.size() < frame.wire_size) {
            ++result.cut_short;
            continue;
        }
        const Outcome outcome = forwarder.forward(port, frame.bytes);
        if (watch)
            watch(outcome);
        for (const Transmission &sent : outcome.transmissions) {
            auto writer = writers.find(sent.port);
            if (writer == writers.end()) {
                const std::string out = path_of(sent.port);
                std::error_code unknown; // a file that is not there is none that is read
                if (std::filesystem::equivalent(path, out, unknown))
                    throw std::runtime_error(
                        fmt::format("cannot write capture file {}: it is the one that is read", out));
                writer = writers.emplace(sent.port, out).first;
            }
            writer->second.write(frame.time, sent.frame);
            ++result.out[sent.port];
        }
    }
    for (auto &[out_port, writer] : writers)
        writer.finish();
    return result;
}

} // namespace sim
