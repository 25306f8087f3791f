/// A recording for people and programs: each call in words, and all of them counted.
#ifndef KYBRIDGE_RECORD_SHOW_H
#define KYBRIDGE_RECORD_SHOW_H

#include <cstdint>
#include <map>
#include <string>

#include "record/reader.h"

namespace record {

/// Words calls. Every call of a recording goes through it in order, since a block's size is told where it is obtained
/// only.
class Narrator {
public:
    /// The call without what is inside it: "ky_bridge_port_set cmd ADD bridge_id 1 ... -> 22 ENTRY_ALREADY_EXISTS". A
    /// service's as the stand-in's journal words it; a log line: "BRIDGE error: ..." without its line end.
    std::string words(const RecordedCall &call);

private:
    std::string service_words(const RecordedCall &call);

    std::map<std::uint64_t, std::uint64_t> block_sizes_; ///< bytes by address
};

/// The arguments of a function by name, as the host's command `call` takes them: "cmd ADD bridge_id 1 vid NULL".
std::string arguments_by_name(const RecordedCall &call);

/// Which calls are shown.
struct Selection {
    std::uint64_t first = 1;
    std::uint64_t last = UINT64_MAX;
    bool failed = false; ///< only those that were refused or not finished
};

/// Prints the selected calls, one line for each and for everything inside. @return whether nothing is damaged
bool show(Reader &reader, const Selection &selection, bool as_json);

/// Prints how often each function and service was called, refused, and how long it took. @return as show
bool show_stats(Reader &reader);

/// One call from outside with everything inside it, a line each.
/// @param mark put before the line of the inner call of that number ("7.3.1"), and blanks before all others
std::string lines_of(Narrator &narrator, const RecordedCall &call, const std::string &marked = {});

/// Tells on standard error what is damaged, and what was not finished or lost. @return whether nothing is damaged
bool tell_damages(const Reader &reader);

} // namespace record

#endif
