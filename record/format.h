/// How a recording lies in its file; docs/recording-format.md tells the same in words. All numbers are little-endian
/// and of fixed size or varints, seven bits a byte, lowest first.
///
///     Header, then chunks of chunk_size. A chunk belongs to a lane; the records of a lane run through its chunks.
///
/// A record's length is stored last, in one store of 16 bits. So what a killed process leaves is right up to the last
/// record of each lane, and zeroes follow.
#ifndef KYBRIDGE_RECORD_FORMAT_H
#define KYBRIDGE_RECORD_FORMAT_H

#include <cstddef>
#include <cstdint>

namespace record::format {

inline constexpr char magic[8] = {'K', 'Y', 'R', 'E', 'C', 'O', 'R', 'D'};
inline constexpr std::uint32_t version = 1;
inline constexpr std::size_t chunk_size = 256 << 10;
inline constexpr std::size_t first_chunk = 4096; ///< where the first chunk begins
inline constexpr unsigned lanes_max = 8;         ///< calls of different threads that can be recorded at once

/// The beginning of the file.
struct Header {
    char magic[8];
    std::uint32_t version;
    std::uint32_t chunk_size;
    std::uint64_t used;        ///< bytes from the beginning of the file that chunks were taken from
    std::uint64_t lost_calls;  ///< calls that found every lane taken
    std::uint32_t is_full;     ///< non-zero: the limit was reached, and nothing was recorded after that
    std::uint32_t is_closed;   ///< non-zero: the process came to its end in order
    std::uint32_t process;     ///< its number in the system
    std::uint32_t reserved_44; ///< 0
    // Two readings of the clocks, from which ticks become times.
    std::uint64_t first_ticks;
    std::uint64_t last_ticks;
    std::uint64_t elapsed_ns; ///< from the first reading to the last
    std::uint64_t wall_ns;    ///< since 1970-01-01 UTC, at the first reading
    char program[128];        ///< file of the process's program, ends with a zero
    char module[256];         ///< file of the module, ends with a zero
};
static_assert(sizeof(Header) == 464 && sizeof(Header) <= first_chunk);

/// The beginning of a chunk.
struct ChunkHeader {
    std::uint32_t lane; ///< 1 to lanes_max; 0: not taken yet
    std::uint32_t reserved_4;
};
static_assert(sizeof(ChunkHeader) == 8);

/// What a record tells.
enum class Kind : std::uint8_t {
    function = 1, ///< a function of the module is called
    event = 2,    ///< the module's callback is called
    service = 3,  ///< the module calls a service
    answer = 4,   ///< the last call of the lane that has no answer yet returns
    log = 5,      ///< the module writes a line to the log
};

/// The beginning of a record; a varint of the ticks since the lane's last record follows, then what its kind has.
struct RecordHeader {
    std::uint16_t length; ///< bytes of the record with this header, even; 0: no record
    Kind kind;
    std::uint8_t number; ///< function or service: its place in its table; event: the callback, 0 the first
};
static_assert(sizeof(RecordHeader) == 4);

/// Bits of what a call from outside (one that is not made inside a service) begins with.
enum CallFlag : std::uint8_t {
    others_inside = 1,  ///< another thread is inside the module
    swid_validated = 2, ///< swid_validation_func_ptr is set
    limits_follow = 4,  ///< the device's limits on bridges and logical ports follow, as varints
};

inline constexpr std::size_t varint_max = 10;     ///< bytes
inline constexpr std::size_t log_text_max = 2000; ///< bytes of a log line that are kept
inline constexpr std::size_t list_bytes_max = 16384;

/// Bytes that `size` bytes can take as sparse bytes: all of them, and with each word of eight a varint and a byte; the
/// last byte may be written without belonging to them.
inline constexpr std::size_t sparse_max(std::size_t size)
{
    return size + (size / 8 + 1) * (varint_max + 1) + 2;
}

} // namespace record::format

#endif
