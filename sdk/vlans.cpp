// The VLAN module: which ports are members of which VLANs, and how their frames leave.
#include "sdk/recorder.h"

namespace sdk {

void VlanModule::join(std::uint32_t log_port, std::uint16_t vlan, std::uint32_t mode, std::uint64_t call)
{
    Membership &membership = members_[vlan][log_port];
    membership = {mode, call};
    by_port_and_vlan_[key(log_port, vlan)] = &membership;
}

bool VlanModule::leave(std::uint32_t log_port, std::uint16_t vlan)
{
    const auto ports = members_.find(vlan);
    if (ports == members_.end() || ports->second.erase(log_port) == 0)
        return false;
    by_port_and_vlan_.erase(key(log_port, vlan));
    if (ports->second.empty())
        members_.erase(ports);
    if (on_leave)
        on_leave(log_port, vlan);
    return true;
}

const Membership *VlanModule::find(std::uint32_t log_port, std::uint16_t vlan) const
{
    const auto membership = by_port_and_vlan_.find(key(log_port, vlan));
    return membership == by_port_and_vlan_.end() ? nullptr : membership->second;
}

const std::map<std::uint32_t, Membership> &VlanModule::members(std::uint16_t vlan) const
{
    static const std::map<std::uint32_t, Membership> none;
    const auto ports = members_.find(vlan);
    return ports == members_.end() ? none : ports->second;
}

namespace {

ky_status_t check_entry(Recorder &call, const ky_vlan_entry_t &entry)
{
    if (entry.reserved_2 != 0) {
        return call.refuse(KY_STATUS_PARAM_ERROR, "bytes 2 and 3 of an entry are 0x{:04X}, expected 0",
                           entry.reserved_2);
    }
    if (entry.vlan > KY_VLAN_ID_MAX)
        return call.refuse(KY_STATUS_PARAM_EXCEEDS_RANGE, "VLAN {} is above {}", entry.vlan, +KY_VLAN_ID_MAX);
    if (entry.mode > KY_EGRESS_MODE_UNTAGGED)
        return call.refuse(KY_STATUS_PARAM_EXCEEDS_RANGE, "mode {} of VLAN {} is above 1", entry.mode, entry.vlan);
    return KY_STATUS_SUCCESS;
}

/// Joins all of the VLANs or none. A port may join again, with the same mode or another.
ky_status_t join_all(const Recorder &call, std::uint32_t log_port, std::span<const ky_vlan_entry_t> entries)
{
    if (device().ports.find(log_port) == nullptr)
        return KY_STATUS_ENTRY_NOT_FOUND;
    for (const ky_vlan_entry_t &entry : entries)
        device().vlans.join(log_port, entry.vlan, entry.mode, call.number());
    return KY_STATUS_SUCCESS;
}

/// Leaves all of the VLANs or none.
ky_status_t leave_all(Recorder &call, std::uint32_t log_port, std::span<const ky_vlan_entry_t> entries)
{
    for (const ky_vlan_entry_t &entry : entries) {
        if (!device().vlans.find(log_port, entry.vlan)) {
            return call.refuse(KY_STATUS_ENTRY_NOT_FOUND, "port 0x{:08X} is no member of VLAN {}", log_port,
                               entry.vlan);
        }
    }
    for (const ky_vlan_entry_t &entry : entries)
        device().vlans.leave(log_port, entry.vlan);
    return KY_STATUS_SUCCESS;
}

} // namespace
} // namespace sdk

ky_status_t vlan_port_multi_vlans_set(ky_access_cmd_t cmd, uint32_t log_port, uint32_t count, ky_vlan_entry_t *entries)
{
    // Only a count that is allowed may be believed.
    const std::size_t readable = count <= 2 ? count : 0;
    const auto set = [=](sdk::Recorder &call, const ky_vlan_entry_t &first) {
        if (cmd != KY_ACCESS_CMD_ADD && cmd != KY_ACCESS_CMD_DELETE)
            return call.refuse_cmd(cmd);
        if (readable == 0)
            return call.refuse(KY_STATUS_PARAM_EXCEEDS_RANGE, "{} entries passed, expected 1 or 2", count);
        const std::span<const ky_vlan_entry_t> list(&first, readable);
        for (const ky_vlan_entry_t &entry : list)
            if (const ky_status_t status = sdk::check_entry(call, entry))
                return status;
        if (list.front().vlan == list.back().vlan && list.size() == 2)
            return call.refuse(KY_STATUS_PARAM_ERROR, "VLAN {} is listed twice", first.vlan);
        return cmd == KY_ACCESS_CMD_ADD ? sdk::join_all(call, log_port, list) : sdk::leave_all(call, log_port, list);
    };
    return sdk::serve_record(sdk::Service::vlan_port_multi_vlans_set, {cmd, log_port, count}, entries, set,
                             readable * sizeof *entries);
}
