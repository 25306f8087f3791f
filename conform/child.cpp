#include "conform/child.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "conform/check.h"
#include "conform/edge.h"
#include "conform/model/symbols.h"

namespace conform {

namespace {

constexpr std::size_t output_limit = 1000; ///< bytes of the output that are kept

/// A text in shared memory, cut to what fits.
struct Text {
    char bytes[2000];

    void write(std::string_view text)
    {
        const std::size_t length = std::min(text.size(), sizeof bytes - 1);
        std::memcpy(bytes, text.data(), length);
        bytes[length] = '\0';
    }
    std::string read() const { return {bytes, strnlen(bytes, sizeof bytes)}; }
};

/// What the child tells its parent, in memory that both share: it can be written up to the moment of a crash.
struct Shared {
    bool ended; ///< the body returned or threw
    Outcome::Kind kind;
    volatile bool touched_edge;
    Text called, answered, expected, remark;
};

Shared *shared = nullptr;

[[noreturn]] void throw_error(const char *what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

/// Memory that a child shares, for as long as this lives.
class SharedMemory {
public:
    SharedMemory()
    {
        void *const mapped = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (mapped == MAP_FAILED)
            throw_error("mmap");
        shared = static_cast<Shared *>(mapped);
    }
    SharedMemory(const SharedMemory &) = delete;
    SharedMemory &operator=(const SharedMemory &) = delete;
    ~SharedMemory()
    {
        munmap(shared, sizeof(Shared));
        shared = nullptr;
    }
};

class Descriptor {
public:
    Descriptor(int number, const char *what) : number_(number)
    {
        if (number < 0)
            throw_error(what);
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor() { close(number_); }
    operator int() const { return number_; } // NOLINT(google-explicit-constructor)

private:
    int number_;
};

[[noreturn]] void be_child(const std::function<std::string()> &body, pid_t parent, int output)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent)
        _exit(0);
    setpgid(0, 0); // whatever the SDK starts ends with it
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    static_cast<void>(std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ)); // so that a crash loses little
    try {
        watch_edge();
        shared->remark.write(body());
        shared->kind = Outcome::Kind::holds;
    } catch (const Finding &finding) {
        shared->answered.write(finding.answered);
        shared->expected.write(finding.expected);
    } catch (const NotRun &reason) {
        shared->remark.write(reason.why);
        shared->kind = Outcome::Kind::not_run;
    } catch (const MissingSymbol &missing) {
        shared->remark.write(missing.what());
        shared->kind = Outcome::Kind::not_run;
    } catch (const std::exception &error) {
        shared->answered.write(error.what());
        shared->expected.write("no failure in the kit itself");
    }
    shared->ended = true;
    static_cast<void>(std::fflush(nullptr));
    _exit(0); // the SDK's own clean-up is not looked at
}

std::string end_of(int output)
{
    const off_t size = lseek(output, 0, SEEK_END);
    std::string text(static_cast<std::size_t>(std::min<off_t>(size, output_limit)), '\0');
    const ssize_t count = pread(output, text.data(), text.size(), size - static_cast<off_t>(text.size()));
    text.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    if (static_cast<off_t>(text.size()) < size) // begins with a whole line
        text.erase(0, text.find('\n') + 1);
    return text;
}

std::string how_it_ended(int status)
{
    if (shared->touched_edge)
        return "read or wrote behind the end of the record";
    if (WIFSIGNALED(status))
        return fmt::format("crashed: signal {}, {}", WTERMSIG(status), sigdescr_np(WTERMSIG(status)));
    return fmt::format("ended the process with exit status {}", WEXITSTATUS(status));
}

} // namespace

void calling(const std::string &text)
{
    if (std::uncaught_exceptions() == 0) // what is called to clean up afterwards was not what failed
        shared->called.write(text);
}

void note_touched_edge()
{
    shared->touched_edge = true;
}

Outcome run_in_child(const std::function<std::string()> &body, unsigned limit)
{
    const SharedMemory memory;
    shared->kind = Outcome::Kind::fails;
    const Descriptor output(memfd_create("output", MFD_CLOEXEC), "memfd_create");
    const auto began = std::chrono::steady_clock::now();
    static_cast<void>(std::fflush(nullptr)); // or the child would write it again
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child < 0)
        throw_error("fork");
    if (child == 0)
        be_child(body, parent, output);

    const Descriptor process(static_cast<int>(syscall(SYS_pidfd_open, child, 0)), "pidfd_open");
    pollfd ended = {process, POLLIN, 0};
    const auto deadline = began + std::chrono::seconds(limit);
    int answer = -1;
    do {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
        answer = poll(&ended, 1, static_cast<int>(std::max<std::int64_t>(left, 0)));
    } while (answer < 0 && errno == EINTR);
    kill(-child, SIGKILL);
    kill(child, SIGKILL); // where it had no time to become a group of its own
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }

    Outcome outcome;
    outcome.kind = shared->kind;
    outcome.called = shared->called.read();
    outcome.answered = shared->answered.read();
    outcome.expected = shared->expected.read();
    outcome.remark = shared->remark.read();
    if (!shared->ended) {
        outcome.kind = Outcome::Kind::fails;
        outcome.answered = answer == 0 ? fmt::format("nothing yet after {} seconds", limit) : how_it_ended(status);
        outcome.expected = "an answer";
    }
    outcome.output = end_of(output);
    outcome.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
    return outcome;
}

} // namespace conform
