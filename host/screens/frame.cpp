// Screens of the software switch.
#include "host/screens/screens.h"

#include <fmt/format.h>

#include "sim/trace.h"

namespace host {

namespace {

using enum Table::Align;

const char *name(sim::Live::State state)
{
    switch (state) {
    case sim::Live::State::up:
        return "up";
    case sim::Live::State::no_carrier:
        return "no carrier";
    case sim::Live::State::down:
        return "down";
    case sim::Live::State::gone:
        return "gone";
    }
    return "";
}

/// "3 discarding, 1 runt"; empty: none.
std::string drops(const std::array<std::uint64_t, sim::drop_count> &counts)
{
    std::string list;
    for (std::size_t drop = 0; drop < counts.size(); ++drop)
        if (counts[drop] != 0)
            list += fmt::format("{}{} {}", list.empty() ? "" : ", ", counts[drop], name(static_cast<sim::Drop>(drop)));
    return list;
}

} // namespace

Table fdb_screen(const Host &host)
{
    Table table("FDB", {{"VLAN", right}, {"BRIDGE"}, {"STATION"}, {"PORT"}, {"AGE", right}});
    const sim::Fdb &fdb = host.software_switch.fdb();
    table.note(fmt::format("{} of at most {} stations, forgotten after {} s unheard; {} gave way to others", fdb.size(),
                           fdb.limit(), fdb.ageing().count(), fdb.evictions()));
    for (const sim::Fdb::Entry &entry : fdb.entries())
        table.add({fmt::format("{}", entry.vlan), bridge_of(host, entry.vlan), entry.mac.text(),
                   host.names.port(entry.port), fmt::format("{} s", entry.age.count())});
    return table;
}

Table counters_screen(const Host &host)
{
    Table table("counters", {{"PORT"},
                             {"FRAMES IN", right},
                             {"BYTES IN", right},
                             {"FRAMES OUT", right},
                             {"BYTES OUT", right},
                             {"DROPPED ON ARRIVAL"},
                             {"DROPPED ON LEAVING"}});
    for (const auto &[log_port, counters] : host.software_switch.counters())
        table.add({host.names.port(log_port), fmt::format("{}", counters.in.frames),
                   fmt::format("{}", counters.in.bytes), fmt::format("{}", counters.out.frames),
                   fmt::format("{}", counters.out.bytes), drops(counters.dropped_in), drops(counters.dropped_out)});
    return table;
}

Table interfaces_screen(const Host &host, const std::vector<sim::Live::Interface> &interfaces)
{
    Table table("interfaces", {{"PORT"},
                               {"INTERFACE"},
                               {"STATE"},
                               {"RECEIVED", right},
                               {"UNREADABLE", right},
                               {"MISSED", right},
                               {"SENT", right},
                               {"REFUSED", right}});
    for (const sim::Live::Interface &interface : interfaces) {
        const sim::InterfaceCounters &counters = interface.counters;
        table.add({host.names.port(interface.port), interface.name, name(interface.state),
                   fmt::format("{}", counters.received), fmt::format("{}", counters.unreadable),
                   fmt::format("{}", counters.missed), fmt::format("{}", counters.sent),
                   fmt::format("{}", counters.refused)});
    }
    return table;
}

} // namespace host
