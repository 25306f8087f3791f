/// Forwarding between network interfaces while commands go on being taken.
#ifndef KYBRIDGE_HOST_LIVE_H
#define KYBRIDGE_HOST_LIVE_H

#include <string>
#include <vector>

#include "host/host.h"
#include "host/run/interpreter.h"
#include "sim/live.h"

namespace host {

/// Keeps SIGINT and SIGTERM from ending the process, so that forwarding can end in order. To be called before
/// anything else is started.
void hold_signals();

/// What forwarding is done with: attachments, or ptf.
struct LiveOptions {
    std::vector<std::string> attachments; ///< "PORT=INTERFACE" each, a port by its number or its name
    std::string ptf;                      ///< where a packet test framework finds all ports: "tcp://127.0.0.1:PORT"
    std::string control;                  ///< path of a Unix socket for clients; empty: commands from standard input
    std::string control_files;            ///< folder whose files clients may read and make; empty: none
    std::string user;                     ///< who the process becomes before it forwards; empty: it stays who it is
    /// Of the kernel's memory, for each interface's frames until they are forwarded.
    std::size_t buffer_megabytes = sim::Live::buffer_size_default >> 20;

    bool are_given() const { return !attachments.empty() || !ptf.empty(); }
};

/// Forwards between the interfaces that ports are attached to, or between the ports of a packet test framework, until
/// SIGINT, SIGTERM or the command 'quit'. Commands come from standard input, or from the clients of a Unix socket, each
/// of which gets its answers.
/// @return wrong_script, reported, when something cannot be attached, had or given up
Verdict forward(Host &host, const LiveOptions &options);

} // namespace host

#endif
