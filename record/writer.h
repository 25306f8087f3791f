/// Writes a recording: from the inside of calls, without a system call, an allocation or a lock.
///
/// A call from outside takes a lane and gives it back when it returns, so that processes that keep the module's rule,
/// one call at a time, have one lane. Who finds it taken takes another, and that is the proof of the bug.
#ifndef KYBRIDGE_RECORD_WRITER_H
#define KYBRIDGE_RECORD_WRITER_H

#include <atomic>
#include <cstring>
#include <ctime>

#if defined __x86_64__ || defined __i386__
#include <x86intrin.h>
#endif

#include "record/encode.h"
#include "record/format.h"

namespace record {

/// Where one call at a time writes, in chunks of its own.
struct alignas(64) Lane {
    std::atomic<bool> taken;
    std::uint8_t *at;    ///< where the next record begins; nullptr: no chunk yet
    std::uint8_t *end;   ///< of the chunk
    std::uint64_t ticks; ///< of the last record
};

/// The lane of the call that the thread is in; nullptr: of none that is recorded. The recorder is there from the start
/// of the process, so the fast model will do.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local Lane *current_lane;

/// What the module reads without calling, noted where a call from outside begins.
struct Surroundings {
    bool swid_validated;            ///< whether swid_validation_func_ptr is set
    const rm_resource_t *resources; ///< the device's limits, or nullptr
};
inline constexpr std::size_t surroundings_max = 5 * format::varint_max; ///< bytes that they can take

/// Makes the file that KYBRIDGE_RECORD names, as large as KYBRIDGE_RECORD_LIMIT says; without the one or when that
/// fails, nothing is recorded. Called before the first call is recorded; later calls do nothing.
/// @param module file of the module
void open_recording(const char *module);

/// A call from outside: the thread has a lane as long as it lasts, if anything is recorded. A call that is made inside
/// a service uses the lane of the call around it.
class Visit {
public:
    Visit();
    ~Visit();
    Visit(const Visit &) = delete;
    Visit &operator=(const Visit &) = delete;

    bool is_outermost() const { return is_outermost_; }

private:
    bool is_outermost_ = false;
};

/// Gives a lane a fresh chunk. @return false: the file is full, and recording stops
bool take_chunk(Lane &lane);

/// Writes what a call from outside begins with, at most surroundings_max bytes. @return behind them
std::uint8_t *put_surroundings(std::uint8_t *at, const Lane &lane, const Surroundings &around);

/// A line of the log. @param text ends with a zero
void write_log(std::uint32_t severity, const char *module, const char *text);

/// A counter that is read without a system call; Header::elapsed_ns tells how fast it runs.
inline std::uint64_t ticks_now()
{
#if defined __x86_64__ || defined __i386__
    return __rdtsc();
#elif defined __aarch64__
    std::uint64_t ticks = 0;
    asm volatile("mrs %0, cntvct_el0" : "=r"(ticks));
    return ticks;
#else
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000000000U + static_cast<std::uint64_t>(now.tv_nsec);
#endif
}

/// Begins a record of at most `size_max` bytes. @return where its own part begins, or nullptr: the file is full
inline std::uint8_t *begin_record(Lane &lane, std::size_t size_max)
{
    constexpr std::size_t overhead = sizeof(format::RecordHeader) + format::varint_max + 2 * sizeof(std::uint16_t);
    if (static_cast<std::size_t>(lane.end - lane.at) < size_max + overhead && !take_chunk(lane))
        return nullptr;
    const std::uint64_t now = ticks_now();
    std::uint8_t *const own =
        put_varint(lane.at + sizeof(format::RecordHeader), now > lane.ticks ? now - lane.ticks : 0);
    lane.ticks = now;
    return own;
}

/// Ends the record that begin_record began, at `end`: from here on it is part of the recording.
inline void end_record(Lane &lane, std::uint8_t *end, format::Kind kind, std::uint8_t number)
{
    std::memset(end, 0, 2 * sizeof(std::uint16_t)); // a byte to make the length even, and no record behind it yet
    end += (end - lane.at) % 2;
    auto &record = *reinterpret_cast<format::RecordHeader *>(lane.at);
    record.kind = kind;
    record.number = number;
    std::atomic_ref(record.length).store(static_cast<std::uint16_t>(end - lane.at), std::memory_order_release);
    lane.at = end;
}

} // namespace record

#endif
