/// @file ky_conform.h
/// The contract kit, libkyconform: whether an SDK's services keep what the bridge module relies on.
///
/// For a process that supplies the services itself, or wants the findings as data; everybody else takes the
/// program kybridge-conform. Every check runs in a child of the calling process, which so comes to no harm, and
/// starts with the memory of the caller but with none of its other threads: call the kit before they start.
/// Compiles alone, as C11 and as C++20.
#ifndef KYBRIDGE_KY_CONFORM_H
#define KYBRIDGE_KY_CONFORM_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Marks what libkyconform exports; everything else stays inside.
#define KY_CONFORM_API __attribute__((visibility("default")))

/// What is checked, and on what. Zeroed memory asks for everything with its defaults.
typedef struct ky_conform_options {
    const char *const *sdk; ///< library files that supply the services, opened in this order; none: the process does
    size_t sdk_count;       ///< entries of `sdk`
    const char *module;     ///< file of the module; NULL: libkybridge.so.1, as the dynamic linker finds it
    const char *setup;      ///< symbol of a function `int f(void)` that is called first and answers 0; NULL: none
    const uint32_t *ports;  ///< logical ports that exist and may carry virtual ports; NULL: 0x10001 to 0x10004
    size_t port_count;      ///< entries of `ports`, 2 or more
    uint8_t swid;           ///< switch partition that the ports are in
    unsigned seconds;       ///< how long random operations go on; 0: 10
    unsigned time_limit;    ///< seconds that a check may take beside that; 0: 20
    uint64_t seed;          ///< which random operations; 0: others each time
    const char *only;       ///< id of the one check to run, with those that it needs; NULL: all
} ky_conform_options_t;

/// What became of a check.
typedef enum ky_conform_outcome {
    KY_CONFORM_HOLDS = 0,  ///< what it looks for holds
    KY_CONFORM_FAILS = 1,  ///< it does not
    KY_CONFORM_NOT_RUN = 2 ///< something that it needs does not hold, or the SDK does not bring what it looks at
} ky_conform_outcome_t;

/// One check's result. The texts are English, without line ends, and last until the callback returns.
typedef struct ky_conform_result {
    const char *id;               ///< for example "binding.unbound-is-21"; stays the same in later versions
    const char *purpose;          ///< what is to hold, in one line
    ky_conform_outcome_t outcome; ///< what became of it
    const char *called;           ///< FAILS: the last call, with its arguments; else empty
    const char *answered;         ///< FAILS: what came of it
    const char *expected;         ///< FAILS: what should have come of it
    const char *consequence;      ///< FAILS: what the module makes of that
    const char *remark;           ///< what else is worth knowing; NOT_RUN: why; may be empty
    const char *output;           ///< FAILS: the end of what the SDK wrote meanwhile, with line ends; may be empty
    double seconds;               ///< how long it took
} ky_conform_result_t;

/// Receives the results, one after the other. @param result what became of a check
/// @param context as given to ky_conform_run
typedef void (*ky_conform_report_t)(const ky_conform_result_t *result, void *context);

/// Runs the checks.
/// @param[in] options what is checked @param report called with each result @param context passed on to it
/// @param[out] error room for a text that says why nothing can be run @param error_size its bytes
/// @retval 0 everything holds
/// @retval 1 something does not
/// @retval 2 nothing was run: a library cannot be opened, the set-up refuses, or an option is wrong; see `error`
KY_CONFORM_API int ky_conform_run(const ky_conform_options_t *options, ky_conform_report_t report, void *context,
                                  char *error, size_t error_size);

/// One check, without running it. @param number 0 for the first
/// @param[out] id its id @param[out] purpose what is to hold
/// @retval 0 both are written @retval 1 there are not so many
KY_CONFORM_API int ky_conform_describe(size_t number, const char **id, const char **purpose);

#ifdef __cplusplus
}
#endif

#endif
