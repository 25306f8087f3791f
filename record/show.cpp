#include "record/show.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "record/names.h"
#include "record/words.h"

namespace record {

namespace {

/// A number as its parameter's name asks for it: a port in hexadecimal, a command by its name.
std::string number_text(std::string_view parameter, std::uint64_t number)
{
    static const std::map<std::string_view, const NamedNumbers &(*)()> by_parameter = {
        {"cmd", access_cmd_names},
        {"egress_mode", tagging_names},
        {"direction", direction_names},
        {"level", verbosity_names},
        {"learning_mode", learning_names}};
    if (parameter == "log_port")
        return fmt::format("0x{:08X}", number);
    const auto names = by_parameter.find(parameter);
    return names != by_parameter.end() && number <= UINT32_MAX
               ? name_of(names->second(), static_cast<std::uint32_t>(number))
               : fmt::to_string(number);
}

std::string init_words(const Value &parameters)
{
    if (parameters.is_null)
        return "NULL";
    const auto record = record_of<ky_bridge_init_params_t>(parameters);
    const auto &sizes = record.sdk_mode_params.mode_1D;
    return fmt::format("mode {} bridges {} virtual-ports {} multiple-vlan {}",
                       name_of(sdk_mode_names(), record.sdk_mode), sizes.max_bridge_num, sizes.max_virtual_ports_num,
                       sizes.multiple_vlan_bridge_mode);
}

std::string event_words(const RecordedCall &call)
{
    const std::uint64_t type = call.sent[0].number;
    const std::string event = type == KY_ADVISER_EVENT_PORT_ADD_INTO_SWID   ? "port announced"
                              : type == KY_ADVISER_EVENT_PORT_DEL_FROM_SWID ? "port withdrawn"
                                                                            : fmt::format("event {}", type);
    if (call.sent[1].is_null)
        return event + ": NULL";
    const auto record = record_of<ky_port_event_t>(call.sent[1]);
    return fmt::format("{}: {} SWID {} kind {}", event, port(record.log_port), record.swid,
                       name_of(port_kind_names(), record.port_kind));
}

std::string list_text(const Argument &argument, const Value &list)
{
    std::string text;
    for (std::size_t at = 0; at + argument.size <= list.bytes.size(); at += argument.size) {
        ky_bridge_port_t entry{};
        std::memcpy(&entry, list.bytes.data() + at, std::min<std::size_t>(argument.size, sizeof entry));
        text += argument.size == sizeof entry
                    ? fmt::format(" (0x{:08X} vlan {} {})", entry.log_port, entry.vlan, egress_mode(entry.egress_mode))
                    : fmt::format(" {}", entry.log_port); // a list of numbers
    }
    return text.empty() ? " empty" : text;
}

/// What came back through pointers: "; vid: 1".
std::string answers_text(const RecordedCall &call)
{
    std::string text;
    for (std::size_t i = 0; i < call.answered.size(); ++i) {
        if (!call.answered[i])
            continue;
        const Argument &argument = call.callable->arguments[i];
        text += fmt::format("; {}:{}", argument.name,
                            argument.passing == Passing::list ? list_text(argument, *call.answered[i])
                                                              : " " + fmt::to_string(call.answered[i]->number));
    }
    return text;
}

std::string status_words(const RecordedCall &call)
{
    if (!call.is_complete)
        return " -> not finished";
    return call.answer != 0 ? " -> " + numbered_status(static_cast<std::uint32_t>(call.answer)) : "";
}

std::string log_words(const RecordedCall &line)
{
    const char *level = line.severity == KY_LOG_ERROR    ? "error"
                        : line.severity == KY_LOG_NOTICE ? "notice"
                        : line.severity == KY_LOG_DEBUG  ? "debug"
                                                         : "trace";
    std::string text = fmt::format("{} {}: {}", line.module, level, line.text);
    text.erase(text.find_last_not_of(" \n") + 1);
    return text;
}

} // namespace

std::string arguments_by_name(const RecordedCall &call)
{
    std::string text;
    for (std::size_t i = 0; i < call.sent.size(); ++i) {
        const Argument &argument = call.callable->arguments[i];
        const Value &value = call.sent[i];
        if (value.is_null)
            text += fmt::format(" {} NULL", argument.name);
        else if (!argument.is_pointer() || argument.passing == Passing::place)
            if (!argument.is_pointer() || argument.is_sent)
                text += fmt::format(" {} {}", argument.name, number_text(argument.name, value.number));
    }
    return text.empty() ? text : text.substr(1);
}

std::string Narrator::service_words(const RecordedCall &call)
{
    ServiceCall wanted;
    wanted.service = call.callable->name;
    wanted.status =
        call.is(Service::cl_malloc) || call.is(Service::cl_free) ? 0 : static_cast<ky_status_t>(call.answer);
    std::vector<std::uint64_t> numbers;
    for (std::size_t i = 0; i < call.sent.size(); ++i) {
        const Argument &argument = call.callable->arguments[i];
        const Value &sent = call.sent[i];
        const Value *answered = i < call.answered.size() && call.answered[i] ? &*call.answered[i] : nullptr;
        if (argument.passing == Passing::number || (argument.passing == Passing::place && argument.is_sent))
            numbers.push_back(sent.number);
        else if (argument.passing == Passing::place && answered != nullptr)
            wanted.result = answered->number;
        else if (argument.passing == Passing::address)
            wanted.result = block_sizes_.contains(sent.number) ? block_sizes_[sent.number] : 0;
        if (!sent.bytes.empty()) {
            wanted.sent = sent.bytes;
            wanted.returned = answered != nullptr ? answered->bytes : sent.bytes;
        }
    }
    wanted.arguments = numbers;
    if (call.is(Service::utils_clr_memory_get) && !call.answered.empty() && call.answered[0])
        block_sizes_[call.answered[0]->number] = numbers[0] * numbers[1];
    if (call.is(Service::cl_malloc))
        block_sizes_[call.answer] = numbers[0];
    return in_words(wanted) + (call.is_complete ? "" : " -> not finished");
}

std::string Narrator::words(const RecordedCall &call)
{
    switch (call.kind) {
    case format::Kind::log:
        return log_words(call);
    case format::Kind::service:
        return service_words(call);
    case format::Kind::event:
        return event_words(call) + status_words(call);
    default:
        break;
    }
    const std::string arguments =
        call.is(Function::ky_bridge_init) ? init_words(call.sent[0]) : arguments_by_name(call);
    return fmt::format("{}{}{}{}{}", call.callable->name, arguments.empty() ? "" : " ", arguments, status_words(call),
                       answers_text(call));
}

namespace {

std::string time_text(std::uint64_t ns)
{
    constexpr std::uint64_t second = 1000000000;
    return fmt::format("{:%F %T}.{:06}", fmt::gmtime(static_cast<std::time_t>(ns / second)), ns % second / 1000);
}

std::string duration_text(std::uint64_t ns)
{
    return fmt::format("{:.1f} us", static_cast<double>(ns) / 1000);
}

/// Calls visit(call, number) for everything inside a call, in order: "7.1", "7.2", "7.2.1". Log lines have no number.
template <typename Visit> void visit_inner(const RecordedCall &call, const std::string &number, Visit visit)
{
    unsigned count = 0;
    for (const RecordedCall &inner : call.inner) {
        const std::string own = inner.kind == format::Kind::log ? "" : fmt::format("{}.{}", number, ++count);
        visit(inner, own);
        visit_inner(inner, own, visit);
    }
}

/// A call as the rest of the line after the number.
nlohmann::ordered_json json_of(Narrator &narrator, const RecordedCall &call, const std::string &number)
{
    nlohmann::ordered_json object;
    if (call.kind == format::Kind::log) {
        object["log"] = narrator.words(call);
        return object;
    }
    object["call"] = number;
    object["name"] = call.callable->name;
    object["words"] = narrator.words(call);
    object["begin_ns"] = call.begin_ns;
    object["took_ns"] = call.end_ns - call.begin_ns;
    object["answer"] = call.is_complete ? nlohmann::ordered_json(call.answer) : nullptr;
    if (call.id != 0) {
        object["thread"] = call.thread;
        object["others_inside"] = call.others_inside;
        object["bytes"] = call.bytes;
    }
    unsigned count = 0;
    for (const RecordedCall &inner : call.inner) {
        const bool is_log = inner.kind == format::Kind::log;
        object["inside"].push_back(json_of(narrator, inner, is_log ? "" : fmt::format("{}.{}", number, ++count)));
    }
    return object;
}

/// All calls of a recording, the unfinished ones last.
template <typename Visit> void visit_calls(Reader &reader, Visit visit)
{
    while (const auto call = reader.next())
        visit(*call);
    for (const RecordedCall &call : reader.unfinished())
        visit(call);
}

} // namespace

std::string lines_of(Narrator &narrator, const RecordedCall &call, const std::string &marked)
{
    const std::string id = fmt::to_string(call.id);
    const auto mark = [&](const std::string &number) { return !marked.empty() && number == marked ? ">" : " "; };
    std::string lines = fmt::format("{}{:<9} {}  thread {}{}  {:>10}  {}\n", mark(id), id, time_text(call.begin_ns),
                                    call.thread, call.others_inside ? ", while another was inside" : "",
                                    duration_text(call.end_ns - call.begin_ns), narrator.words(call));
    visit_inner(call, id, [&](const RecordedCall &inner, const std::string &number) {
        const auto depth = 2 * static_cast<std::size_t>(std::ranges::count(number, '.'));
        lines += inner.kind == format::Kind::log
                     ? fmt::format("    log       {}\n", narrator.words(inner))
                     : fmt::format("{}{:{}}{:<9} {:>10}  {}\n", mark(number), "", depth, number,
                                   duration_text(inner.end_ns - inner.begin_ns), narrator.words(inner));
    });
    return lines;
}

bool tell_damages(const Reader &reader)
{
    const format::Header &header = reader.header();
    if (header.is_full != 0)
        fmt::print(stderr, "the recording stopped at its limit of {} MB\n",
                   (header.used + format::chunk_size) / 1024 / 1024);
    if (header.lost_calls != 0)
        fmt::print(stderr, "{} calls are missing: more than {} threads were inside the module\n", header.lost_calls,
                   format::lanes_max);
    if (!reader.unfinished().empty())
        fmt::print(stderr, "{} has no answer: the process ended inside it{}\n",
                   reader.unfinished().size() == 1 ? "a call" : "more than one call",
                   header.is_full != 0 ? ", or the limit was reached" : "");
    for (const std::string &damage : reader.damages())
        fmt::print(stderr, "damaged: {}\n", damage);
    return reader.damages().empty();
}

bool show(Reader &reader, const Selection &selection, bool as_json)
{
    const format::Header &header = reader.header();
    if (!as_json)
        fmt::print("recorded from {} UTC in {}, process {}\nmodule {}\n\n", time_text(header.wall_ns), header.program,
                   header.process, header.module);
    Narrator narrator;
    visit_calls(reader, [&](const RecordedCall &call) {
        const std::string lines = as_json ? json_of(narrator, call, fmt::to_string(call.id))
                                                    .dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) +
                                                "\n"
                                          : lines_of(narrator, call);
        const bool failed = !call.is_complete || call.is_refused();
        if (call.id >= selection.first && call.id <= selection.last && (failed || !selection.failed))
            fmt::print("{}", lines);
    });
    return tell_damages(reader);
}

// ---- Counted -----------------------------------------------------------------------------------------------------

namespace {

struct Count {
    std::uint64_t calls = 0;
    std::uint64_t refused = 0;
    std::uint64_t ns = 0;
    std::uint64_t ns_max = 0;

    void add(const RecordedCall &call, std::uint64_t own_ns)
    {
        ++calls;
        refused += call.is_refused() ? 1 : 0;
        ns += own_ns;
        ns_max = std::max(ns_max, own_ns);
    }
};
using Counts = std::map<std::string, Count, std::less<>>;

/// Counts a call and what is inside it; the time of inner calls is theirs alone. @return how long the call took
std::uint64_t count(const RecordedCall &call, Counts &into_module, Counts &into_services)
{
    if (call.kind == format::Kind::log)
        return 0;
    std::uint64_t inside = 0;
    for (const RecordedCall &inner : call.inner)
        inside += count(inner, into_module, into_services);
    const std::uint64_t took = call.end_ns - call.begin_ns;
    Counts &counts = call.kind == format::Kind::service ? into_services : into_module;
    counts[std::string(call.callable->name)].add(call, took - std::min(inside, took));
    return took;
}

void print_counts(std::string_view title, const Counts &counts)
{
    std::vector<std::pair<std::string, Count>> rows(counts.begin(), counts.end());
    std::ranges::sort(rows, std::greater<>(), [](const auto &row) { return row.second.ns; });
    constexpr std::uint64_t bar_length = 30;
    const std::uint64_t longest = rows.empty() ? 1 : std::max<std::uint64_t>(rows.front().second.ns, 1);
    fmt::print("\n{}\n  {:<36} {:>9} {:>8} {:>12} {:>9} {:>10}\n", title, "NAME", "CALLS", "REFUSED", "TOTAL US",
               "MEAN US", "LONGEST US");
    for (const auto &[name, row] : rows) {
        std::string bar;
        for (std::uint64_t i = 0; i < row.ns * bar_length / longest; ++i)
            bar += "█";
        fmt::print("  {:<36} {:>9} {:>8} {:>12.1f} {:>9.2f} {:>10.1f}  {}\n", name, row.calls, row.refused,
                   static_cast<double>(row.ns) / 1000,
                   static_cast<double>(row.ns) / 1000 / static_cast<double>(row.calls),
                   static_cast<double>(row.ns_max) / 1000, bar);
    }
}

} // namespace

bool show_stats(Reader &reader)
{
    Counts into_module;
    Counts into_services;
    std::uint64_t calls = 0;
    std::uint64_t overlapping = 0;
    visit_calls(reader, [&](const RecordedCall &call) {
        ++calls;
        overlapping += call.others_inside ? 1 : 0;
        count(call, into_module, into_services);
    });
    fmt::print("{} calls from outside, {} while another thread was inside\n", calls, overlapping);
    print_counts("in the module, without the services that it calls", into_module);
    print_counts("in services", into_services);
    return tell_damages(reader);
}

} // namespace record
