// What stands in the way of calls: the module's functions under their own names, the services in the module's slots,
// the callback that the SDK is given, and dlsym for those who look the functions up.
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iterator>

#include <dlfcn.h>

#include "record/attach.h"
#include "record/writer.h"

namespace record {
namespace {

constexpr unsigned service_count = std::size(service_names);
constexpr unsigned function_count = std::size(function_names);
constexpr unsigned log_slot = service_count; ///< of ky_log, which stands behind the services

void *real_functions[function_count];
extern Slot slots[service_count + 1];
Module module;

/// The module's own function. @param name of it
void *real_function(Function function, const char *name)
{
    void *&real = real_functions[static_cast<unsigned>(function)];
    if (real == nullptr) {
        real = find_in_module(name);
        if (real != nullptr)
            module = attach(real, slots, service_count + 1);
    }
    return real;
}

// ---- From a call to the recording --------------------------------------------------------------------------------

/// Calls `real` with the arguments and records it, if the thread is inside a call that is recorded.
/// @param around what a call from outside begins with; nullptr for one that is made inside it
template <format::Kind kind, std::uint8_t number, typename Answer, typename... Parameters, typename... Arguments>
Answer recorded(const Surroundings *around, Answer (*real)(Parameters...), Arguments... arguments)
{
    Lane *const lane = current_lane;
    if (lane == nullptr)
        return real(plain(arguments)...);

    Encoder<Arguments...> encoder(arguments...);
    if (std::uint8_t *at = begin_record(*lane, surroundings_max + encoder.sent_max); at != nullptr) {
        if (around != nullptr)
            at = put_surroundings(at, *lane, *around);
        end_record(*lane, encoder.put_sent(at), kind, number);
    }
    const auto answered = [&](std::uint64_t answer) {
        if (std::uint8_t *const at = begin_record(*lane, format::varint_max + encoder.answered_max); at != nullptr)
            end_record(*lane, encoder.put_answered(put_varint(at, answer), answer == 0), format::Kind::answer, 0);
    };
    if constexpr (std::is_void_v<Answer>) {
        real(plain(arguments)...);
        answered(0);
    } else {
        const Answer answer = real(plain(arguments)...);
        answered(to_word(answer));
        return answer;
    }
}

/// While a call from outside runs, the module's pointer to the SWID validation leads to the recorder.
class ValidationRecorded {
public:
    ValidationRecorded();
    ~ValidationRecorded();
    ValidationRecorded(const ValidationRecorded &) = delete;
    ValidationRecorded &operator=(const ValidationRecorded &) = delete;

private:
    bool is_mine_ = false;
};

/// A call into the module, by a function or an event.
template <format::Kind kind, std::uint8_t number, typename Real, typename... Arguments>
ky_status_t recorded_from_outside(Real real, Arguments... arguments)
{
    open_recording(module.file);
    const ValidationRecorded validation;
    const Visit visit;
    const Surroundings around{module.swid_validation != nullptr && *module.swid_validation != nullptr,
                              module.resources};
    return recorded<kind, number>(visit.is_outermost() ? &around : nullptr, real, arguments...);
}

// ---- Events ------------------------------------------------------------------------------------------------------

// The SDK calls back without saying whom it means, so each callback of the module has a function of its own here.
constexpr unsigned callbacks_max = 4; ///< of a module; further ones are not recorded
ky_adviser_callback_t callbacks[callbacks_max];

template <std::uint8_t index> ky_status_t event_recorder(uint32_t event_type, const ky_port_event_t *event)
{
    return recorded_from_outside<format::Kind::event, index>(callbacks[index], event_type, in(event));
}
constexpr ky_adviser_callback_t event_recorders[callbacks_max] = {event_recorder<0>, event_recorder<1>,
                                                                  event_recorder<2>, event_recorder<3>};

/// What the SDK is to call in a callback's stead; the same for the same callback.
ky_adviser_callback_t event_recorder_of(ky_adviser_callback_t callback)
{
    for (unsigned i = 0; callback != nullptr && i < callbacks_max; ++i) {
        if (callbacks[i] == nullptr)
            callbacks[i] = callback;
        if (callbacks[i] == callback)
            return event_recorders[i];
    }
    return callback;
}

// ---- Services ----------------------------------------------------------------------------------------------------

ky_swid_validation_func_t real_swid_validation;

/// The service that a slot led to. Where the dynamic linker binds late, that is at first the way to find it, which
/// puts the service into the slot: the recorder then takes it from there, and its place back.
class RealService {
public:
    explicit RealService(unsigned index) : slot_(slots[index]) {}
    ~RealService()
    {
        if (slot_.at != nullptr && *slot_.at != slot_.recorder) {
            slot_.real = *slot_.at;
            *slot_.at = slot_.recorder;
        }
    }
    RealService(const RealService &) = delete;
    RealService &operator=(const RealService &) = delete;

    template <typename Service> Service as() const { return reinterpret_cast<Service>(slot_.real); }

private:
    Slot &slot_;
};

template <typename Argument> Argument as_recorded(Argument argument)
{
    return argument;
}
Callback as_recorded(Callback argument)
{
    return {event_recorder_of(argument.pass)};
}

template <Service service, typename Real, typename... Arguments>
auto recorded_service(Real real, Arguments... arguments)
{
    constexpr auto number = static_cast<std::uint8_t>(service);
    return recorded<format::Kind::service, number>(nullptr, real, as_recorded(arguments)...);
}

namespace service_recorders {
#define KYRECORD_SERVICE(answer, name, parameters, ...)                                                                \
    answer name parameters                                                                                             \
    {                                                                                                                  \
        const RealService real(static_cast<unsigned>(Service::name));                                                  \
        return recorded_service<Service::name>(real.as<decltype(&name)>(), __VA_ARGS__);                               \
    }
KYBRIDGE_SERVICES(KYRECORD_SERVICE)
#undef KYRECORD_SERVICE

void ky_log(uint32_t severity, const char *module_name, const char *format, ...)
{
    const RealService real(log_slot);
    char text[4096];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    write_log(severity, module_name, text);
    real.as<decltype(&ky_log)>()(severity, module_name, "%s", text);
}
} // namespace service_recorders

#define KYRECORD_SLOT(answer, name, ...) {#name, reinterpret_cast<void *>(&service_recorders::name), nullptr, nullptr},
Slot slots[] = {
    KYBRIDGE_SERVICES(KYRECORD_SLOT){"ky_log", reinterpret_cast<void *>(&service_recorders::ky_log), nullptr, nullptr}};
#undef KYRECORD_SLOT

ValidationRecorded::ValidationRecorded()
{
    ky_swid_validation_func_t *const place = module.swid_validation;
    if (place == nullptr || *place == nullptr || *place == service_recorders::swid_validation)
        return;
    real_swid_validation = *place;
    slots[static_cast<unsigned>(Service::swid_validation)].real = reinterpret_cast<void *>(real_swid_validation);
    *place = service_recorders::swid_validation;
    is_mine_ = true;
}

ValidationRecorded::~ValidationRecorded()
{
    if (is_mine_ && *module.swid_validation == service_recorders::swid_validation)
        *module.swid_validation = real_swid_validation;
}

/// Whether a call comes from the module itself, which then does not cross its border.
bool is_in_module(const void *address)
{
    const auto at = reinterpret_cast<std::uintptr_t>(address);
    return at >= module.begin && at < module.end;
}

} // namespace
} // namespace record

// ---- The names that processes know -------------------------------------------------------------------------------

namespace record {

template <Function function, typename Real, typename... Arguments>
static ky_status_t recorded_function(const void *caller, Real real, Arguments... arguments)
{
    if (real == nullptr) // the module is gone
        return KY_STATUS_MODULE_UNINITIALIZED;
    if (is_in_module(caller))
        return real(plain(arguments)...);
    constexpr auto number = static_cast<std::uint8_t>(function);
    return recorded_from_outside<format::Kind::function, number>(real, arguments...);
}

extern "C" {
#define KYRECORD_FUNCTION(answer, name, parameters, ...)                                                               \
    KY_BRIDGE_API answer name parameters                                                                               \
    {                                                                                                                  \
        const auto real = reinterpret_cast<decltype(&::name)>(real_function(Function::name, #name));                   \
        return recorded_function<Function::name>(__builtin_return_address(0), real __VA_OPT__(, ) __VA_ARGS__);        \
    }
KYBRIDGE_FUNCTIONS(KYRECORD_FUNCTION)
#undef KYRECORD_FUNCTION
} // extern "C"

/// The recorder's function in the stead of one that was looked up in the module.
static void *recorder_of(const char *name, void *real)
{
    struct Named {
        const char *name;
        void *recorder;
    };
#define KYRECORD_NAMED(answer, name, ...) {#name, reinterpret_cast<void *>(&::name)},
    static constexpr unsigned count = function_count;
    static const Named named[count] = {KYBRIDGE_FUNCTIONS(KYRECORD_NAMED)};
#undef KYRECORD_NAMED
    for (unsigned i = 0; i < count; ++i) {
        if (std::strcmp(named[i].name, name) != 0)
            continue;
        if (real == named[i].recorder) // seen by the whole process, which might only ask whether there is a module
            return real_function(static_cast<Function>(i), name) != nullptr ? real : nullptr;
        real_functions[i] = real;
        module = attach(real, slots, service_count + 1);
        return named[i].recorder;
    }
    return real; // a function that this recorder does not know
}

} // namespace record

/// Whoever looks up one of the module's functions gets the recorder's. Everybody else is answered by the dynamic
/// linker as if it had been called directly: it looks at where the call comes from, so this ends in a jump.
extern "C" KY_BRIDGE_API void *dlsym(void *handle, const char *name)
{
    if (handle != RTLD_NEXT && std::strncmp(name, "ky_bridge_", 10) == 0) {
        void *const found = record::real_dlsym()(handle, name);
        return found != nullptr ? record::recorder_of(name, found) : nullptr;
    }
    return record::real_dlsym()(handle, name);
}
