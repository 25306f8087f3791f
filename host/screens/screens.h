/// The show screens. What the module can answer comes from its own queries, what the hardware holds from
/// the stand-in, and the module's counters, for which there is no query, from its database.
#ifndef KYBRIDGE_HOST_SCREENS_H
#define KYBRIDGE_HOST_SCREENS_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/host.h"
#include "host/output/tables.h"
#include "sim/live.h"

struct bridge_db_log_port;

namespace host {

/// Keeps the module's log quiet while it lives: screens ask many questions whose answer may be a refusal.
class Quiet {
public:
    explicit Quiet(const Host &host) : device_(host.device), log_(std::exchange(device_.log, nullptr)) {}
    ~Quiet() { device_.log = std::move(log_); }
    Quiet(const Quiet &) = delete;
    Quiet &operator=(const Quiet &) = delete;

private:
    sdk::Device &device_;
    std::function<void(const sdk::LogLine &)> log_;
};

Table bridges_screen(const Host &host);
Table vports_screen(const Host &host, std::optional<std::uint16_t> bridge_id); ///< of one bridge, or of all
Table ports_screen(const Host &host);                                          ///< logical ports with their counters
Table rules_screen(const Host &host);
Table bindings_screen(const Host &host);
Table vlans_screen(const Host &host);
Table rstp_screen(const Host &host);
Table groups_screen(const Host &host);
Table memory_screen(const Host &host);
Table faults_screen(const Host &host);
Table fdb_screen(const Host &host);      ///< stations of the software switch
Table counters_screen(const Host &host); ///< its counters by port
Table interfaces_screen(const Host &host, const std::vector<sim::Live::Interface> &interfaces);
Table journal_screen(const Host &host, std::size_t last); ///< the last calls

/// The whole story of a pair of port and VLAN, attached to a bridge or not, on several screens.
std::vector<Table> explanation(const Host &host, std::uint32_t log_port, std::uint16_t vlan);

/// What no query tells of a port; NULL when the module does not know it.
const bridge_db_log_port *log_port_record(const Host &host, std::uint32_t log_port);

/// The bridge that owns an internal VLAN, by the module's own answer; empty: none.
std::string bridge_of(const Host &host, std::uint16_t int_vlan);

/// What the module answers and what the hardware holds, one fact a line, sorted: equal facts mean equal state.
std::vector<std::string> facts(const Host &host);

} // namespace host

#endif
