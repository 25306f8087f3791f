/// The sessions of a host that does something else meanwhile: standard input, or the clients of a Unix socket.
#ifndef KYBRIDGE_HOST_CONTROL_H
#define KYBRIDGE_HOST_CONTROL_H

#include <cstdint>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "host/run/session.h"
#include "sim/descriptor.h"

namespace host {

/// A Unix socket that only its owner can connect to. Failures throw std::runtime_error with the path and the reason.
class ControlSocket {
public:
    /// A socket that a dead host has left is taken over; one where somebody listens is not.
    explicit ControlSocket(std::string path);
    ~ControlSocket(); ///< removes it, unless another has taken its place
    ControlSocket(const ControlSocket &) = delete;
    ControlSocket &operator=(const ControlSocket &) = delete;

    int descriptor() const { return listener_.get(); }
    const std::string &path() const { return path_; }

private:
    std::string path_;
    sim::Descriptor listener_;
    dev_t device_ = 0; ///< with inode_, what tells this socket from a later one of the same path
    ino_t inode_ = 0;
};

class Control {
public:
    /// @param path of the socket; empty: commands come from standard input
    /// @param files folder whose files clients may read and make; empty: none
    /// Throws std::runtime_error when one of them cannot be had.
    Control(Host &host, const std::string &path, const std::string &files);
    ~Control(); ///< gives the clients their last answers
    Control(const Control &) = delete;
    Control &operator=(const Control &) = delete;

    /// Readable: serve has something to do.
    int descriptor() const { return events_.get(); }

    /// Takes input, carries out commands in turn, and sends answers; about a millisecond's work.
    void serve();

    /// Makes a user the owner of the socket. Throws std::runtime_error with the reason.
    void give_to(uid_t user);

    /// Prints a line on standard output.
    void tell(const std::string &notice);

private:
    struct Client {
        Client(int accepted, Host &host, const Files &files);

        sim::Descriptor socket;
        Outlet answers;
        Session session;
    };

    void accept_clients();
    void carry_out();
    void watch_all();
    std::vector<Session *> sessions();
    std::vector<Outlet *> outlets();

    Host &host_;
    Files all_files_;
    FolderFiles clients_files_;
    sim::Descriptor events_;
    sim::Descriptor always_;               ///< readable all the time: watched while there is something to carry out
    std::map<int, std::uint32_t> watched_; ///< epoll's events by descriptor
    std::optional<ControlSocket> socket_;
    std::list<Client> clients_;
    std::optional<Session> standard_input_;
    std::size_t turn_ = 0; ///< whose it is among the sessions
};

} // namespace host

#endif
