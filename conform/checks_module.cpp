// The module on the SDK's services: starting and stopping, the way back into it, and a full set of virtual ports.
#include <algorithm>
#include <array>
#include <chrono>
#include <random>

#include "bridge/bridge.h"
#include "conform/calls.h"
#include "conform/check.h"
#include "conform/libraries.h"
#include "conform/side_by_side.h"

namespace conform {

namespace {

std::uint8_t served_swid = 0; ///< the partition that the ports are in

ky_status_t validate_swid(unsigned int swid)
{
    return swid == served_swid ? KY_STATUS_SUCCESS : KY_STATUS_PARAM_ERROR;
}

/// The module with sizes that the device allows, driven as a host drives it. Every call is expected to come through.
class Module {
public:
    explicit Module(const Settings &settings) : settings_(settings)
    {
        open_module(settings);
        served_swid = settings.swid;
        PROCESS_SYMBOL(swid_validation_func_ptr) = validate_swid;
        bridges = std::min<std::uint32_t>(PROCESS_SYMBOL(rm_resource_global).max_bridges, KY_VIRTUAL_PORTS_MAX);
    }

    void start() const
    {
        calling(fmt::format("ky_bridge_init(802.1D, {} bridges, {} virtual ports)", bridges, +KY_VIRTUAL_PORTS_MAX));
        const ky_bridge_init_params_t params = {
            KY_BRIDGE_SDK_MODE_802_1D, {{bridges, KY_VIRTUAL_PORTS_MAX, KY_BRIDGE_MULTIPLE_VLAN_MODE_HOMOGENOUS}}};
        expect_status(PROCESS_SYMBOL(ky_bridge_init)(&params));
    }
    static void stop()
    {
        calling("ky_bridge_deinit()");
        expect_status(PROCESS_SYMBOL(ky_bridge_deinit)());
    }
    /// Announces a port as the adviser would.
    void announce(std::uint32_t port) const
    {
        calling(fmt::format("event 9 for port 0x{:08X}", port));
        ky_port_event_t event = {};
        event.log_port = port;
        event.swid = settings_.swid;
        expect_status(PROCESS_SYMBOL(__bridge_port_add_swid_callbacks)(KY_ADVISER_EVENT_PORT_ADD_INTO_SWID, &event));
    }
    static std::uint16_t create_bridge(bool internal = false)
    {
        calling("ky_bridge_set(CREATE)");
        std::uint16_t bridge = 0;
        expect_status(PROCESS_SYMBOL(ky_bridge_set)(KY_ACCESS_CMD_CREATE, &bridge, internal ? 1 : 0));
        return bridge;
    }
    static void add(std::uint16_t bridge, std::uint32_t port, std::uint16_t vlan, bool internal = false)
    {
        calling(fmt::format("ky_bridge_port_set(ADD, bridge {}, port 0x{:08X}, vlan {}, tagged)", bridge, port, vlan));
        expect_status(PROCESS_SYMBOL(ky_bridge_port_set)(KY_ACCESS_CMD_ADD, bridge, port, vlan, KY_EGRESS_MODE_TAGGED,
                                                         internal ? 1 : 0));
    }
    static void remove(std::uint16_t bridge, std::uint32_t port, std::uint16_t vlan)
    {
        calling(
            fmt::format("ky_bridge_port_set(DELETE, bridge {}, port 0x{:08X}, vlan {}, tagged)", bridge, port, vlan));
        expect_status(
            PROCESS_SYMBOL(ky_bridge_port_set)(KY_ACCESS_CMD_DELETE, bridge, port, vlan, KY_EGRESS_MODE_TAGGED, 0));
    }
    static void clear(std::uint32_t port)
    {
        calling(fmt::format("ky_bridge_clear_port(0x{:08X}, release)", port));
        expect_status(PROCESS_SYMBOL(ky_bridge_clear_port)(port, 1));
    }
    static std::uint32_t count_virtual_ports(std::uint16_t bridge)
    {
        std::uint32_t count = 0;
        expect_status(PROCESS_SYMBOL(ky_bridge_port_get)(bridge, nullptr, &count, 1));
        return count;
    }

    std::uint32_t bridges = 0; ///< to start with

private:
    const Settings &settings_;
};

std::string load(const Settings &settings)
{
    open_module(settings);
    return settings.module;
}

std::string start_and_stop(const Settings &settings)
{
    const Module module(settings);
    module.start();
    Module::stop();
    return fmt::format("{} bridges, {} virtual ports", module.bridges, +KY_VIRTUAL_PORTS_MAX);
}

std::string start_again(const Settings &settings)
{
    const Module module(settings);
    for (int again = 0; again < 3; ++again) {
        module.start();
        module.announce(settings.ports[0]);
        Module::add(Module::create_bridge(), settings.ports[0], 1000);
        Module::stop();
    }
    return "";
}

std::string every_port(const Settings &settings)
{
    const Module module(settings);
    module.start();
    const std::uint16_t bridge = Module::create_bridge();
    for (const std::uint32_t port : settings.ports) {
        module.announce(port);
        Module::add(bridge, port, 1000);
    }
    for (const std::uint32_t port : settings.ports) {
        Module::remove(bridge, port, 1000);
        Module::clear(port);
    }
    Module::stop();
    return "";
}

/// Calls the SDK's own entry, which is to come back into the module.
ky_status_t delete_through_sdk(std::uint16_t bridge, std::uint32_t port, std::uint16_t vlan)
{
    calling(fmt::format("bridge_port_set(DELETE, bridge {}, port 0x{:08X}, vlan {}, tagged, internal too)", bridge,
                        port, vlan));
    return PROCESS_SYMBOL(bridge_port_set)(KY_ACCESS_CMD_DELETE, bridge, port, vlan, KY_EGRESS_MODE_TAGGED, 1);
}

std::string comes_back(const Settings &settings)
{
    const Module module(settings);
    module.start();
    const std::uint16_t bridge = Module::create_bridge();
    for (const std::uint32_t port : {settings.ports[0], settings.ports[1]}) {
        module.announce(port);
        Module::add(bridge, port, 1000);
    }
    expect_status(delete_through_sdk(bridge, settings.ports[1], 1000));
    expect(Module::count_virtual_ports(bridge) == 1, "0, and the virtual port is still there",
           "the call is passed on to ky_bridge_port_set, with all its arguments");
    Module::stop();
    return "";
}

std::string comes_back_internal(const Settings &settings)
{
    const Module module(settings);
    module.start();
    const std::uint16_t bridge = Module::create_bridge(true);
    module.announce(settings.ports[0]);
    Module::add(bridge, settings.ports[0], 1000, true);
    expect_status(delete_through_sdk(bridge, settings.ports[0], 1000));
    Module::stop();
    return "";
}

std::string passes_status_on(const Settings &settings)
{
    const Module module(settings);
    module.start();
    const std::uint16_t bridge = Module::create_bridge();
    expect_status(delete_through_sdk(bridge, settings.ports[0], 1000), KY_STATUS_ENTRY_NOT_FOUND);
    Module::stop();
    return "";
}

std::string full_set(const Settings &settings)
{
    const Module module(settings);
    module.start();
    for (const std::uint32_t port : settings.ports)
        module.announce(port);
    std::uint32_t attached = 0;
    for (std::uint16_t number = 1; number <= module.bridges && attached < KY_VIRTUAL_PORTS_MAX; ++number) {
        const std::uint16_t bridge = Module::create_bridge();
        const auto vlan = static_cast<std::uint16_t>(module.bridges + number);
        for (const std::uint32_t port : settings.ports) {
            if (attached == KY_VIRTUAL_PORTS_MAX)
                break;
            Module::add(bridge, port, vlan);
            ++attached;
        }
    }
    for (const std::uint32_t port : settings.ports)
        Module::clear(port);
    Module::stop();
    return fmt::format("{} virtual ports", attached);
}

// ---- Operation by operation, beside the model -----------------------------------------------------------

using operations::Kind;
using operations::Operation;

/// What operations are made from: small numbers, so that they meet, and the borders of every range.
operations::Domain domain_of(const Settings &settings)
{
    operations::Domain domain = operations::border_domain();
    domain.ports = settings.ports;
    std::erase(domain.vlans, 0U); // an SDK need not know a VLAN 0
    return domain;
}

Operation small_start()
{
    const std::uint32_t limit = PROCESS_SYMBOL(rm_resource_global).max_bridges;
    return {Kind::start, std::min<std::uint32_t>(limit, 4), 0, 6, KY_BRIDGE_SDK_MODE_802_1D};
}

std::string every_operation(const Settings &settings)
{
    const Module module(settings);
    SideBySide both(settings);
    const std::uint32_t first = settings.ports[0], second = settings.ports[1];
    const std::uint32_t swid = settings.swid;
    constexpr std::uint32_t vlan = 100;
    const std::array operations = {
        small_start(),
        Operation{Kind::mode},
        Operation{Kind::announce, 0, first, 0, swid},
        Operation{Kind::announce, 0, first, 0, swid}, // refused: it is known
        Operation{Kind::restore, 0, second, 0, swid},
        Operation{Kind::withdraw, 0, first},
        Operation{Kind::create},
        Operation{Kind::add, 1, first, vlan, KY_EGRESS_MODE_TAGGED},
        Operation{Kind::add, 1, second, vlan, KY_EGRESS_MODE_UNTAGGED},
        Operation{Kind::add, 1, second, vlan, KY_EGRESS_MODE_UNTAGGED}, // refused: it is attached
        Operation{Kind::add, 1, second, vlan + 1},                      // refused: another VLAN than the bridge's
        Operation{Kind::learn, 1, 0, 0, KY_FDB_LEARN_MODE_AUTO_LEARN},
        Operation{Kind::learning, 1},
        Operation{Kind::learn, 1, 0, 0, KY_FDB_LEARN_MODE_DONT_LEARN},
        Operation{Kind::bind, 1, 0, 0, KY_ACL_DIRECTION_INGRESS},
        Operation{Kind::bind, 1, 0, 0, KY_ACL_DIRECTION_EGRESS},
        Operation{Kind::group, 1},
        Operation{Kind::destroy, 1}, // refused: it is in use
        Operation{Kind::unbind, 1, 0, 0, KY_ACL_DIRECTION_INGRESS},
        Operation{Kind::unbind, 1, 0, 0, KY_ACL_DIRECTION_EGRESS},
        Operation{Kind::reference, 1},
        Operation{Kind::unreference, 1},
        Operation{Kind::port_list, 1, 0, 0, 4},
        Operation{Kind::int_vlan, 1},
        Operation{Kind::int_vlan_list, 0, first, 0, 4},
        Operation{Kind::int_vlan_owner, 0, 0, 1},
        Operation{Kind::member_state, 0, first},
        Operation{Kind::port_acls, 0, first},
        Operation{Kind::remove, 1, second, vlan, KY_EGRESS_MODE_UNTAGGED},
        Operation{Kind::remove_port, 0, first},
        Operation{Kind::clear, 0, second, 0, 0, true},
        Operation{Kind::restore, 0, second, 0, swid},
        Operation{Kind::destroy, 1},
        Operation{Kind::stop},
    };
    for (const Operation &operation : operations)
        both.run(operation);
    return fmt::format("{} operations", both.operations());
}

std::string random_operations(const Settings &settings)
{
    const Module module(settings);
    const operations::Domain domain = domain_of(settings);
    SideBySide both(settings);
    std::mt19937_64 engine(settings.seed);
    const operations::Below below = [&engine](std::uint32_t limit) {
        return std::uniform_int_distribution<std::uint32_t>(0, limit - 1)(engine);
    };
    both.run(small_start());
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(settings.seconds);
    while (std::chrono::steady_clock::now() < end && !both.is_half_done()) {
        Operation operation = operations::any_operation(domain, below);
        if (operation.kind == Kind::start || operation.kind == Kind::stop)
            continue; // regions stay after a stop, and a device has not so many
        if (operation.kind == Kind::announce || operation.kind == Kind::restore)
            operation.value = settings.swid; // the only partition that is known
        both.run(operation, SideBySide::Refusal::is_allowed);
    }
    if (!both.is_half_done())
        both.run({Kind::stop}, SideBySide::Refusal::is_allowed);
    std::string remark = fmt::format("{} operations, seed {}", both.operations(), settings.seed);
    if (both.refusals() != 0)
        remark += fmt::format("; {} refused by the SDK, the first: {}", both.refusals(), both.first_refusal());
    return remark;
}

constexpr std::array module_rows = {
    Check{"module.load", "the module loads into the process", "it cannot be used", "", load},
    Check{"module.start", "the module starts with its largest sizes, and stops", "answers this to the host",
          "module.load", start_and_stop},
    Check{"module.every-port", "each port can be announced, attached to a bridge, detached, and released",
          "answers this to the host", "module.start", every_port},
    Check{"reentry.comes-back", "bridge_port_set comes back into the module, and the virtual port goes",
          "ky_bridge_clear_port and DELETE_PORT answer 13, and a stop leaves everything in the hardware",
          "module.every-port", comes_back},
    Check{"reentry.internal", "bridge_port_set passes on that internal bridges are meant too",
          "virtual ports of internal bridges cannot be cleared", "reentry.comes-back", comes_back_internal},
    Check{"reentry.status", "bridge_port_set passes the module's status on",
          "a port is cleared without end, or seems to be cleared", "reentry.comes-back", passes_status_on},
    Check{"module.restart", "the module starts again after it was stopped in the middle of its work",
          "answers this to the host", "reentry.comes-back", start_again},
    Check{"module.full", "as many virtual ports as there can be are attached and cleared", "answers this to the host",
          "reentry.comes-back", full_set},
    Check{"module.operations", "every operation answers, and leaves in the module, what it should",
          "answers this to the host", "reentry.comes-back", every_operation},
    Check{"module.random", "so do random operations; what the SDK refuses leaves what was before",
          "answers or holds this from then on", "module.operations", random_operations},
};

} // namespace

std::span<const Check> module_checks()
{
    return module_rows;
}

} // namespace conform
