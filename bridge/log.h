/// Status and command texts, the module's verbosity, and the four kinds of line that it logs.
///
/// A line that the verbosity silences costs one load, one compare and one branch, and none of its
/// arguments is evaluated. That, and the compiler's check of each format against its arguments, is why
/// the three message lines are macros.
///
/// Texts are part of the interface: programs that read logs know them letter by letter. So they stay as they are where
/// they are misspelled ("retreive", "retrive", "eress"), where a bracket is missing ("bridge %d) ref count"), and where
/// one of releasing memory speaks of allocating it ("Failed to allocate memory for the bridge DB.").
#ifndef KYBRIDGE_BRIDGE_LOG_H
#define KYBRIDGE_BRIDGE_LOG_H

#include "kybridge/ky_sdk.h"

namespace [[gnu::visibility("hidden")]] kybridge {

/// Verbosity from which on a kind of line is written.
enum : uint32_t { error_verbosity = 1, notice_verbosity = 3, debug_verbosity = 5, trace_verbosity = 6 };

/// Module-wide; ky_bridge_log_verbosity_level_set stores any number.
extern uint32_t log_verbosity;

/// Text of a status; codes that no SDK module has give "Unknown return code".
const char *status_text(ky_status_t status);
/// Text of an access command; commands that the SDK does not have give "UNKNOWN".
const char *command_text(ky_access_cmd_t cmd);

[[gnu::cold]] void write_function_entry(const char *file, int line, const char *function);
[[gnu::cold]] void write_function_exit(const char *file, int line, const char *function);

/// A place where a tracer may listen, in every build that has KYBRIDGE_PROBES: the USDT probe kybridge:refusal, with
/// the name of the function that refuses and the line of its source. It stands in a function of its own, which only a
/// refusal calls, because its note in the middle of an operation would keep the compiler from folding steps.
#ifdef KYBRIDGE_PROBES
[[gnu::cold]] void probe_refusal(const char *function, int line);
#else
inline void probe_refusal(const char *, int) {}
#endif

/// In a build with KYBRIDGE_THREAD_CHECK, notices two threads inside the module at once, which nothing in it is made
/// for: an error line names the function that was called and the one that the other thread had called. An object for
/// each function that traces; it is the outermost one of a thread that counts.
class ThreadCheck {
public:
#ifdef KYBRIDGE_THREAD_CHECK
    explicit ThreadCheck(const char *function);
    ~ThreadCheck();
#else
    explicit ThreadCheck(const char *) {}
    ~ThreadCheck() = default;
#endif
    ThreadCheck(const ThreadCheck &) = delete;
    ThreadCheck &operator=(const ThreadCheck &) = delete;
};

/// Writes the function trace: the entry line where it is declared, first thing in a function, and the
/// exit line when the function returns. The arguments are for the compiler to fill in.
class FunctionTrace {
public:
    explicit FunctionTrace(const char *file = __builtin_FILE(), int line = __builtin_LINE(),
                           const char *function = __builtin_FUNCTION())
        : file_(file), line_(line), function_(function), thread_check_(function)
    {
        if (log_verbosity >= trace_verbosity) [[unlikely]]
            write_function_entry(file_, line_, function_);
    }
    ~FunctionTrace()
    {
        if (log_verbosity >= trace_verbosity) [[unlikely]]
            write_function_exit(file_, line_, function_);
    }
    FunctionTrace(const FunctionTrace &) = delete;
    FunctionTrace &operator=(const FunctionTrace &) = delete;

private:
    const char *file_;
    int line_;
    const char *function_;
    [[no_unique_address]] ThreadCheck thread_check_;
};

} // namespace kybridge

#define LOG_LINE(severity, verbosity, ...)                                                                             \
    do {                                                                                                               \
        if (kybridge::log_verbosity >= (verbosity)) [[unlikely]]                                                       \
            ky_log((severity), "BRIDGE", __VA_ARGS__);                                                                 \
    } while (false)

#define LOG_ERROR(...)                                                                                                 \
    do {                                                                                                               \
        LOG_LINE(KY_LOG_ERROR, kybridge::error_verbosity, __VA_ARGS__);                                                \
        kybridge::probe_refusal(__func__, __LINE__);                                                                   \
    } while (false)
#define LOG_NOTICE(...) LOG_LINE(KY_LOG_NOTICE, kybridge::notice_verbosity, __VA_ARGS__)
#define LOG_DEBUG(message, ...)                                                                                        \
    LOG_LINE(KY_LOG_DEBUG, kybridge::debug_verbosity, "%s[%d]- %s: " message, __builtin_FILE(), __LINE__,              \
             __func__ __VA_OPT__(, ) __VA_ARGS__)

#endif
