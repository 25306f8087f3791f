/// The names of statuses, commands, modes and states: as scripts write them, and as everything prints them.
#ifndef KYBRIDGE_RECORD_NAMES_H
#define KYBRIDGE_RECORD_NAMES_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace record {

/// A number that scripts may write, and screens print, as a word.
struct NamedNumber {
    std::string name;
    std::uint32_t number;
};
using NamedNumbers = std::vector<NamedNumber>;

const NamedNumbers &status_names();     ///< statuses, "ENTRY_NOT_FOUND"
const NamedNumbers &access_cmd_names(); ///< access commands, "CREATE"
const NamedNumbers &sdk_mode_names();   ///< "802.1Q", "802.1D", "hybrid"
const NamedNumbers &tagging_names();    ///< egress modes, "tagged"
const NamedNumbers &direction_names();  ///< ACL directions, "ingress"
const NamedNumbers &learning_names();   ///< learning modes, "off", "auto", "control"
const NamedNumbers &rstp_names();       ///< RSTP port states, "discarding"
const NamedNumbers &stp_mode_names();   ///< spanning-tree modes of a SWID, "rstp"
const NamedNumbers &port_kind_names();  ///< kinds of port, "network", "tca"
const NamedNumbers &verbosity_names();  ///< levels of the module's log, "notice"

/// The number's word, or the number itself.
std::string name_of(const NamedNumbers &names, std::uint32_t number);
std::optional<std::uint32_t> number_of(const NamedNumbers &names, std::string_view name);

/// "22 ENTRY_ALREADY_EXISTS", or the number alone when no status of this SDK has it.
std::string numbered_status(std::uint32_t status);

} // namespace record

#endif
