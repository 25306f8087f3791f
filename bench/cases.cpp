#include "bench/cases.h"

#include <array>
#include <cstdlib>

#include <fmt/format.h>

#include "bench/floor.h"
#include "bench/services.h"
#include "kybridge/ky_bridge.h"

namespace bench {
namespace {

constexpr std::uint32_t max_bridges = KY_VLAN_ID_MAX;
constexpr std::uint16_t user_vlan = 4000; ///< of every virtual port whose VLAN does not matter
constexpr std::uint32_t first_port = 0x10000;

/// Ends the run when building a state fails: a measurement of anything else would be worth nothing.
void require(ky_status_t status)
{
    if (status != KY_STATUS_SUCCESS) {
        fmt::print(stderr, "setting up a benchmark failed with status {}\n", status);
        std::exit(1);
    }
}

std::uint32_t port(std::uint32_t index)
{
    return first_port + index;
}

void announce(std::uint32_t log_port)
{
    ky_port_event_t event = {};
    event.log_port = log_port;
    require(port_event(KY_ADVISER_EVENT_PORT_ADD_INTO_SWID, &event));
}

std::uint16_t create_bridge()
{
    std::uint16_t bridge_id = 0;
    require(ky_bridge_set(KY_ACCESS_CMD_CREATE, &bridge_id, 0));
    return bridge_id;
}

void destroy_bridge(std::uint16_t bridge_id)
{
    require(ky_bridge_set(KY_ACCESS_CMD_DESTROY, &bridge_id, 0));
}

void add(std::uint16_t bridge_id, std::uint32_t log_port, std::uint16_t vlan)
{
    require(ky_bridge_port_set(KY_ACCESS_CMD_ADD, bridge_id, log_port, vlan, 0, 0));
}

void remove(std::uint16_t bridge_id, std::uint32_t log_port, std::uint16_t vlan)
{
    require(ky_bridge_port_set(KY_ACCESS_CMD_DELETE, bridge_id, log_port, vlan, 0, 0));
}

/// A bridge with `count` virtual ports, each of a port of its own.
std::uint16_t make_bridge_of(std::uint32_t count)
{
    const std::uint16_t bridge = create_bridge();
    for (std::uint32_t i = 0; i < count; ++i) {
        announce(port(i));
        add(bridge, port(i), user_vlan);
    }
    return bridge;
}

/// `count` bridges that share one port, on VLANs from 3000 on.
void make_bridges_of_one_port(std::uint32_t count, std::uint32_t log_port)
{
    for (std::uint32_t i = 0; i < count; ++i)
        add(create_bridge(), log_port, static_cast<std::uint16_t>(3000 + i));
}

// Where the operations act; set_up fills it.
std::uint16_t bridge_id;
std::uint32_t log_port;
std::array<ky_bridge_port_t, KY_VIRTUAL_PORTS_MAX> port_list;
std::array<std::uint16_t, KY_VLAN_ID_MAX> vlan_list;

void add_virtual_port_cases(std::vector<Case> &cases)
{
    for (const std::uint32_t size : {1U, 8U, 64U, 512U}) {
        const auto module = [] {
            add(bridge_id, log_port, user_vlan);
            remove(bridge_id, log_port, user_vlan);
        };
        const auto floor = [] {
            floor::add(bridge_id, log_port, user_vlan, 0, 0);
            floor::remove(bridge_id, log_port, user_vlan, 0, 0);
        };
        cases.push_back({"add + delete, first on its bridge", "virtual ports", size, false, false,
                         [size] {
                             start(1024);
                             make_bridge_of(size - 1);
                             bridge_id = create_bridge();
                             log_port = port(size);
                             announce(log_port);
                         },
                         module, floor});
        cases.push_back({"add + delete, rule shared", "virtual ports", size, false, false,
                         [size] {
                             start(1024);
                             bridge_id = make_bridge_of(size - 1);
                             log_port = port(size);
                             announce(log_port);
                         },
                         module, floor});
    }
}

void add_bridge_cases(std::vector<Case> &cases)
{
    for (const std::uint32_t ports : {0U, 16U, 256U})
        for (const std::uint32_t size : {1U, 64U, 512U, max_bridges})
            cases.push_back({fmt::format("create + destroy, {} ports in use", ports), "bridges", size, false, false,
                             [size, ports] {
                                 start();
                                 // Room for the one that comes and goes, and for the one that has the ports.
                                 const std::uint32_t others = ports != 0 ? 2 : 1;
                                 for (std::uint32_t made = others; made < size; ++made)
                                     create_bridge();
                                 if (ports != 0)
                                     make_bridge_of(ports);
                             },
                             [] { destroy_bridge(create_bridge()); },
                             [] {
                                 std::uint16_t made = 0;
                                 floor::create_bridge(&made, 0);
                                 floor::destroy_bridge(&made, 0);
                             }});
}

void add_clear_cases(std::vector<Case> &cases)
{
    for (const std::uint32_t size : {1U, 8U, 64U})
        cases.push_back({"announce, attach, clear with release", "virtual ports of the port", size, false, true,
                         [size] {
                             start();
                             log_port = port(0);
                             for (std::uint32_t i = 0; i < size; ++i)
                                 create_bridge();
                         },
                         [size] {
                             bridge_port_set_target = ky_bridge_port_set;
                             announce(log_port);
                             for (std::uint16_t i = 0; i < size; ++i)
                                 add(static_cast<std::uint16_t>(i + 1), log_port, static_cast<std::uint16_t>(3000 + i));
                             require(ky_bridge_clear_port(log_port, 1));
                         },
                         [size] {
                             bridge_port_set_target = floor::bridge_port_set;
                             floor::announce(log_port, 0);
                             for (std::uint16_t i = 0; i < size; ++i)
                                 floor::add(static_cast<std::uint16_t>(i + 1), log_port,
                                            static_cast<std::uint16_t>(3000 + i), 0, 0);
                             floor::clear_and_release(log_port);
                         }});
}

void add_learning_cases(std::vector<Case> &cases)
{
    for (const std::uint32_t size : {1U, 8U, 64U, 512U})
        cases.push_back({"learning mode on + off", "virtual ports", size, false, false,
                         [size] {
                             start(1024);
                             bridge_id = make_bridge_of(size);
                         },
                         [] {
                             require(ky_bridge_set_learning_mode(bridge_id, KY_FDB_LEARN_MODE_AUTO_LEARN, 0));
                             require(ky_bridge_set_learning_mode(bridge_id, KY_FDB_LEARN_MODE_DONT_LEARN, 0));
                         },
                         [] {
                             floor::set_learning_mode(bridge_id, KY_FDB_LEARN_MODE_AUTO_LEARN, 0);
                             floor::set_learning_mode(bridge_id, KY_FDB_LEARN_MODE_DONT_LEARN, 0);
                         }});
}

/// A value that the optimiser must take to be used.
template <typename Value> void keep(const Value &value)
{
    asm volatile("" : : "g"(&value) : "memory");
}

/// An operation that answers a number. @param number what is there before, for example a capacity
template <typename Number, typename Ask> auto asking(Number number, Ask ask)
{
    return [number, ask] {
        Number answer = number;
        ask(&answer);
        keep(answer);
    };
}

void add_query_cases(std::vector<Case> &cases)
{
    const auto add_query = [&cases](const char *group, const char *unit, std::uint32_t size,
                                    const std::function<void()> &set_up, const std::function<void()> &module,
                                    const std::function<void()> &floor) {
        cases.push_back({group, unit, size, true, false, set_up, module, floor});
    };
    for (const std::uint32_t size : {1U, 64U, 512U})
        add_query(
            "ky_bridge_port_get", "virtual ports", size,
            [size] {
                start(1024);
                bridge_id = make_bridge_of(size);
            },
            asking(static_cast<std::uint32_t>(port_list.size()),
                   [](auto *count) { require(ky_bridge_port_get(bridge_id, port_list.data(), count, 0)); }),
            asking(static_cast<std::uint32_t>(port_list.size()),
                   [](auto *count) { floor::list_ports(bridge_id, port_list.data(), count, 0); }));
    for (const std::uint32_t size : {1U, 64U})
        add_query(
            "ky_bridge_int_vlan_list_get, one port", "virtual ports of the port", size,
            [size] {
                start();
                log_port = port(0);
                announce(log_port);
                make_bridges_of_one_port(size, log_port);
            },
            asking(static_cast<std::uint32_t>(vlan_list.size()),
                   [](auto *count) { require(ky_bridge_int_vlan_list_get(log_port, vlan_list.data(), count)); }),
            asking(static_cast<std::uint32_t>(vlan_list.size()),
                   [](auto *count) { floor::list_int_vlans(log_port, vlan_list.data(), count); }));

    for (const std::uint32_t size : {1U, 64U, max_bridges}) {
        const auto set_up = [size] {
            start();
            log_port = port(0);
            bridge_id = make_bridge_of(1);
            for (std::uint32_t made = 1; made < size; ++made)
                create_bridge();
            std::uint16_t group = 0;
            require(ky_bridge_int_vlan_group_set(KY_ACCESS_CMD_BIND, bridge_id, KY_ACL_DIRECTION_INGRESS, &group));
        };
        add_query("ky_bridge_int_vlan_list_get, all", "bridges", size, set_up,
                  asking(static_cast<std::uint32_t>(vlan_list.size()),
                         [](auto *count) { require(ky_bridge_int_vlan_list_get(0, vlan_list.data(), count)); }),
                  asking(static_cast<std::uint32_t>(vlan_list.size()),
                         [](auto *count) { floor::list_int_vlans(0, vlan_list.data(), count); }));
        add_query("ky_bridge_int_vlan_id_get", "bridges", size, set_up,
                  asking(std::uint16_t{}, [](auto *vlan) { require(ky_bridge_int_vlan_id_get(bridge_id, vlan, 0)); }),
                  asking(std::uint16_t{}, [](auto *vlan) { floor::int_vlan_of_bridge(bridge_id, vlan, 0); }));
        add_query("ky_bridge_int_vlan_bridge_id_get", "bridges", size, set_up,
                  asking(std::uint16_t{}, [](auto *owner) { require(ky_bridge_int_vlan_bridge_id_get(1, owner)); }),
                  asking(std::uint16_t{}, [](auto *owner) { floor::bridge_of_int_vlan(1, owner); }));
        add_query("ky_bridge_int_vlan_group_get", "bridges", size, set_up,
                  asking(std::uint16_t{}, [](auto *group) { require(ky_bridge_int_vlan_group_get(bridge_id, group)); }),
                  asking(std::uint16_t{}, [](auto *group) { floor::vlan_group_of_bridge(bridge_id, group); }));
        add_query("ky_bridge_get_learning_mode", "bridges", size, set_up,
                  asking(std::uint32_t{}, [](auto *mode) { require(ky_bridge_get_learning_mode(bridge_id, mode, 0)); }),
                  asking(std::uint32_t{}, [](auto *mode) { floor::get_learning_mode(bridge_id, mode, 0); }));
    }
    for (const std::uint32_t size : {1U, 16U, 256U}) {
        const auto set_up = [size] {
            start();
            make_bridge_of(size);
            log_port = port(0);
        };
        add_query(
            "ky_bridge_log_port_member_state", "ports", size, set_up,
            [] { require(ky_bridge_log_port_member_state(0, log_port)); }, [] { require(floor::is_member(log_port)); });
        add_query(
            "ky_bridge_port_acl_binding_get", "ports", size, set_up,
            [] {
                std::uint32_t ingress = 0;
                std::uint32_t egress = 0;
                require(ky_bridge_port_acl_binding_get(log_port, &ingress, &egress));
                keep(ingress);
                keep(egress);
            },
            [] {
                std::uint32_t ingress = 0;
                std::uint32_t egress = 0;
                floor::acls_of_port(log_port, &ingress, &egress);
                keep(ingress);
                keep(egress);
            });
    }
}

} // namespace

void start(std::uint32_t log_ports)
{
    stop();
    rm_resource_global.max_log_ports = log_ports;
    swid_validation_func_ptr = validate_swid;
    bridge_port_set_target = ky_bridge_port_set;
    const ky_bridge_init_params_t params = {
        KY_BRIDGE_SDK_MODE_802_1D, {{max_bridges, KY_VIRTUAL_PORTS_MAX, KY_BRIDGE_MULTIPLE_VLAN_MODE_HOMOGENOUS}}};
    require(ky_bridge_init(&params));
}

void fill_completely(std::uint32_t log_ports)
{
    start(log_ports);
    const std::uint32_t shares = KY_VIRTUAL_PORTS_MAX / log_ports; // virtual ports of each port
    for (std::uint32_t made = shares; made < max_bridges; ++made)
        create_bridge();
    for (std::uint32_t i = 0; i < log_ports; ++i)
        announce(port(i));
    for (std::uint32_t share = 0; share < shares; ++share) {
        const std::uint16_t bridge = create_bridge();
        for (std::uint32_t i = 0; i < log_ports; ++i)
            add(bridge, port(i), static_cast<std::uint16_t>(3000 + share));
    }
}

void stop()
{
    bridge_port_set_target = ky_bridge_port_set;
    require(ky_bridge_deinit());
}

std::vector<Case> all_cases()
{
    std::vector<Case> cases;
    add_virtual_port_cases(cases);
    add_bridge_cases(cases);
    add_clear_cases(cases);
    add_learning_cases(cases);
    add_query_cases(cases);
    return cases;
}

} // namespace bench
