#include "record/player.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <stdexcept>
#include <utility>

#include <dlfcn.h>

#include <fmt/format.h>

#include "record/show.h"

rm_resource_t rm_resource_global = {0, 0};

namespace record {

namespace {

using Kind = format::Kind;

template <typename T> T from_word(std::uint64_t word)
{
    if constexpr (std::is_pointer_v<T>)
        return reinterpret_cast<T>(static_cast<std::uintptr_t>(word)); // NOLINT(performance-no-int-to-ptr): it was one
    else
        return static_cast<T>(word);
}

void *address(std::uint64_t word)
{
    return from_word<void *>(word);
}

std::uint64_t number_at(std::uint64_t word, std::size_t size)
{
    std::uint64_t number = 0;
    std::memcpy(&number, address(word), std::min(size, sizeof number));
    return number;
}

std::vector<std::uint8_t> bytes_at(std::uint64_t word, std::size_t size)
{
    const auto *const begin = static_cast<const std::uint8_t *>(address(word));
    return {begin, begin + size};
}

std::size_t size_of_group(std::uint64_t word)
{
    ky_acl_vlan_group_params_t group{};
    std::memcpy(&group, address(word), sizeof group);
    return sizeof group + sizeof(std::uint16_t) * std::min(group.vlan_count, group_vlans_max);
}

/// Where two values differ, in words; empty: they do not.
std::string difference_of(const Argument &argument, const Value &recorded, const Value &now)
{
    const std::string name(argument.name);
    if (recorded.is_null != now.is_null)
        return fmt::format("{} is {}NULL, recorded {}NULL", name, now.is_null ? "" : "not ",
                           recorded.is_null ? "" : "not ");
    if (recorded.number != now.number)
        return fmt::format("{} is {}, recorded {}", name, now.number, recorded.number);
    if (recorded.bytes.size() != now.bytes.size())
        return fmt::format("{} has {} bytes, recorded {}", name, now.bytes.size(), recorded.bytes.size());
    const auto [then, here] = std::ranges::mismatch(recorded.bytes, now.bytes);
    if (then == recorded.bytes.end())
        return "";
    return fmt::format("byte 0x{:03X} of {} is 0x{:02X}, recorded 0x{:02X}", then - recorded.bytes.begin(), name, *here,
                       *then);
}

// ---- The module --------------------------------------------------------------------------------------------------

struct Callee {
    const char *name;
    ky_status_t (*call)(void *function, const std::uint64_t *words);
};

template <typename... Parameters, std::size_t... I>
ky_status_t call(ky_status_t (*function)(Parameters...), [[maybe_unused]] const std::uint64_t *words,
                 std::index_sequence<I...>)
{
    return function(from_word<Parameters>(words[I])...);
}
template <typename... Parameters> ky_status_t call(ky_status_t (*function)(Parameters...), const std::uint64_t *words)
{
    return call(function, words, std::index_sequence_for<Parameters...>());
}

#define KYRECORD_CALLEE(answer, name, ...)                                                                             \
    {#name, [](void *function, const std::uint64_t *words) {                                                           \
         return call(reinterpret_cast<decltype(&::name)>(function), words);                                            \
     }},
constexpr Callee callees[] = {KYBRIDGE_FUNCTIONS(KYRECORD_CALLEE)};
#undef KYRECORD_CALLEE

struct PlayedModule {
    std::array<void *, std::size(callees)> functions{};
    ky_swid_validation_func_t *swid_validation = nullptr;
    std::vector<ky_adviser_callback_t> callbacks; ///< registered, in their order
};

PlayedModule load(const std::string &file)
{
    void *const library = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr)
        throw std::runtime_error(
            fmt::format("the module cannot be loaded: {}", dlerror())); // NOLINT(concurrency-mt-unsafe)
    const auto find = [&](const char *name) {
        void *const symbol = dlsym(library, name);
        if (symbol == nullptr)
            throw std::runtime_error(fmt::format("{} does not export {}: it is not the bridge module", file, name));
        return symbol;
    };
    PlayedModule module;
    for (std::size_t i = 0; i < std::size(callees); ++i)
        module.functions[i] = find(callees[i].name);
    module.swid_validation = static_cast<ky_swid_validation_func_t *>(find("swid_validation_func_ptr"));
    return module;
}

// ---- The player --------------------------------------------------------------------------------------------------

/// The arguments of a service, in their order; the rest is 0.
using Words = std::array<std::uint64_t, arguments_max>;

class Player {
public:
    explicit Player(const std::string &module) : module_(load(module)) {}

    /// Plays a call from outside. @return false: it differs
    bool play(const RecordedCall &recorded);

    /// A service, on behalf of the module. @return its answer
    std::uint64_t serve(Service service, const Words &words);
    void log(std::uint32_t severity, const char *module, const std::string &text);

    const std::string &difference() const { return difference_; } ///< in words
    const std::string &place() const { return place_; }           ///< the number of the call that differs

private:
    /// A call that is being played, and how far.
    struct Frame {
        const RecordedCall &recorded;
        std::string number;
        std::size_t next = 0; ///< in recorded.inner
        unsigned count = 0;   ///< calls among the inner ones that are done with
    };

    void play_call(const RecordedCall &recorded, const std::string &number);
    const RecordedCall *take_inner(const RecordedCall &now);
    void compare_sent(const RecordedCall &recorded, const RecordedCall &now);
    RecordedCall as_called(Kind kind, std::uint8_t number, const Callable &callable, const Words &words);
    std::uint64_t write_answers(const RecordedCall &recorded, const Words &words);
    void keep_callback(ky_adviser_callback_t callback);
    void differs(const std::string &place, const std::string &text);

    PlayedModule module_;
    std::vector<Frame *> frames_;            ///< outermost first
    std::map<std::uint64_t, void *> blocks_; ///< memory that the module holds, by the address recorded for it
    std::string difference_;
    std::string place_;
};

Player *player; ///< of the process, for the services

void Player::differs(const std::string &place, const std::string &text)
{
    if (!difference_.empty())
        return; // what follows a difference follows from it
    difference_ = text;
    place_ = place;
}

/// A call as the module makes it now, in the form of a recorded one.
RecordedCall Player::as_called(Kind kind, std::uint8_t number, const Callable &callable, const Words &words)
{
    RecordedCall now;
    now.kind = kind;
    now.number = number;
    now.callable = &callable;
    now.is_complete = true;
    for (std::size_t i = 0; i < callable.argument_count; ++i) {
        const Argument &argument = callable.arguments[i];
        Value value;
        if (argument.passing == Passing::address) {
            const auto known = std::ranges::find(blocks_, address(words[i]), &decltype(blocks_)::value_type::second);
            value.number = known != blocks_.end() ? known->first : 0;
        } else if (!argument.is_pointer()) {
            value.number = argument.passing == Passing::callback ? 0 : words[i];
        } else if (words[i] == 0) {
            value.is_null = true;
        } else if (argument.is_sent) {
            if (argument.passing == Passing::place)
                value.number = number_at(words[i], argument.size);
            else if (argument.passing == Passing::entries)
                value.bytes = bytes_at(
                    words[i], now.sent.back().number <= entries_max ? now.sent.back().number * argument.size : 0);
            else
                value.bytes =
                    bytes_at(words[i], argument.passing == Passing::group ? size_of_group(words[i]) : argument.size);
        }
        now.sent.push_back(value);
    }
    return now;
}

/// The recorded call or line that the module's next one must be; nullptr after a difference.
const RecordedCall *Player::take_inner(const RecordedCall &now)
{
    if (!difference_.empty() || frames_.empty())
        return nullptr;
    Frame &frame = *frames_.back();
    Narrator narrator;
    if (frame.next == frame.recorded.inner.size()) {
        differs(frame.number, fmt::format("now there is one more: {}", narrator.words(now)));
        return nullptr;
    }
    const RecordedCall &recorded = frame.recorded.inner[frame.next++];
    const bool is_call = recorded.kind != Kind::log;
    frame.count += is_call ? 1 : 0;
    if (recorded.kind != now.kind || recorded.number != now.number) {
        differs(is_call ? fmt::format("{}.{}", frame.number, frame.count) : frame.number,
                fmt::format("recorded: {}\nnow:      {}", narrator.words(recorded), narrator.words(now)));
        return nullptr;
    }
    return &recorded;
}

void Player::compare_sent(const RecordedCall &recorded, const RecordedCall &now)
{
    for (std::size_t i = 0; i < recorded.sent.size(); ++i) {
        const Argument &argument = recorded.callable->arguments[i];
        if (argument.passing == Passing::callback)
            continue;
        const std::string difference = difference_of(argument, recorded.sent[i], now.sent[i]);
        if (difference.empty())
            continue;
        Narrator narrator;
        const Frame &frame = *frames_.back();
        differs(
            fmt::format("{}.{}", frame.number, frame.count),
            fmt::format("recorded: {}\nnow:      {}\n{}", narrator.words(recorded), narrator.words(now), difference));
    }
}

/// Writes what the service wrote then. @return what it answered
std::uint64_t Player::write_answers(const RecordedCall &recorded, const Words &words)
{
    for (std::size_t i = 0; i < recorded.answered.size(); ++i) {
        const Argument &argument = recorded.callable->arguments[i];
        if (!recorded.answered[i])
            continue;
        const Value &value = *recorded.answered[i];
        if (argument.passing == Passing::place) {
            std::uint64_t number = value.number;
            if (recorded.is(Service::utils_clr_memory_get)) {
                void *const block = std::calloc(recorded.sent[1].number, recorded.sent[2].number);
                blocks_[number] = block;
                number = to_word(block);
            }
            std::memcpy(address(words[i]), &number, argument.size);
        } else {
            std::memcpy(address(words[i]), value.bytes.data(), value.bytes.size());
        }
    }
    if (recorded.is(Service::cl_malloc) && recorded.answer != 0)
        return to_word(blocks_[recorded.answer] = std::malloc(recorded.sent[0].number));
    if ((recorded.is(Service::utils_memory_put) || recorded.is(Service::cl_free)) && recorded.answer == 0) {
        if (const auto block = blocks_.find(recorded.sent[0].number); block != blocks_.end()) {
            std::free(block->second);
            blocks_.erase(block);
        }
    }
    return recorded.answer;
}

void Player::keep_callback(ky_adviser_callback_t callback)
{
    if (callback != nullptr && std::ranges::find(module_.callbacks, callback) == module_.callbacks.end())
        module_.callbacks.push_back(callback);
}

std::uint64_t Player::serve(Service service, const Words &words)
{
    const auto number = static_cast<std::uint8_t>(service);
    const RecordedCall now = as_called(Kind::service, number, services[number], words);
    const RecordedCall *recorded = take_inner(now);
    if (recorded != nullptr)
        compare_sent(*recorded, now);
    if (!difference_.empty()) // let the module come out of its call as fast as it can
        return service == Service::cl_malloc ? 0 : KY_STATUS_ERROR;

    if (service == Service::adviser_register_event)
        keep_callback(from_word<ky_adviser_callback_t>(words[2]));
    const Frame &frame = *frames_.back();
    Frame inside{*recorded, fmt::format("{}.{}", frame.number, frame.count)};
    frames_.push_back(&inside);
    for (const RecordedCall &nested : recorded->inner)
        if (nested.kind != Kind::log)
            play_call(nested, fmt::format("{}.{}", inside.number, ++inside.count));
    frames_.pop_back();
    return write_answers(*recorded, words);
}

void Player::log(std::uint32_t severity, const char *module, const std::string &text)
{
    RecordedCall now;
    now.kind = Kind::log;
    now.severity = severity;
    now.module = module;
    now.text = text.substr(0, format::log_text_max);
    const RecordedCall *recorded = take_inner(now);
    if (recorded == nullptr ||
        (recorded->severity == severity && recorded->module == now.module && recorded->text == now.text))
        return;
    Narrator narrator;
    differs(frames_.back()->number,
            fmt::format("recorded: {}\nnow:      {}", narrator.words(*recorded), narrator.words(now)));
}

/// Room for what the arguments of a call point to.
class Room {
public:
    explicit Room(const RecordedCall &call)
    {
        constexpr std::uint64_t list_max = 65536; // elements; a greater capacity is never used up
        for (std::size_t i = 0; i < call.sent.size(); ++i) {
            const Argument &argument = call.callable->arguments[i];
            const Value &value = call.sent[i];
            auto &room = rooms_.emplace_back(value.bytes);
            if (argument.passing == Passing::place) {
                room.resize(sizeof value.number);
                std::memcpy(room.data(), &value.number, sizeof value.number);
            } else if (argument.passing == Passing::list) {
                room.resize(std::min(call.sent[i + 1].number, list_max) * argument.size + 1);
            }
            words_[i] = !argument.is_pointer() ? value.number : value.is_null ? 0 : to_word(room.data());
        }
    }
    const std::uint64_t *words() const { return words_.data(); }

    /// What stands there now, where the recorded call was answered something.
    Value answered(const Argument &argument, std::size_t index, const Value &recorded) const
    {
        if (argument.passing == Passing::place)
            return {false, number_at(words_[index], argument.size), {}};
        return {false, recorded.number, bytes_at(words_[index], recorded.bytes.size())};
    }

private:
    std::vector<std::vector<std::uint8_t>> rooms_;
    std::array<std::uint64_t, arguments_max + 1> words_{};
};

void Player::play_call(const RecordedCall &recorded, const std::string &number)
{
    const Room room(recorded);
    Frame frame{recorded, number};
    frames_.push_back(&frame);
    ky_status_t answer = 0;
    if (recorded.kind == Kind::function)
        answer = callees[recorded.number].call(module_.functions[recorded.number], room.words());
    else if (recorded.number < module_.callbacks.size())
        answer = call(module_.callbacks[recorded.number], room.words());
    else
        differs(number, "now nobody has registered for the event");
    frames_.pop_back();
    if (!difference_.empty())
        return;

    Narrator narrator;
    if (frame.next != recorded.inner.size()) {
        const RecordedCall &missing = recorded.inner[frame.next];
        differs(missing.kind == Kind::log ? number : fmt::format("{}.{}", number, frame.count + 1),
                fmt::format("now there is none: {}", narrator.words(missing)));
    }
    if (answer != recorded.answer)
        differs(number, fmt::format("answered {}, recorded {}", answer, recorded.answer));
    for (std::size_t i = 0; i < recorded.answered.size(); ++i) {
        if (!recorded.answered[i])
            continue;
        const Argument &argument = recorded.callable->arguments[i];
        const std::string difference =
            difference_of(argument, *recorded.answered[i], room.answered(argument, i, *recorded.answered[i]));
        if (!difference.empty())
            differs(number, difference);
    }
}

ky_status_t played_validation(unsigned int swid);

bool Player::play(const RecordedCall &recorded)
{
    if (recorded.limits)
        rm_resource_global = *recorded.limits;
    *module_.swid_validation = recorded.swid_validated ? played_validation : nullptr;
    play_call(recorded, fmt::to_string(recorded.id));
    return difference_.empty();
}

// ---- The services of this process --------------------------------------------------------------------------------

template <typename Answer, typename... Arguments> Answer serve(Service service, Arguments... arguments)
{
    const Words words = {to_word(plain(arguments))...};
    const std::uint64_t answer = player->serve(service, words);
    if constexpr (!std::is_void_v<Answer>)
        return from_word<Answer>(answer);
}

ky_status_t played_validation(unsigned int swid)
{
    return serve<ky_status_t>(Service::swid_validation, swid);
}

} // namespace

extern "C" {
#define KYRECORD_SERVICE(answer, name, parameters, ...)                                                                \
    answer name parameters                                                                                             \
    {                                                                                                                  \
        return serve<answer>(Service::name, __VA_ARGS__);                                                              \
    }
KYBRIDGE_SERVICES(KYRECORD_SERVICE)
#undef KYRECORD_SERVICE

void ky_log(uint32_t severity, const char *module, const char *format, ...) // NOLINT(cert-dcl50-cpp): the SDK's form
{
    std::array<char, 4096> text{};
    std::va_list arguments;
    va_start(arguments, format);
    static_cast<void>(std::vsnprintf(text.data(), text.size(), format, arguments));
    va_end(arguments);
    player->log(severity, module, text.data());
}
}

bool check(Reader &reader, const std::string &module)
{
    player = new Player(module); // NOLINT(cppcoreguidelines-owning-memory): the module keeps what it was given
    Narrator narrator;
    std::string before;
    std::uint64_t played = 0;
    std::uint64_t overlapping = 0;
    while (const auto recorded = reader.next()) {
        ++played;
        overlapping += recorded->others_inside ? 1 : 0;
        if (player->play(*recorded)) {
            before = lines_of(narrator, *recorded);
            continue;
        }
        fmt::print("call {} differs, after {} that do not\n{}\n\n{}{}", player->place(), played - 1,
                   player->difference(), before, lines_of(narrator, *recorded, player->place()));
        if (const auto after = reader.next())
            fmt::print("{}", lines_of(narrator, *after));
        if (overlapping != 0)
            fmt::print("{} of the calls were made while another thread was inside, and may differ for that alone\n",
                       overlapping);
        return false;
    }
    fmt::print("{} calls played, no difference\n", played);
    return tell_damages(reader);
}

} // namespace record
