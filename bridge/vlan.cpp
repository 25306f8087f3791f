#include "vlan.h"

#include "log.h"

namespace {

/// The VLANs of one call to the VLAN module: at most the virtual port's own and the internal one.
struct VlanList {
    ky_vlan_entry_t entries[2] = {};
    uint32_t count = 0;

    void add(uint16_t vlan, uint32_t mode)
    {
        entries[count].vlan = vlan;
        entries[count].mode = mode;
        ++count;
    }
};

/// Whether a virtual port of the port keeps it in a VLAN that is its own.
bool keeps_vlan(const bridge_db_log_port_t &log_port, uint16_t vlan)
{
    const bridge_db_virtual_port_t *const vport = log_port.back_ref_map.find(vlan);
    return vport != nullptr && vport->holds_vlans;
}

} // namespace

ky_status_t __bridge_vlan_enable(const bridge_db_bridge_t *bridge, bridge_db_virtual_port_t *vport,
                                 bridge_db_log_port_t *log_port)
{
    const kybridge::FunctionTrace trace;
    const uint16_t vlan = vport->vlan;
    const uint16_t int_vlan = bridge->int_vlan;

    VlanList joined;
    joined.add(vlan, vport->egress_mode);
    if (int_vlan != vlan && !keeps_vlan(*log_port, int_vlan))
        joined.add(int_vlan, vport->egress_mode);

    const ky_status_t status =
        vlan_port_multi_vlans_set(KY_ACCESS_CMD_ADD, vport->log_port, joined.count, joined.entries);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("vlan_ports_set failed when adding port to bridge.\n");
        return status;
    }
    ++log_port->vlan_ref_cnt[vlan];
    ++log_port->vlan_ref_cnt[int_vlan];
    vport->holds_vlans = true;
    return KY_STATUS_SUCCESS;
}

ky_status_t __bridge_vlan_disable(const bridge_db_bridge_t *bridge, bridge_db_virtual_port_t *vport,
                                  bridge_db_log_port_t *log_port)
{
    const kybridge::FunctionTrace trace;

    if (!vport->holds_vlans)
        return KY_STATUS_SUCCESS;

    uint8_t &vlan_uses = log_port->vlan_ref_cnt[vport->vlan];
    uint8_t &int_vlan_uses = log_port->vlan_ref_cnt[bridge->int_vlan];

    VlanList left;
    if (vport->vlan == bridge->int_vlan) { // both uses of the one VLAN are its own
        left.add(vport->vlan, vport->egress_mode);
    } else {
        if (vlan_uses == 1)
            left.add(vport->vlan, vport->egress_mode);
        if (int_vlan_uses == 1)
            left.add(bridge->int_vlan, vport->egress_mode);
    }

    if (left.count != 0) {
        const ky_status_t status =
            vlan_port_multi_vlans_set(KY_ACCESS_CMD_DELETE, vport->log_port, left.count, left.entries);
        if (status != KY_STATUS_SUCCESS)
            return status;
    }
    --vlan_uses;
    --int_vlan_uses;
    vport->holds_vlans = false;
    return KY_STATUS_SUCCESS;
}

ky_status_t __bridge_update_port_rstp_state(const bridge_db_log_port_t *log_port)
{
    const kybridge::FunctionTrace trace;

    uint32_t mode = 0;
    ky_status_t status = mstp_mode_get(KY_ACCESS_CMD_GET, log_port->swid, &mode);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("mstp_mode_get failed (%s).\n", kybridge::status_text(status));
        return status;
    }
    if (mode != KY_MSTP_MODE_RSTP)
        return KY_STATUS_SUCCESS;

    uint32_t state = 0;
    status = rstp_port_state_get(KY_ACCESS_CMD_GET, log_port->log_port, &state);
    if (status != KY_STATUS_SUCCESS) {
        LOG_ERROR("rstp_port_state_get failed (%s).\n", kybridge::status_text(status));
        return status;
    }
    status = rstp_port_state_set(KY_ACCESS_CMD_SET, log_port->log_port, &state);
    if (status != KY_STATUS_SUCCESS)
        LOG_ERROR("rstp_port_state_set failed (%s).\n", kybridge::status_text(status));
    return status;
}

ky_status_t __bridge_update_rstp_state()
{
    const kybridge::FunctionTrace trace;

    for (auto *port = bridge_db->log_port_map.first(); port != nullptr;
         port = bridge_db->log_port_map.successor(port->log_port)) {
        if (port->eacl_bound_cnt == 0)
            continue;
        const ky_status_t status = __bridge_update_port_rstp_state(port);
        if (status != KY_STATUS_SUCCESS) {
            LOG_ERROR("__bridge_update_port_rstp_state failed (%s).\n", kybridge::status_text(status));
            return status;
        }
    }
    return KY_STATUS_SUCCESS;
}
