/// Names for numbers: those that a script gives to ports and bridges, and those of statuses, commands,
/// modes and states.
#ifndef KYBRIDGE_HOST_NAMES_H
#define KYBRIDGE_HOST_NAMES_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace host {

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
std::string status_text(std::uint32_t status);

/// Names of one kind of thing, one name for each number and one number for each name.
class NameBook {
public:
    /// A number that had another name, or a name that stood for another number, is given anew.
    void give(const std::string &name, std::uint32_t number);
    void forget(std::uint32_t number);
    void clear();

    std::optional<std::uint32_t> find(const std::string &name) const;
    const std::string *find(std::uint32_t number) const; ///< NULL: it has no name
    std::vector<std::string> all() const;

private:
    std::map<std::string, std::uint32_t> numbers_;
    std::map<std::uint32_t, std::string> names_;
};

/// The names that a script has given so far.
struct Names {
    NameBook ports;
    NameBook bridges;

    std::string port(std::uint32_t log_port) const;    ///< its name, or "0x00010001"
    std::string bridge(std::uint16_t bridge_id) const; ///< its name, or the number
    std::string in(std::string text) const;            ///< a text of the stand-in with the names of its ports
};

} // namespace host

#endif
