/// The calls of record/calls.h described: how each argument is passed, and the bytes behind it.
#ifndef KYBRIDGE_RECORD_INTERFACE_H
#define KYBRIDGE_RECORD_INTERFACE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <type_traits>

#include "record/calls.h"
#include "record/format.h"

/// Found in swid_validation_func_ptr, not by its name; declared here for the tables' sake.
extern "C" ky_status_t swid_validation(unsigned int swid);

namespace record {

// ---- Arguments of one call as they are passed --------------------------------------------------------------------

template <typename T> struct In {
    T *pass;
};
template <typename T> struct Out {
    T *pass;
};
template <typename T> struct Inout {
    T *pass;
};
template <typename T> struct List {
    T *pass;
};
template <typename T> struct Entries {
    T *pass;
};
struct Group {
    ky_acl_vlan_group_params_t *pass;
};
struct Block {
    void *pass;
};
struct Callback {
    ky_adviser_callback_t pass;
};

template <typename T> In<T> in(T *place)
{
    return {place};
}
template <typename T> Out<T> out(T *place)
{
    return {place};
}
template <typename T> Inout<T> inout(T *place)
{
    return {place};
}
template <typename T> List<T> list(T *place)
{
    return {place};
}
template <typename T> Entries<T> entries(T *place)
{
    return {place};
}
inline Group group(ky_acl_vlan_group_params_t *place)
{
    return {place};
}
inline Block block(void *place)
{
    return {place};
}
inline Callback callback(ky_adviser_callback_t function)
{
    return {function};
}

/// An argument as the call passes it.
template <typename T> T plain(T argument)
{
    return argument;
}
template <typename T>
requires requires(T argument)
{
    argument.pass;
}
auto plain(T argument)
{
    return argument.pass;
}

/// A number or an address as recordings have it.
template <typename T> std::uint64_t to_word(T value)
{
    if constexpr (std::is_pointer_v<T>)
        return reinterpret_cast<std::uintptr_t>(value);
    else
        return value;
}

// ---- The same, described -----------------------------------------------------------------------------------------

/// How an argument is passed.
enum class Passing : std::uint8_t {
    number,   ///< passed as it is
    address,  ///< passed as it is, and means nothing but itself
    callback, ///< passed as it is
    place,    ///< pointer to one number
    record,   ///< pointer to one record
    list,     ///< pointer to an array of which the next argument points to capacity and count
    entries,  ///< pointer to an array of which the argument before is the count
    group,    ///< pointer to a VLAN group record
};

struct Argument {
    std::string_view name; ///< of the parameter
    Passing passing = Passing::number;
    bool is_sent = false;     ///< behind a pointer: worth reading before the call
    bool is_answered = false; ///< behind a pointer: worth reading after the call
    std::uint32_t size = 0;   ///< bytes of the number, of the record, or of one element

    constexpr bool is_pointer() const { return passing >= Passing::place; }
};

inline constexpr std::size_t arguments_max = 6;
inline constexpr std::uint32_t entries_max = 64;       ///< of an array that is sent; a greater count is not believed
inline constexpr std::uint32_t group_vlans_max = 4094; ///< likewise, of the VLANs of a group

/// One function, service or event.
struct Callable {
    std::string_view name;
    std::array<Argument, arguments_max> arguments{};
    std::size_t argument_count = 0;
};

template <typename T> constexpr Argument behind_pointer(bool is_sent, bool is_answered)
{
    const bool is_number = std::is_integral_v<T> || std::is_pointer_v<T>;
    return {{}, is_number ? Passing::place : Passing::record, is_sent, is_answered, sizeof(T)};
}
template <typename T> struct Describe {
    static constexpr Argument argument{{}, Passing::number, false, false, sizeof(T)};
};
template <typename T> struct Describe<In<T>> {
    static constexpr Argument argument = behind_pointer<T>(true, false);
};
template <typename T> struct Describe<Out<T>> {
    static constexpr Argument argument = behind_pointer<T>(false, true);
};
template <typename T> struct Describe<Inout<T>> {
    static constexpr Argument argument = behind_pointer<T>(true, true);
};
template <typename T> struct Describe<List<T>> {
    static constexpr Argument argument{{}, Passing::list, false, true, sizeof(T)};
};
template <typename T> struct Describe<Entries<T>> {
    static constexpr Argument argument{{}, Passing::entries, true, false, sizeof(T)};
};
template <> struct Describe<Group> {
    static constexpr Argument argument{{}, Passing::group, true, true, sizeof(ky_acl_vlan_group_params_t)};
};
template <> struct Describe<Block> {
    static constexpr Argument argument{{}, Passing::address, false, false, sizeof(void *)};
};
template <> struct Describe<Callback> {
    static constexpr Argument argument{{}, Passing::callback, false, false, sizeof(void *)};
};

template <typename... Arguments> struct Shape {
};
template <typename... Arguments> Shape<Arguments...> shape_of(Arguments...);

/// @param names the arguments as they stand in the table: "cmd, inout(bridge_id_p), is_internal"
template <typename... Arguments>
constexpr Callable describe(std::string_view name, std::string_view names, Shape<Arguments...>)
{
    Callable callable{name, {Describe<Arguments>::argument...}, sizeof...(Arguments)};
    for (std::size_t i = 0; i < sizeof...(Arguments); ++i) {
        const std::string_view one = names.substr(0, names.find(','));
        names.remove_prefix(i + 1 < sizeof...(Arguments) ? one.size() + 2 : one.size());
        const std::size_t bracket = one.find('(');
        Argument &argument = callable.arguments[i];
        argument.name = bracket == std::string_view::npos ? one : one.substr(bracket + 1, one.size() - bracket - 2);
    }
    return callable;
}

namespace shapes {
#define KYRECORD_SHAPE(answer, name, parameters, ...) auto name parameters->decltype(shape_of(__VA_ARGS__));
KYBRIDGE_FUNCTIONS(KYRECORD_SHAPE)
KYBRIDGE_SERVICES(KYRECORD_SHAPE)
KYBRIDGE_EVENTS(KYRECORD_SHAPE)
#undef KYRECORD_SHAPE
template <typename R, typename... P> R answer_of(R (*)(P...));
} // namespace shapes

#define KYRECORD_NAME(answer, name, ...) name,
enum class Function : std::uint8_t { KYBRIDGE_FUNCTIONS(KYRECORD_NAME) };
enum class Service : std::uint8_t { KYBRIDGE_SERVICES(KYRECORD_NAME) };
#undef KYRECORD_NAME

#define KYRECORD_DESCRIBE(answer, name, parameters, ...)                                                               \
    describe(#name, #__VA_ARGS__, decltype(shapes::answer_of(&shapes::name)){}),
inline constexpr Callable functions[] = {KYBRIDGE_FUNCTIONS(KYRECORD_DESCRIBE)};
inline constexpr Callable services[] = {KYBRIDGE_SERVICES(KYRECORD_DESCRIBE)};
inline constexpr Callable events[] = {KYBRIDGE_EVENTS(KYRECORD_DESCRIBE)};
#undef KYRECORD_DESCRIBE

} // namespace record

#endif
