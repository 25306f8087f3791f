#include "record/reader.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>

#include <fmt/format.h>

namespace record {

using namespace format;

namespace {

constexpr unsigned depth_max = 16; ///< of calls inside calls; the module and the SDK reach 4

/// What is wrong in a place of the file; the reader's own, and never leaves it.
class Damage : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace

/// Goes through the bytes of one record, and never behind them.
class Reader::Cursor {
public:
    explicit Cursor(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    std::uint8_t byte()
    {
        if (at_ == bytes_.size())
            throw Damage("a record ends within a number");
        return bytes_[at_++];
    }

    std::uint64_t varint()
    {
        std::uint64_t number = 0;
        for (unsigned shift = 0; shift < 64; shift += 7) {
            const std::uint8_t next = byte();
            number |= std::uint64_t{next & 0x7FU} << shift;
            if (next < 0x80)
                return number;
        }
        throw Damage("a number has more than 64 bits");
    }

    std::span<const std::uint8_t> take(std::uint64_t size)
    {
        if (size > bytes_.size() - at_)
            throw Damage(fmt::format("{} bytes are announced in a record that has {} left", size, bytes_.size() - at_));
        const auto taken = bytes_.subspan(at_, size);
        at_ += size;
        return taken;
    }

    std::string text()
    {
        const auto bytes = take(varint());
        return {bytes.begin(), bytes.end()};
    }

    /// A record or array of `size` bytes from those of its bytes that are not zero.
    std::vector<std::uint8_t> sparse(std::size_t size)
    {
        std::vector<std::uint8_t> bytes(size);
        std::uint64_t words = 0; // up to the one that is read, with it
        while (const std::uint64_t further = varint()) {
            const std::uint64_t words_left = (size + 7) / 8 - words;
            if (further > words_left)
                throw Damage(fmt::format("a word beyond its {} bytes", size));
            words += further;
            const unsigned which = byte();
            const std::size_t begin = (words - 1) * 8 + which / 16;
            const auto some = take(which % 16);
            if (begin > size || some.size() > size - begin)
                throw Damage(fmt::format("bytes beyond its {} bytes", size));
            std::ranges::copy(some, bytes.begin() + static_cast<std::ptrdiff_t>(begin));
        }
        return bytes;
    }

private:
    std::span<const std::uint8_t> bytes_;
    std::size_t at_ = 0;
};

/// One record of a lane.
struct Reader::Record {
    Kind kind;
    std::uint8_t number;
    std::uint64_t ticks;
    Cursor contents;
};

namespace {

std::size_t bytes_of_group(const std::vector<std::uint8_t> &header)
{
    const auto group = record_of<ky_acl_vlan_group_params_t>({false, 0, header});
    return sizeof group + sizeof(std::uint16_t) * (group.vlan_count <= group_vlans_max ? group.vlan_count : 0);
}

template <typename Cursor> std::vector<std::uint8_t> read_group(const Cursor &cursor, Cursor &after)
{
    // Its header tells how many VLANs follow, so it is read twice.
    Cursor header = cursor;
    const std::size_t room = sizeof(ky_acl_vlan_group_params_t) + sizeof(std::uint16_t) * group_vlans_max;
    const std::size_t size = bytes_of_group(header.sparse(room));
    after = cursor;
    return after.sparse(size);
}

template <typename Cursor>
Value read_pointed(Cursor &cursor, const Argument &argument, const std::vector<Value> &others, std::uint64_t lead)
{
    Value value;
    switch (argument.passing) {
    case Passing::place:
        value.number = lead;
        break;
    case Passing::list:
        if (lead > list_bytes_max / argument.size)
            throw Damage(fmt::format("a list of {} elements", lead));
        value.number = lead;
        value.bytes = cursor.sparse(lead * argument.size);
        break;
    case Passing::entries: {
        const std::uint64_t count = others.empty() ? 0 : others.back().number;
        value.bytes = cursor.sparse(count <= entries_max ? count * argument.size : 0);
        break;
    }
    case Passing::group: {
        const Cursor begin = cursor;
        value.bytes = read_group(begin, cursor);
        break;
    }
    default:
        value.bytes = cursor.sparse(argument.size);
        break;
    }
    return value;
}

template <typename Cursor> std::vector<Value> read_sent(Cursor &cursor, const Callable &callable)
{
    std::vector<Value> sent;
    for (std::size_t i = 0; i < callable.argument_count; ++i) {
        const Argument &argument = callable.arguments[i];
        const std::uint64_t lead = cursor.varint();
        if (!argument.is_pointer())
            sent.push_back({false, lead, {}});
        else if (lead == 0 || !argument.is_sent)
            sent.push_back({lead == 0, 0, {}});
        else
            sent.push_back(read_pointed(cursor, argument, sent, lead - 1));
    }
    return sent;
}

template <typename Cursor> std::vector<std::optional<Value>> read_answered(Cursor &cursor, const RecordedCall &call)
{
    std::vector<std::optional<Value>> answered(call.sent.size());
    for (std::size_t i = 0; i < call.sent.size(); ++i) {
        const Argument &argument = call.callable->arguments[i];
        const Value &sent = call.sent[i];
        if (!argument.is_pointer() || sent.is_null || !argument.is_answered || (!argument.is_sent && call.answer != 0))
            continue;
        const std::uint64_t lead = cursor.varint();
        const bool is_unchanged =
            lead == 0 && (argument.passing == Passing::record || argument.passing == Passing::group);
        answered[i] = is_unchanged ? sent : read_pointed(cursor, argument, {}, lead);
    }
    return answered;
}

} // namespace

Reader::Reader(std::span<const std::uint8_t> contents) : contents_(contents)
{
    if (contents.size() < sizeof header_ || std::memcmp(contents.data(), magic, sizeof magic) != 0)
        throw RecordingError("it is no recording: it does not begin with KYRECORD and a header");
    std::memcpy(&header_, contents.data(), sizeof header_);
    header_.program[sizeof header_.program - 1] = '\0';
    header_.module[sizeof header_.module - 1] = '\0';
    if (header_.version != version)
        damages_.push_back(fmt::format(
            "it is a recording of version {}, and this program reads version {}: what follows may be wrong or missing",
            header_.version, version));
    if (header_.chunk_size != chunk_size)
        damages_.push_back(fmt::format("its chunks have {} bytes, expected {}", header_.chunk_size, chunk_size));

    lanes_.resize(lanes_max);
    for (Lane &lane : lanes_)
        lane.ticks = header_.first_ticks;
    for (std::size_t at = first_chunk; at + sizeof(ChunkHeader) <= contents.size(); at += chunk_size) {
        ChunkHeader chunk{};
        std::memcpy(&chunk, contents.data() + at, sizeof chunk);
        if (chunk.lane > lanes_max)
            damages_.push_back(
                fmt::format("at byte {}: a chunk of lane {}, of which there are {}", at, chunk.lane, lanes_max));
        else if (chunk.lane != 0)
            lanes_[chunk.lane - 1].chunks.push_back(at);
    }
    for (Lane &lane : lanes_) {
        if (!lane.chunks.empty())
            lane.at = lane.chunks.front() + sizeof(ChunkHeader);
        read_ahead(lane);
    }
}

std::uint64_t Reader::time_of(std::uint64_t ticks) const
{
    const auto range = static_cast<double>(header_.last_ticks - header_.first_ticks);
    const double nanoseconds =
        range > 0 ? static_cast<double>(ticks - header_.first_ticks) * (static_cast<double>(header_.elapsed_ns) / range)
                  : 0;
    constexpr double too_long = 1e18; // thirty years: a damaged header
    return header_.wall_ns + (nanoseconds < too_long ? static_cast<std::uint64_t>(nanoseconds) : 0);
}

std::optional<Reader::Record> Reader::next_record(Lane &lane) const
{
    while (lane.chunk < lane.chunks.size()) {
        const std::size_t end = std::min(lane.chunks[lane.chunk] + chunk_size, contents_.size());
        RecordHeader record{};
        if (lane.at + sizeof record <= end)
            std::memcpy(&record, contents_.data() + lane.at, sizeof record);
        if (record.length == 0) {
            if (++lane.chunk < lane.chunks.size())
                lane.at = lane.chunks[lane.chunk] + sizeof(ChunkHeader);
            continue;
        }
        if (record.length < sizeof record || record.length > end - lane.at)
            throw Damage(fmt::format("a record of {} bytes, where {} are left", record.length, end - lane.at));
        Cursor contents(contents_.subspan(lane.at + sizeof record, record.length - sizeof record));
        lane.ticks += contents.varint();
        lane.at += record.length;
        lane.bytes += record.length;
        return Record{record.kind, record.number, lane.ticks, contents};
    }
    return std::nullopt;
}

RecordedCall Reader::begin_call(const Record &record, bool from_outside) const
{
    RecordedCall call;
    call.kind = record.kind;
    call.number = record.number;
    call.begin_ns = call.end_ns = time_of(record.ticks);
    Cursor contents = record.contents;
    const auto find = [&](std::span<const Callable> table, const char *what) {
        if (record.number >= table.size())
            throw Damage(fmt::format("{} {}, of which there are {}", what, record.number, table.size()));
        return &table[record.number];
    };
    switch (record.kind) {
    case Kind::function:
        call.callable = find(functions, "function");
        break;
    case Kind::service:
        call.callable = find(services, "service");
        break;
    case Kind::event:
        call.callable = &events[0];
        break;
    case Kind::log:
        call.is_complete = true;
        call.severity = static_cast<std::uint32_t>(contents.varint());
        call.module = contents.text();
        call.text = contents.text();
        return call;
    default:
        throw Damage(fmt::format("a record of kind {}, expected 1 to 5", static_cast<unsigned>(record.kind)));
    }
    if (from_outside) {
        const std::uint64_t flags = contents.varint();
        call.others_inside = (flags & others_inside) != 0;
        call.swid_validated = (flags & swid_validated) != 0;
        call.id = contents.varint();
        call.thread = contents.varint();
        if ((flags & limits_follow) != 0) {
            const auto bridges = static_cast<std::uint32_t>(contents.varint());
            call.limits = rm_resource_t{bridges, static_cast<std::uint32_t>(contents.varint())};
        }
    }
    call.sent = read_sent(contents, *call.callable);
    return call;
}

void Reader::end_call(const Record &record, RecordedCall &call) const
{
    Cursor contents = record.contents;
    call.end_ns = time_of(record.ticks);
    call.answer = contents.varint();
    call.answered = read_answered(contents, call);
    call.is_complete = true;
}

/// Reads what is inside a call, up to its answer. @return false: the lane ends before
bool Reader::read_inner(Lane &lane, RecordedCall &call, unsigned depth) const
{
    while (const auto record = next_record(lane)) {
        if (record->kind == Kind::answer) {
            end_call(*record, call);
            return true;
        }
        call.inner.push_back(begin_call(*record, false));
        if (record->kind == Kind::log)
            continue;
        if (depth == depth_max)
            throw Damage(fmt::format("calls inside each other are more than {} deep", depth_max));
        if (!read_inner(lane, call.inner.back(), depth + 1))
            return false;
    }
    return false;
}

/// Reads the lane's next complete call; what is wrong ends the lane.
void Reader::read_ahead(Lane &lane)
{
    lane.ahead.reset();
    std::size_t begin = lane.at;
    const std::uint64_t bytes_before = lane.bytes;
    try {
        const auto record = next_record(lane);
        if (!record)
            return;
        if (record->kind != Kind::function && record->kind != Kind::event)
            throw Damage(fmt::format("a record of kind {} outside of calls", static_cast<unsigned>(record->kind)));
        RecordedCall call = begin_call(*record, true);
        begin = lane.at;
        const bool is_complete = read_inner(lane, call, 1);
        call.bytes = lane.bytes - bytes_before;
        (is_complete ? lane.ahead.emplace() : unfinished_.emplace_back()) = std::move(call);
    } catch (const Damage &damage) {
        damages_.push_back(fmt::format("after byte {}: {}", begin, damage.what()));
        lane.chunk = lane.chunks.size();
    }
}

std::optional<RecordedCall> Reader::next()
{
    const auto id_ahead = [](const Lane &lane) { return lane.ahead ? lane.ahead->id : UINT64_MAX; };
    const auto lane = std::ranges::min_element(lanes_, {}, id_ahead);
    if (!lane->ahead)
        return std::nullopt;
    std::optional<RecordedCall> call = std::move(lane->ahead);
    read_ahead(*lane);
    return call;
}

std::vector<std::uint8_t> read_file(const std::string &name)
{
    std::ifstream file(name, std::ios::binary | std::ios::ate);
    std::vector<std::uint8_t> contents;
    if (file) {
        contents.resize(static_cast<std::size_t>(std::max<std::streamoff>(file.tellg(), 0)));
        file.seekg(0);
        file.read(reinterpret_cast<char *>(contents.data()), static_cast<std::streamsize>(contents.size()));
    }
    if (!file)
        throw RecordingError(std::strerror(errno)); // NOLINT(concurrency-mt-unsafe)
    return contents;
}

Header read_header(const std::string &name)
{
    std::vector<std::uint8_t> beginning(sizeof(Header));
    std::ifstream(name, std::ios::binary)
        .read(reinterpret_cast<char *>(beginning.data()), static_cast<std::streamsize>(beginning.size()));
    return Reader(beginning).header();
}

} // namespace record
