// The resource manager's limits, the memory utility, raw memory, the event adviser and the log.
#include "sdk/recorder.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

using sdk::device;
using sdk::Recorder;
using sdk::serve;
using sdk::Service;

namespace {

constexpr rm_resource_t power_on_limits = {4094, 256};

} // namespace

rm_resource_t rm_resource_global = power_on_limits;

namespace sdk {

void set_limits(std::uint32_t max_bridges, std::uint32_t max_log_ports)
{
    rm_resource_global = {max_bridges, max_log_ports};
}

// ---- The device -----------------------------------------------------------------------------------

Device &device()
{
    // Never destroyed: the module and its host may still call while the process ends.
    static Device &the_device = *new Device; // NOLINT(cppcoreguidelines-owning-memory)
    return the_device;
}

void Device::reset()
{
    for (const auto &[address, block] : memory.outstanding)
        std::free(address);
    for (const auto &[address, size] : memory.raw_outstanding)
        std::free(address);
    *this = Device();
    rm_resource_global = power_on_limits;
}

// ---- Memory and adviser ---------------------------------------------------------------------------

std::size_t Memory::bytes() const
{
    std::size_t sum = 0;
    for (const auto &[address, block] : outstanding)
        sum += block.size;
    for (const auto &[address, size] : raw_outstanding)
        sum += size;
    return sum;
}

ky_status_t Adviser::deliver(std::uint32_t event_type, const ky_port_event_t &event)
{
    const auto [first, last] = callbacks.equal_range(event_type);
    const std::multimap<std::uint32_t, ky_adviser_callback_t> called(first, last); // a callback may register more
    ky_status_t answer = KY_STATUS_SUCCESS;
    for (const auto &[type, callback] : called) {
        const ky_status_t status = callback(event_type, &event);
        answer = answer != KY_STATUS_SUCCESS ? answer : status;
    }
    return answer;
}

} // namespace sdk

ky_status_t adviser_register_event(uint32_t arg, uint32_t event_type, ky_adviser_callback_t callback)
{
    return serve(Service::adviser_register_event, {arg, event_type}, [=](Recorder &call) -> ky_status_t {
        if (arg != 1)
            return call.refuse(KY_STATUS_PARAM_ERROR, "first argument {} passed, expected 1", arg);
        if (event_type != KY_ADVISER_EVENT_PORT_ADD_INTO_SWID && event_type != KY_ADVISER_EVENT_PORT_DEL_FROM_SWID)
            return call.refuse(KY_STATUS_UNEXPECTED_EVENT_TYPE, "event {} is unknown", event_type);
        if (callback == nullptr)
            return call.refuse(KY_STATUS_PARAM_NULL, "the callback is NULL");
        sdk::Adviser &adviser = device().adviser;
        const auto [first, last] = adviser.callbacks.equal_range(event_type);
        const bool known = std::any_of(first, last, [=](const auto &entry) { return entry.second == callback; });
        if (!known || adviser.strict)
            adviser.callbacks.emplace(event_type, callback);
        return KY_STATUS_SUCCESS;
    });
}

ky_status_t utils_clr_memory_get(void **memory, uint32_t count, uint32_t size, uint32_t tag)
{
    return serve(Service::utils_clr_memory_get, {count, size, tag}, [=](Recorder &call) -> ky_status_t {
        if (memory == nullptr)
            return call.refuse(KY_STATUS_PARAM_NULL, "the place for the address is NULL");
        if (count == 0 || size == 0)
            return call.refuse(KY_STATUS_PARAM_ERROR, "{} records of {} bytes asked for", count, size);
        void *const block = std::calloc(count, size);
        if (block == nullptr)
            return KY_STATUS_NO_MEMORY;
        device().memory.outstanding[block] = {std::size_t{count} * size, tag};
        *memory = block;
        return KY_STATUS_SUCCESS;
    });
}

ky_status_t utils_memory_put(void *memory, uint32_t tag)
{
    return serve(Service::utils_memory_put, {tag}, [=](Recorder &call) -> ky_status_t {
        auto &outstanding = device().memory.outstanding;
        const auto block = outstanding.find(memory);
        if (block == outstanding.end())
            return call.refuse(KY_STATUS_PARAM_ERROR, "the memory is not outstanding");
        if (block->second.tag != tag)
            return call.refuse(KY_STATUS_PARAM_ERROR, "memory of tag {} is put with tag {}", block->second.tag, tag);
        call.set_result(block->second.size);
        outstanding.erase(block);
        std::free(memory);
        return KY_STATUS_SUCCESS;
    });
}

void *cl_malloc(size_t size)
{
    void *block = nullptr;
    serve(Service::cl_malloc, {size}, [&](Recorder &) -> ky_status_t {
        block = std::malloc(size == 0 ? 1 : size);
        if (block == nullptr)
            return KY_STATUS_NO_MEMORY;
        std::memset(block, 0xA5, size); // as memory comes: with something in it
        device().memory.raw_outstanding[block] = size;
        return KY_STATUS_SUCCESS;
    });
    return block;
}

void cl_free(void *memory)
{
    serve(Service::cl_free, {}, [=](Recorder &call) -> ky_status_t {
        if (memory == nullptr)
            return KY_STATUS_SUCCESS;
        auto &outstanding = device().memory.raw_outstanding;
        const auto block = outstanding.find(memory);
        if (block == outstanding.end())
            return call.refuse(KY_STATUS_PARAM_ERROR, "the memory is not outstanding");
        call.set_result(block->second);
        outstanding.erase(block);
        std::free(memory);
        return KY_STATUS_SUCCESS;
    });
}

// ---- Log ------------------------------------------------------------------------------------------

void ky_log(uint32_t severity, const char *module, const char *format, ...)
{
    if (severity != KY_LOG_ERROR && severity != KY_LOG_NOTICE && severity != KY_LOG_DEBUG &&
        severity != KY_LOG_FUNCTION_TRACE)
        device().violations.push_back(fmt::format("ky_log: severity {} is unknown", severity));
    if (!device().log)
        return;
    std::va_list arguments;
    va_start(arguments, format);
    std::va_list again;
    va_copy(again, arguments);
    std::string text(256, '\0');
    const int length = std::vsnprintf(text.data(), text.size(), format, arguments);
    if (length >= 0 && static_cast<std::size_t>(length) >= text.size()) {
        text.resize(static_cast<std::size_t>(length) + 1);
        static_cast<void>(std::vsnprintf(text.data(), text.size(), format, again));
    }
    va_end(again);
    va_end(arguments);
    text.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
    device().log({severity, module, format, std::move(text)});
}
