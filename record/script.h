/// A recording as a script for kybridge-host that brings module and stand-in to where the process was.
#ifndef KYBRIDGE_RECORD_SCRIPT_H
#define KYBRIDGE_RECORD_SCRIPT_H

#include <cstdint>
#include <string>

#include "record/reader.h"

namespace record {

/// The script: each call from outside as the command that makes it, behind what the stand-in needs to answer as the
/// SDK did then: ports and switch partitions as the services told of them, refusals as planned faults.
/// @param until the last call that is taken, by its number
std::string script_of(Reader &reader, std::uint64_t until = UINT64_MAX);

} // namespace record

#endif
