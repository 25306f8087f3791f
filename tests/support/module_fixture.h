/// What every test of the module starts from: the stand-in SDK as after power-on, the module not started,
/// its log caught; and what every one of them ends with: nothing left over and nothing to complain about.
#ifndef KYBRIDGE_TESTS_SUPPORT_MODULE_FIXTURE_H
#define KYBRIDGE_TESTS_SUPPORT_MODULE_FIXTURE_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "bridge/db.h"
#include "kybridge/ky_bridge.h"
#include "sdk/sdk.h"

class ModuleTest : public testing::Test {
protected:
    static constexpr std::uint32_t port_a = 0x10001;
    static constexpr std::uint32_t port_b = 0x10002;

    ModuleTest();
    /// Stops the module if it still runs, then checks that no memory is outstanding and that the stand-in
    /// saw no call that a real SDK would call a bug.
    void TearDown() override;

    /// Starts the module in 802.1D mode. @return the status
    static ky_status_t start(std::uint32_t bridges = 8, std::uint32_t virtual_ports = 16);

    /// Makes a port known to the port module and announces it to the module. @return the event's status
    static ky_status_t announce(std::uint32_t log_port, std::uint8_t swid = 0);

    /// Creates a bridge. @return its identifier; a failure fails the test
    static std::uint16_t create_bridge(std::uint32_t is_internal = 0);
    static ky_status_t destroy_bridge(std::uint16_t bridge_id, std::uint32_t is_internal = 0);
    static ky_status_t add(std::uint16_t bridge_id, std::uint32_t log_port, std::uint16_t vlan,
                           std::uint32_t egress_mode = 0, std::uint32_t is_internal = 0);
    static ky_status_t remove(std::uint16_t bridge_id, std::uint32_t log_port, std::uint16_t vlan,
                              std::uint32_t egress_mode = 0, std::uint32_t is_internal = 0);

    /// Lines of the log since the last call, each after its severity ("error: ", "notice: ", "debug: " or
    /// "trace: "), as they were written; debug and trace lines without file and line number. Forgets them.
    std::vector<std::string> take_lines();
    /// Forgets log and calls so far.
    void forget();

    /// Fails the test for every disagreement of database and hardware.
    static void expect_consistent();

    std::vector<sdk::LogLine> log; ///< everything that was logged since the last take_lines
    sdk::Device &device = sdk::device();
};

#endif
