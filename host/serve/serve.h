/// Serves a program through standard input and output.
#ifndef KYBRIDGE_HOST_SERVE_H
#define KYBRIDGE_HOST_SERVE_H

#include "host/files.h"
#include "host/host.h"

namespace host {

/// Answers requests until the input ends or one of them quits.
/// @param files that commands may read and make
void serve(Host &host, const Files &files);

} // namespace host

#endif
