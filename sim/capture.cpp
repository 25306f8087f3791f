#include "sim/capture.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <fmt/format.h>
#include <pcap/pcap.h>
#include <sys/stat.h>
#include <unistd.h>

namespace sim {
namespace {

constexpr int snapshot_size = 65535; // in bytes, written into the head of a capture file

bool are_same(int one, int other)
{
    struct stat first {
    }, second{};
    return fstat(one, &first) == 0 && fstat(other, &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

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

std::FILE *open_any_file(const std::string &path, bool to_write)
{
    const int descriptor = open(path.c_str(), (to_write ? O_WRONLY | O_CREAT : O_RDONLY) | O_CLOEXEC, 0666);
    std::FILE *file = descriptor < 0 ? nullptr : fdopen(descriptor, to_write ? "w" : "r");
    if (file == nullptr)
        throw std::runtime_error(std::strerror(errno));
    return file;
}

CaptureReader::CaptureReader(std::string path, const OpenFile &open) : path_(std::move(path))
{
    std::array<char, PCAP_ERRBUF_SIZE> error{};
    try {
        std::FILE *file = open(path_, false);
        handle_.reset(pcap_fopen_offline_with_tstamp_precision(file, PCAP_TSTAMP_PRECISION_NANO, error.data()));
        if (handle_ == nullptr) {
            static_cast<void>(std::fclose(file));
            throw std::runtime_error(error.data());
        }
    } catch (const std::runtime_error &reason) {
        throw std::runtime_error(fmt::format("cannot read capture file {}: {}", path_, reason.what()));
    }
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

std::FILE *CaptureReader::file() const
{
    return pcap_file(handle_.get());
}

CaptureWriter::CaptureWriter(std::string path, const OpenFile &open, std::FILE *source)
    : path_(std::move(path)),
      format_(pcap_open_dead_with_tstamp_precision(DLT_EN10MB, snapshot_size, PCAP_TSTAMP_PRECISION_NANO))
{
    try {
        std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(open(path_, true), &std::fclose);
        if (are_same(fileno(source), fileno(file.get())))
            throw std::runtime_error("it is the one that is read");
        if (ftruncate(fileno(file.get()), 0) != 0 && errno != EINVAL) // what is no regular file is always empty
            throw std::runtime_error(std::strerror(errno));
        file_.reset(pcap_dump_fopen(format_.get(), file.get()));
        if (file_ == nullptr)
            throw std::runtime_error(pcap_geterr(format_.get()));
        static_cast<void>(file.release()); // it is closed with file_
    } catch (const std::runtime_error &reason) {
        throw std::runtime_error(fmt::format("cannot write capture file {}: {}", path_, reason.what()));
    }
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

Replayer::Replayer(Switch &forwarder, std::uint32_t port, const std::string &path,
                   std::function<std::string(std::uint32_t)> path_of, OpenFile open)
    : switch_(forwarder), port_(port), path_of_(std::move(path_of)), open_(std::move(open)), reader_(path, open_)
{
}

bool Replayer::step()
{
    CapturedFrame frame;
    if (!reader_.next(frame)) {
        for (auto &[port, writer] : writers_)
            writer.finish();
        return false;
    }
    ++so_far_.frames;
    if (frame.bytes.size() < frame.wire_size) {
        ++so_far_.cut_short;
        return true;
    }
    for (const Transmission &sent : switch_.forward(port_, frame.bytes).transmissions) {
        auto writer = writers_.find(sent.port);
        if (writer == writers_.end())
            writer = writers_.try_emplace(sent.port, path_of_(sent.port), open_, reader_.file()).first;
        writer->second.write(frame.time, sent.frame);
        ++so_far_.out[sent.port];
    }
    return true;
}

} // namespace sim
