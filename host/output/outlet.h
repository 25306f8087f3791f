/// Text on its way out of the process: to a terminal, a file, a pipe or a client.
///
/// Neither a full disk nor a reader that has gone ends anything: what cannot be written is lost, which is told once
/// and remembered for the exit status. Later text is tried again.
#ifndef KYBRIDGE_HOST_OUTLET_H
#define KYBRIDGE_HOST_OUTLET_H

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include <unistd.h>

namespace host {

class Outlet {
public:
    using Clock = std::chrono::steady_clock;

    /// What happens while the reader takes nothing.
    enum class Pace {
        waits,      ///< flush waits for the reader
        never_waits ///< the rest is kept for the next flush; a standard stream or a log keeps `most_kept` bytes
    };
    static constexpr std::size_t most_kept = 1 << 20;

    /// @param name that a loss is told under: "standard output"
    /// @param complaints where a loss is told; NULL: nowhere
    /// @param limit bytes that are kept for a reader that takes nothing before new text is lost
    explicit Outlet(int descriptor, std::string name = {}, Outlet *complaints = nullptr, Pace pace = Pace::waits,
                    std::size_t limit = most_kept)
        : descriptor_(descriptor), name_(std::move(name)), complaints_(complaints), pace_(pace), limit_(limit),
          is_terminal_(isatty(descriptor) != 0)
    {
    }
    ~Outlet() { flush(); }
    Outlet(const Outlet &) = delete;
    Outlet &operator=(const Outlet &) = delete;

    void write(std::string_view text); ///< goes out with the next flush, or earlier
    void flush();
    /// Flushes for the last time. An outlet that never waits does so now, until the deadline.
    void finish(Clock::time_point deadline = Clock::now() + std::chrono::seconds(1));

    void set_pace(Pace pace) { pace_ = pace; }
    int descriptor() const { return descriptor_; }
    std::size_t pending() const { return kept_.size(); } ///< bytes that wait for the reader or for a flush
    bool has_lost() const { return has_lost_; }

private:
    bool wait_until_writable(int milliseconds) const;
    void lose(std::string_view reason);

    int descriptor_;
    std::string name_;
    Outlet *complaints_;
    Pace pace_;
    std::size_t limit_;
    bool is_terminal_;
    std::string kept_;
    bool has_lost_ = false;
};

} // namespace host

#endif
