// The kinds of value that synopses name.
#include <cstdlib>

#include "host/language/grammar.h"
#include "sdk/sdk.h"
#include "sim/fdb.h"

namespace host {

namespace {

NamedNumbers service_names()
{
    NamedNumbers names;
    for (unsigned service = 0; service < sdk::service_count; ++service)
        names.push_back({std::string(sdk::name(sdk::Service{service})), service});
    names.push_back({"any", sdk::service_count});
    return names;
}

using enum Kind::Source;

} // namespace

const Kind &kind(std::string_view name)
{
    static const std::vector<Kind> kinds = {
        {"PORT", "port", port, UINT32_MAX, {}},
        {"BRIDGE", "bridge", bridge, UINT16_MAX, {}},
        {"NAME", "name", new_name, 0, {}},
        {"N", "number", number, UINT32_MAX, {}},
        {"SWID", "switch partition", number, UINT8_MAX, {}},
        {"VLAN", "VLAN ID", number, UINT16_MAX, {}},
        {"VID", "VLAN ID", number, KY_VLAN_ID_MAX, {}},
        {"PVID", "VLAN ID", number, KY_VLAN_ID_MAX, {{"none", UINT16_MAX}}},
        {"TAG-VLAN", "VLAN ID of a tag", number, 4095, {}},
        {"PCP", "priority", number, 7, {}},
        {"TYPE", "EtherType", number, UINT16_MAX, {}},
        {"BYTES", "size in bytes", number, UINT16_MAX, {}},
        {"MAC", "MAC address", mac, 0, {}},
        {"HEX", "frame", hex, 0, {}},
        {"SECONDS", "time in seconds", number, UINT32_MAX, {}},
        {"AGEING", "ageing time in seconds", number, sim::Fdb::ageing_max.count(), {}, sim::Fdb::ageing_min.count()},
        {"FILE", "file", file, 0, {}},
        {"TAGGING", "egress mode", number, UINT32_MAX, tagging_names()},
        {"DIRECTION", "direction", number, UINT32_MAX, direction_names()},
        {"SIDE", "direction", words, 0, direction_names()},
        {"ACL", "ACL", number, UINT32_MAX, {}},
        {"LEARNING", "learning mode", number, UINT32_MAX, learning_names()},
        {"MODE", "mode of the SDK", number, UINT32_MAX, sdk_mode_names()},
        {"STP", "spanning-tree mode", number, UINT32_MAX, stp_mode_names()},
        {"STATE", "RSTP state", words, 0, rstp_names()},
        {"KIND", "kind of port", number, UINT32_MAX, port_kind_names()},
        {"SWITCH", "setting", words, 0, {{"on", 1}, {"off", 0}}},
        {"TRACE", "calls to show", words, 0, {{"off", 0}, {"on", 1}, {"changes", 2}}},
        {"LINK", "state of a link", words, 0, {{"up", 1}, {"down", 0}}},
        {"VERBOSITY", "verbosity", number, UINT32_MAX, verbosity_names()},
        {"STATUS", "status", number, UINT32_MAX, status_names()},
        {"CMD", "access command", number, UINT32_MAX, access_cmd_names()},
        {"POINTER", "value behind a pointer", number, UINT32_MAX, {{"NULL", 0}}},
        {"POINTER16", "value behind a pointer", number, UINT16_MAX, {{"NULL", 0}}},
        {"ABSENT", "record", words, 0, {{"NULL", 0}}},
        {"SERVICE", "service of the SDK", words, 0, service_names()},
        {"ACL-OBJECT", "object of the ACL manager", words, 0, {{"region", 0}, {"acl", 1}, {"group", 2}}},
        {"NTH", "position among the next calls", number, UINT32_MAX, {{"next", 1}}, 1},
    };
    for (const Kind &candidate : kinds)
        if (candidate.name == name)
            return candidate;
    std::abort(); // a synopsis that names a kind that does not exist; every start reads every synopsis
}

} // namespace host
