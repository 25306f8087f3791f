/// What the module should hold and answer, worked out independently of it: a few maps, and one function that
/// tells what an operation does to them.
#ifndef KYBRIDGE_CONFORM_MODEL_MODEL_H
#define KYBRIDGE_CONFORM_MODEL_MODEL_H

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "bridge/db.h"
#include "conform/model/operations.h"

namespace operations {

/// Everything that the module remembers, apart from the places of rules in their regions.
struct State {
    struct VirtualPort {
        std::uint32_t vlan = 0;
        std::uint32_t mode = 0;
        bool has_ingress_rule = true;
        bool uses_egress_rule = true;
        bool operator==(const VirtualPort &) const = default;
    };
    struct Bridge {
        std::uint32_t int_vlan = 0;
        bool internal = false;
        std::uint32_t references = 0;
        std::array<bool, 2> bound = {};
        std::uint32_t group = KY_VLAN_GROUP_NONE;
        std::uint32_t learning = 0;
        std::map<std::uint32_t, VirtualPort> virtual_ports; ///< by logical port
        bool operator==(const Bridge &) const = default;
    };
    struct Port {
        std::uint32_t swid = 0;
        std::uint32_t egress_uses = 0;
        std::map<std::uint32_t, std::uint32_t> vlan_uses; ///< by VLAN, those that are not 0
        bool operator==(const Port &) const = default;
    };

    std::optional<std::uint32_t> mode; ///< ky_bridge_sdk_mode; none: not started
    std::uint32_t max_virtual_ports = 0;
    std::vector<std::uint32_t> free_bridges; ///< next first
    std::vector<std::uint32_t> free_vlans;   ///< next first, as many as there can be bridges
    std::map<std::uint32_t, Bridge> bridges;
    std::map<std::uint32_t, Port> ports;

    bool is_1d() const { return mode == KY_BRIDGE_SDK_MODE_802_1D; }
    bool operator==(const State &) const = default;
};

/// The state in words, one line a record: equal texts mean equal states.
std::string text(const State &state);

/// What the module holds. @param db may be NULL
State read_state(const bridge_db_t *db);

/// What the model must be told of the SDK.
struct Surroundings {
    rm_resource_t limits;                                          ///< of the device
    std::function<ky_status_t(std::uint32_t log_port)> check_port; ///< whether it may carry virtual ports: 0, 13 or 21
    std::function<bool(std::uint8_t swid)> serves;                 ///< whether the SWID validation accepts it
    std::array<std::uint32_t, 2> acls;                             ///< the module's ACLs, by direction
    std::uint32_t next_group;                                      ///< VLAN group that is handed out next
};

/// What an operation should answer. @param[in,out] state as it should be before and after
Answer predict(State &state, const Operation &operation, const Surroundings &sdk);

} // namespace operations

#endif
