/// Plays a recording back against a module: makes the calls that came from outside, answers the services as they were
/// answered then, and compares what the module does with what it did.
#ifndef KYBRIDGE_RECORD_PLAYER_H
#define KYBRIDGE_RECORD_PLAYER_H

#include <string>

#include "record/reader.h"

namespace record {

/// Plays all complete calls, up to the first that differs: in a service call, its record, a log line, an answer. Tells
/// on standard output how many there were, or the difference with the calls around it. Once in a process, since the
/// module keeps what it is told.
/// @param module file of the module  @return whether there is no difference  @throws std::runtime_error: no such module
bool check(Reader &reader, const std::string &module);

} // namespace record

#endif
