#include "support/module_fixture.h"

#include <map>
#include <regex>

#include "host/screens/consistency.h"

ModuleTest::ModuleTest()
{
    device.reset();
    device.bridge_port_set = ky_bridge_port_set;
    device.log = [this](const sdk::LogLine &line) { log.push_back(line); };
    swid_validation_func_ptr = sdk_validate_swid;
    ky_bridge_log_verbosity_level_set(3);
}

void ModuleTest::TearDown()
{
    device.faults.clear();
    EXPECT_EQ(ky_bridge_deinit(), 0U);
    EXPECT_EQ(device.memory.bytes(), 0U) << "memory is left over";
    EXPECT_EQ(device.violations, std::vector<std::string>());
    device.reset();
}

ky_status_t ModuleTest::start(std::uint32_t bridges, std::uint32_t virtual_ports)
{
    const ky_bridge_init_params_t params = {KY_BRIDGE_SDK_MODE_802_1D, {{bridges, virtual_ports, 0}}};
    return ky_bridge_init(&params);
}

ky_status_t ModuleTest::announce(std::uint32_t log_port, std::uint8_t swid)
{
    sdk::device().ports.ports[log_port].swid = swid;
    ky_port_event_t event = {};
    event.log_port = log_port;
    event.swid = swid;
    return sdk::device().adviser.deliver(KY_ADVISER_EVENT_PORT_ADD_INTO_SWID, event);
}

std::uint16_t ModuleTest::create_bridge(std::uint32_t is_internal)
{
    std::uint16_t bridge_id = 0;
    EXPECT_EQ(ky_bridge_set(KY_ACCESS_CMD_CREATE, &bridge_id, is_internal), 0U);
    return bridge_id;
}

ky_status_t ModuleTest::destroy_bridge(std::uint16_t bridge_id, std::uint32_t is_internal)
{
    return ky_bridge_set(KY_ACCESS_CMD_DESTROY, &bridge_id, is_internal);
}

ky_status_t ModuleTest::add(std::uint16_t bridge_id, std::uint32_t log_port, std::uint16_t vlan,
                            std::uint32_t egress_mode, std::uint32_t is_internal)
{
    return ky_bridge_port_set(KY_ACCESS_CMD_ADD, bridge_id, log_port, vlan, egress_mode, is_internal);
}

ky_status_t ModuleTest::remove(std::uint16_t bridge_id, std::uint32_t log_port, std::uint16_t vlan,
                               std::uint32_t egress_mode, std::uint32_t is_internal)
{
    return ky_bridge_port_set(KY_ACCESS_CMD_DELETE, bridge_id, log_port, vlan, egress_mode, is_internal);
}

std::vector<std::string> ModuleTest::take_lines()
{
    static const std::map<std::uint32_t, std::string> names = {{KY_LOG_ERROR, "error: "},
                                                               {KY_LOG_NOTICE, "notice: "},
                                                               {KY_LOG_DEBUG, "debug: "},
                                                               {KY_LOG_FUNCTION_TRACE, "trace: "}};
    static const std::regex position(R"(^[a-z_]+\.cpp\[\d+\]- )");
    std::vector<std::string> lines;
    for (const sdk::LogLine &line : log)
        lines.push_back(names.at(line.severity) + std::regex_replace(line.text, position, ""));
    log.clear();
    return lines;
}

void ModuleTest::forget()
{
    log.clear();
    device.journal.clear();
}

void ModuleTest::expect_consistent()
{
    EXPECT_EQ(consistency::check_database(bridge_db), std::vector<std::string>());
    EXPECT_EQ(consistency::check_hardware(bridge_db, sdk::device()), std::vector<std::string>());
}
