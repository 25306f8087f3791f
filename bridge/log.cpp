#include "log.h"

#include <iterator>

#ifdef KYBRIDGE_PROBES
#include <sys/sdt.h>
#endif

#include "kybridge/ky_bridge.h"

namespace kybridge {

uint32_t log_verbosity = notice_verbosity;

namespace {

const char *const status_texts[] = {
    "Success",
    "Internal Error",
    "Ondera SDK wasn't Initialized",
    "Invalid Handle",
    "Communication Error",
    "No More Resources",
    "No More Memory",
    "Memory Error",
    "Command Error",
    "Command Not Completed",
    "Command Unsupported",
    "Command Unpermitted",
    "Parameter NULL",
    "Parameter Error",
    "Parameter Exceeds Range",
    "Message Size Exceeds Limit",
    "Message Size Exceeds Limit",
    "Database Already Initialized",
    "Database Wasn't Initialized",
    "Database Not Empty",
    "End of Database",
    "Entry Not Found",
    "Entry Already Exists",
    "Entry Not Bound",
    "Entry Already bound",
    "Wrong Policer Type",
    "Unexpected event type",
    "Trap ID not configured",
    "Internal Communication close",
    "Resource is in use",
    "Trap ID is already associated to another trap priority",
    "Already initialized",
    "TIMEOUT",
    "Module is uninitialized",
    "Operation Unsupported",
    "Utils return status is Non-Zero",
    "Partially complete",
};
static_assert(std::size(status_texts) == KY_STATUS_PARTIALLY_COMPLETE + 1);

const char *const command_texts[] = {
    "NONE",
    "ADD",
    "EDIT",
    "DELETE",
    "DELETE ALL",
    "SOFT-ADD",
    "SOFT-EDIT",
    "SOFT-DELETE",
    "TEST",
    "APPLY",
    "ENABLE",
    "DISABLE",
    "CREATE",
    "DESTROY",
    "COUNT",
    "SET",
    "UNSET",
    "GET",
    "GETNEXT",
    "REGISTER",
    "DEREGISTER",
    "GET ALL",
    "TEST HW",
    "ADD PORTS",
    "DELETE PORTS",
    "BIND",
    "UNBIND",
    "GET FIRST",
    "REPLACE_ALL_PORTS",
    "DELETE_ALL_PORTS",
    "READY",
    "READ",
    "READ CLEAR",
    "CLEAR",
    "DELETE_PORT",
};
static_assert(std::size(command_texts) == KY_ACCESS_CMD_DELETE_PORT + 1);

} // namespace

const char *status_text(ky_status_t status)
{
    if (status < std::size(status_texts))
        return status_texts[status];
    if (status < KY_STATUS_DRIVER_RETURNED_NON_ZERO)
        return ""; // codes of the SDK that have no text
    if (status == KY_STATUS_DRIVER_RETURNED_NON_ZERO)
        return "Driver's Return Status is Non-Zero";
    return "Unknown return code";
}

const char *command_text(ky_access_cmd_t cmd)
{
    return cmd < std::size(command_texts) ? command_texts[cmd] : "UNKNOWN";
}

#ifdef KYBRIDGE_PROBES
[[gnu::noinline]] void probe_refusal(const char *function, int line)
{
    DTRACE_PROBE2(kybridge, refusal, function, line);
}
#endif

void write_function_entry(const char *file, int line, const char *function)
{
    ky_log(KY_LOG_FUNCTION_TRACE, "BRIDGE", "%s[%d]- %s: %s: [\n", file, line, function, function);
}

void write_function_exit(const char *file, int line, const char *function)
{
    ky_log(KY_LOG_FUNCTION_TRACE, "BRIDGE", "%s[%d]- %s: %s: ]\n", file, line, function, function);
}

} // namespace kybridge

ky_status_t ky_bridge_log_verbosity_level_set(uint32_t level)
{
    kybridge::log_verbosity = level;
    return KY_STATUS_SUCCESS;
}

ky_status_t ky_bridge_log_verbosity_level_get(uint32_t *level_p)
{
    *level_p = kybridge::log_verbosity;
    return KY_STATUS_SUCCESS;
}
