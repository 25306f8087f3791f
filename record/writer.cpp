#include "record/writer.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace record {

using namespace format;

[[gnu::tls_model("initial-exec")]] constinit thread_local Lane *current_lane = nullptr;

namespace {

/// Whether `size` bytes, a number that the compiler knows, are all zero: as many at once as the processor can.
template <std::size_t size> [[gnu::always_inline]] inline bool are_zero(const std::uint8_t *at)
{
    using Words [[gnu::vector_size(32)]] = std::uint64_t;
    Words all{};
    for (std::size_t i = 0; i < size; i += sizeof all) {
        Words some;
        std::memcpy(&some, at + i, sizeof some);
        all |= some;
    }
    return (all[0] | all[1] | all[2] | all[3]) == 0;
}

constexpr std::size_t limit_default = 64; ///< megabytes
constexpr int same_names_max = 99;        ///< FILE, FILE.1 and so on, of processes that record at once or before

std::atomic<bool> is_open; ///< whether calls that begin are recorded

char path[PATH_MAX];
std::uint8_t *file;
std::size_t file_size;
std::uint64_t started_ns; ///< monotonic clock at the first reading
Lane lanes[lanes_max];
std::atomic<std::uint64_t> calls_begun;
std::atomic<std::uint32_t> threads_seen;

[[gnu::tls_model("initial-exec")]] thread_local std::uint32_t thread_number; ///< 0: the thread has not called yet

Header &header()
{
    return *reinterpret_cast<Header *>(file);
}

template <typename T> std::atomic_ref<T> shared(T &value)
{
    return std::atomic_ref<T>(value);
}

std::uint64_t nanoseconds(clockid_t clock)
{
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000000000U + static_cast<std::uint64_t>(now.tv_nsec);
}

// ---- Lanes and the file ------------------------------------------------------------------------------------------

/// A lane for a call from outside, or nullptr: nothing is recorded.
Lane *take_lane()
{
    for (Lane &lane : lanes) {
        if (lane.taken.exchange(true, std::memory_order_acquire))
            continue;
        if (is_open.load() && (lane.at != nullptr || take_chunk(lane)))
            return &lane;
        lane.taken.store(false);
        return nullptr;
    }
    shared(header().lost_calls).fetch_add(1);
    return nullptr;
}

bool others_have_lanes(const Lane *own)
{
    for (const Lane &lane : lanes)
        if (&lane != own && lane.taken.load(std::memory_order_relaxed))
            return true;
    return false;
}

/// The second reading of the clocks, taken again from time to time, so that it is far from the first.
void read_clocks_again(std::uint64_t ticks)
{
    constexpr std::uint64_t seldom = std::uint64_t{1} << 28U;
    if (ticks - header().last_ticks < seldom)
        return;
    const std::uint64_t elapsed = nanoseconds(CLOCK_MONOTONIC) - started_ns;
    shared(header().elapsed_ns).store(elapsed, std::memory_order_relaxed);
    shared(header().last_ticks).store(ticks_now(), std::memory_order_relaxed);
}

void complain(const char *what, const char *name)
{
    dprintf(STDERR_FILENO, "libkyrecord: nothing is recorded: %s: %s: %s\n", name, what, std::strerror(errno));
}

/// The first of FILE, FILE.1 and so on that does not exist yet; nothing that was recorded is ever overwritten.
int create_file(const char *name)
{
    for (int same_name = 0; same_name <= same_names_max; ++same_name) {
        const int length = same_name == 0 ? std::snprintf(path, sizeof path, "%s", name)
                                          : std::snprintf(path, sizeof path, "%s.%d", name, same_name);
        if (length < 0 || static_cast<std::size_t>(length) >= sizeof path) {
            errno = ENAMETOOLONG;
            return -1;
        }
        const int descriptor = open(path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (descriptor >= 0 || errno != EEXIST)
            return descriptor;
    }
    return -1;
}

void copy_name(char *to, std::size_t room, const char *name)
{
    std::snprintf(to, room, "%s", name);
}

/// Makes the file at its full size, so that no write to it can fail later, and takes its pages in.
bool map_file(const char *name, std::size_t size)
{
    const int descriptor = create_file(name);
    if (descriptor < 0) {
        complain("cannot be created", name);
        return false;
    }
    errno = posix_fallocate(descriptor, 0, static_cast<off_t>(size));
    void *const mapped =
        errno != 0 ? MAP_FAILED : mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, descriptor, 0);
    if (mapped == MAP_FAILED) {
        complain("has no room for its limit", path);
        unlink(path);
    }
    close(descriptor); // a daemon may close it too, and give its number to something else
    if (mapped == MAP_FAILED)
        return false;
    file = static_cast<std::uint8_t *>(mapped);
    file_size = size;
    return true;
}

/// Bytes of a file with a limit in megabytes: whole chunks behind the header.
std::size_t size_of(const char *limit)
{
    char *end = nullptr;
    const unsigned long megabytes = limit != nullptr ? std::strtoul(limit, &end, 10) : limit_default;
    if (limit != nullptr && (*limit == '\0' || *end != '\0' || megabytes == 0 || megabytes > 1024 * 1024)) {
        errno = EINVAL;
        complain("is no number of megabytes from 1 to 1048576", "KYBRIDGE_RECORD_LIMIT");
        return 0;
    }
    return first_chunk + megabytes * 1024 * 1024 / chunk_size * chunk_size;
}

/// The module's state in a child of fork is its own: its calls would be in nobody's order.
void stop_in_child()
{
    is_open.store(false);
}

/// At the end of the process: says so in the file, and gives back what was not needed of it.
[[gnu::destructor]] void close_recording()
{
    if (file == nullptr || header().process != static_cast<std::uint32_t>(getpid()))
        return;
    is_open.store(false);
    if (others_have_lanes(nullptr)) // the process ends inside a call
        return;
    header().is_closed = 1;
    const std::uint8_t *used = file + first_chunk;
    for (const Lane &lane : lanes)
        used = std::max<const std::uint8_t *>(used, lane.at);
    const int descriptor = open(path, O_RDWR | O_CLOEXEC);
    if (descriptor < 0)
        return; // it has been moved away, and stays as long as it is
    struct stat found {};
    std::uint32_t there[4] = {}; // magic and version
    const bool is_ours = fstat(descriptor, &found) == 0 && static_cast<std::size_t>(found.st_size) == file_size &&
                         pread(descriptor, there, sizeof there, 0) == sizeof there &&
                         std::memcmp(there, file, sizeof there) == 0;
    if (is_ours && ftruncate(descriptor, used - file) != 0)
        header().is_closed = 1; // as large as it is, it is as good
    close(descriptor);
}

} // namespace

void open_recording(const char *module)
{
    static std::atomic<bool> tried;
    if (tried.load(std::memory_order_relaxed) || tried.exchange(true))
        return;
    const char *const name = std::getenv("KYBRIDGE_RECORD"); // NOLINT(concurrency-mt-unsafe)
    if (name == nullptr || *name == '\0')
        return;
    const std::size_t size = size_of(std::getenv("KYBRIDGE_RECORD_LIMIT"));
    started_ns = nanoseconds(CLOCK_MONOTONIC);
    const std::uint64_t first_ticks = ticks_now();
    const std::uint64_t wall_ns = nanoseconds(CLOCK_REALTIME);
    if (size == 0 || !map_file(name, size))
        return;
    Header &made = header();
    made.version = version;
    made.chunk_size = chunk_size;
    made.used = first_chunk;
    made.process = static_cast<std::uint32_t>(getpid());
    made.wall_ns = wall_ns;
    made.first_ticks = first_ticks;
    made.last_ticks = ticks_now();
    made.elapsed_ns = nanoseconds(CLOCK_MONOTONIC) - started_ns;
    const ssize_t length = readlink("/proc/self/exe", made.program, sizeof made.program - 1);
    made.program[length < 0 ? 0 : length] = '\0';
    copy_name(made.module, sizeof made.module, module);
    std::memcpy(made.magic, magic, sizeof magic);
    for (Lane &lane : lanes)
        lane.ticks = first_ticks;
    pthread_atfork(nullptr, nullptr, stop_in_child);
    is_open.store(true);
}

// ---- Calls -------------------------------------------------------------------------------------------------------

Visit::Visit()
{
    if (!is_open.load(std::memory_order_relaxed) || current_lane != nullptr)
        return;
    current_lane = take_lane();
    is_outermost_ = current_lane != nullptr;
}

Visit::~Visit()
{
    if (!is_outermost_)
        return;
    Lane &lane = *current_lane;
    read_clocks_again(lane.ticks);
    current_lane = nullptr;
    lane.taken.store(false, std::memory_order_release);
}

bool take_chunk(Lane &lane)
{
    if (is_open.load(std::memory_order_relaxed)) {
        const std::uint64_t place = shared(header().used).fetch_add(chunk_size);
        if (place + chunk_size <= file_size) {
            std::uint8_t *const chunk = file + place;
            auto &chunk_header = *reinterpret_cast<ChunkHeader *>(chunk);
            const auto number = static_cast<std::uint32_t>(&lane - lanes) + 1;
            shared(chunk_header.lane).store(number, std::memory_order_release);
            lane.at = chunk + sizeof chunk_header;
            lane.end = chunk + chunk_size;
            return true;
        }
        shared(header().used).fetch_sub(chunk_size);
        shared(header().is_full).store(1);
        is_open.store(false);
    }
    lane.end = lane.at; // a shorter record must not follow one that is missing
    return false;
}

#if defined __x86_64__
[[gnu::target_clones("avx2", "default")]]
#endif
std::size_t
size_without_end(const void *data, std::size_t size)
{
    constexpr std::size_t stretch = 256;
    constexpr std::size_t line = 64; // of the processor's cache
    const auto *const begin = static_cast<const std::uint8_t *>(data);
    if (size < stretch || !are_zero<line>(begin + size - line))
        return size;
    size -= reinterpret_cast<std::uintptr_t>(begin + size) % line; // from there on no load goes over two lines
    while (size >= stretch && are_zero<stretch>(begin + size - stretch))
        size -= stretch;
    while (size >= line && are_zero<line>(begin + size - line))
        size -= line;
    return size;
}

std::uint8_t *put_surroundings(std::uint8_t *at, const Lane &lane, const Surroundings &around)
{
    static rm_resource_t told = {};
    const bool limits_changed = around.resources != nullptr && std::memcmp(&told, around.resources, sizeof told) != 0;
    unsigned flags = others_have_lanes(&lane) ? unsigned{others_inside} : 0;
    flags |= around.swid_validated ? unsigned{swid_validated} : 0;
    flags |= limits_changed ? unsigned{limits_follow} : 0;
    at = put_varint(at, flags);
    at = put_varint(at, calls_begun.fetch_add(1, std::memory_order_relaxed) + 1);
    if (thread_number == 0)
        thread_number = threads_seen.fetch_add(1, std::memory_order_relaxed) + 1;
    at = put_varint(at, thread_number);
    if (limits_changed) {
        told = *around.resources;
        at = put_varint(put_varint(at, told.max_bridges), told.max_log_ports);
    }
    return at;
}

void write_log(std::uint32_t severity, const char *module, const char *text)
{
    if (current_lane == nullptr)
        return;
    const std::size_t module_length = strnlen(module, 64);
    const std::size_t text_length = strnlen(text, log_text_max);
    std::uint8_t *at = begin_record(*current_lane, module_length + text_length + 3 * varint_max);
    if (at == nullptr)
        return;
    at = put_varint(put_varint(at, severity), module_length);
    at = put_varint(static_cast<std::uint8_t *>(std::memcpy(at, module, module_length)) + module_length, text_length);
    at = static_cast<std::uint8_t *>(std::memcpy(at, text, text_length)) + text_length;
    end_record(*current_lane, at, Kind::log, 0);
}

} // namespace record
