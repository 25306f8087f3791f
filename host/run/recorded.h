/// Begins where a recorded process was.
#ifndef KYBRIDGE_HOST_RECORDED_H
#define KYBRIDGE_HOST_RECORDED_H

#include <cstdint>
#include <string>

#include "host/run/interpreter.h"

namespace host {

/// Brings module and stand-in to where a process was that kybridge-record recorded. Says nothing but what does not go
/// as it went then, and what is damaged; goes on after that all the same.
/// @param file the recording  @param until the last call that is carried out, by its number
Verdict follow_recording(Host &host, const std::string &file, std::uint64_t until);

} // namespace host

#endif
