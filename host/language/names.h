/// Names for numbers: those that a script gives to ports and bridges. Those of statuses, commands, modes and states
/// are in record/names.h.
#ifndef KYBRIDGE_HOST_NAMES_H
#define KYBRIDGE_HOST_NAMES_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "record/names.h"

namespace host {

using record::access_cmd_names;
using record::direction_names;
using record::learning_names;
using record::name_of;
using record::NamedNumber;
using record::NamedNumbers;
using record::number_of;
using record::numbered_status;
using record::port_kind_names;
using record::rstp_names;
using record::sdk_mode_names;
using record::status_names;
using record::stp_mode_names;
using record::tagging_names;
using record::verbosity_names;

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
