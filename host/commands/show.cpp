// Screens, and the comparison of the state with one from before.
#include "host/commands/commands.h"

#include <algorithm>

#include <fmt/format.h>

#include "host/screens/consistency.h"
#include "host/screens/screens.h"

namespace host {

namespace {

/// A command that shows one screen.
auto show(Table (*screen)(const Host &))
{
    return [screen](Host &host, const Arguments &) {
        const Quiet quiet(host);
        host.show(screen(host));
        return Result{};
    };
}

Result vports(Host &host, const Arguments &arguments)
{
    std::optional<std::uint16_t> bridge_id;
    if (arguments.has("BRIDGE"))
        bridge_id = arguments.number16("BRIDGE");
    const Quiet quiet(host);
    std::uint32_t count = 0;
    if (bridge_id && host.module.ky_bridge_port_get(*bridge_id, nullptr, &count, 1) != KY_STATUS_SUCCESS)
        return {KY_STATUS_SUCCESS, fmt::format("there is no bridge {}", host.names.bridge(*bridge_id)), true};
    host.show(vports_screen(host, bridge_id));
    return {};
}

Result journal(Host &host, const Arguments &arguments)
{
    host.show(journal_screen(host, arguments.number_or("last", UINT32_MAX)));
    return {};
}

Result everything(Host &host, const Arguments &)
{
    const Quiet quiet(host);
    for (const Table &table :
         {bridges_screen(host), vports_screen(host, std::nullopt), ports_screen(host), rules_screen(host),
          bindings_screen(host), vlans_screen(host), rstp_screen(host), groups_screen(host), faults_screen(host)})
        host.show(table);
    return {};
}

Result explain(Host &host, const Arguments &arguments)
{
    const Quiet quiet(host);
    for (const Table &screen : explanation(host, arguments.number("PORT"), arguments.number16("VLAN")))
        host.show(screen);
    return {};
}

Result verify(Host &host, const Arguments &)
{
    std::vector<std::string> findings = consistency::check_database(*host.module.bridge_db);
    for (std::string &finding : consistency::check_hardware(*host.module.bridge_db, host.device))
        findings.push_back(std::move(finding));
    if (findings.empty())
        return {KY_STATUS_SUCCESS, "verified: database and hardware agree"};
    return {KY_STATUS_SUCCESS, fmt::format("database and hardware do not agree:\n  {}", fmt::join(findings, "\n  ")),
            true};
}

Result remember(Host &host, const Arguments &arguments)
{
    host.remembered[arguments.text("NAME")] = facts(host);
    return {KY_STATUS_SUCCESS, fmt::format("state remembered as {}", arguments.text("NAME"))};
}

Result same_as(Host &host, const Arguments &arguments)
{
    const std::string &name = arguments.text("NAME");
    const auto remembered = host.remembered.find(name);
    if (remembered == host.remembered.end()) {
        std::vector<std::string> names;
        for (const auto &[known, state] : host.remembered)
            names.push_back(known);
        throw ScriptError(fmt::format("no state is remembered as '{}'{}", name, did_you_mean(name, names)));
    }

    const std::vector<std::string> &before = remembered->second;
    const std::vector<std::string> now = facts(host);
    std::vector<std::string> gone;
    std::vector<std::string> come;
    std::ranges::set_difference(before, now, std::back_inserter(gone));
    std::ranges::set_difference(now, before, std::back_inserter(come));
    if (gone.empty() && come.empty())
        return {KY_STATUS_SUCCESS, fmt::format("same as {}: {} facts of module and hardware agree", name, now.size())};

    std::string difference = fmt::format("not the same as {}:", name);
    for (const std::string &fact : gone)
        difference += "\n  - " + fact;
    for (const std::string &fact : come)
        difference += "\n  + " + fact;
    return {KY_STATUS_SUCCESS, difference, true};
}

} // namespace

CommandGroup show_commands()
{
    return {
        "SCREENS",
        {
            {"show bridges", "", "Shows the bridges", "show bridges", show(bridges_screen)},
            {"show vports", "[BRIDGE]", "Shows the virtual ports, of one bridge or of all", "show vports red", vports},
            {"show ports", "",
             "Shows the logical ports: their state in the SDK and in the module, with the module's counters",
             "show ports", show(ports_screen)},
            {"show rules", "", "Shows the ACL rules in the hardware", "show rules", show(rules_screen)},
            {"show bindings", "", "Shows the ACLs that ports are bound to in the hardware", "show bindings",
             show(bindings_screen)},
            {"show vlans", "", "Shows the VLAN memberships in the hardware", "show vlans", show(vlans_screen)},
            {"show rstp", "", "Shows the RSTP states of the ports", "show rstp", show(rstp_screen)},
            {"show groups", "", "Shows the VLAN groups and the bridges that are bound to them", "show groups",
             show(groups_screen)},
            {"show memory", "", "Shows the memory that the module has outstanding", "show memory", show(memory_screen)},
            {"show faults", "", "Shows the planned faults that have not happened yet", "show faults",
             show(faults_screen)},
            {"show journal", "[last N]", "Shows the module's calls into the SDK, all that are kept or the last ones",
             "show journal last 20", journal},
            {"show everything", "", "Shows all of these but memory and journal", "show everything", everything},
            {"explain", "PORT VLAN",
             "Tells the whole story of a virtual port: its bridge, rules, bindings and VLANs, and the calls that made "
             "them; of another pair, what becomes of its frames",
             "explain north 100", explain},
            {"verify", "", "Fails when the module's database and the hardware disagree, and says where", "verify",
             verify},
            {"remember", "NAME", "Remembers the state of module and hardware under a name", "remember before",
             remember},
            {"same-as", "NAME", "Fails when the state differs from the one remembered, and shows the difference",
             "same-as before", same_as},
        }};
}

} // namespace host
