/// Forwarding between network interfaces while commands go on being taken.
#ifndef KYBRIDGE_HOST_LIVE_H
#define KYBRIDGE_HOST_LIVE_H

#include <string>
#include <vector>

#include "host/host.h"
#include "host/run/interpreter.h"

namespace host {

/// Keeps SIGINT and SIGTERM from ending the process, so that forwarding can end in order. To be called before
/// anything else is started.
void hold_signals();

/// Attaches ports to interfaces and forwards between them until SIGINT, SIGTERM or the command 'quit'. Commands
/// come from standard input, or from the clients of a Unix socket, each of which gets its answers.
/// @param attachments "PORT=INTERFACE" each, a port by its number or its name
/// @param control path of the socket; empty: standard input
/// @param buffer_size bytes of the kernel's memory that each interface's frames may take until they are forwarded
/// @return wrong_script, reported, when something cannot be attached or the socket cannot be had
Verdict forward(Host &host, const std::vector<std::string> &attachments, const std::string &control,
                std::size_t buffer_size);

} // namespace host

#endif
