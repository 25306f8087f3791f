#include "host/serve/serve.h"

#include <memory>

#include <unistd.h>

#include "host/serve/dialogue.h"

namespace host {

void serve(Host &host, const Files &files)
{
    Session session(STDIN_FILENO, host.out, std::make_unique<RequestDialogue>(host, host.out, files));
    while (!host.quitting && !session.has_ended()) {
        if (session.has_work())
            session.work();
        else
            session.receive();
        host.out.flush();
    }
}

} // namespace host
