/// The device end of PTF's device socket: frames come from, and go to, a packet test framework instead of interfaces.
///
/// A message is three signed 32-bit numbers, little-endian: its kind, a port and one more; bytes may follow. What kinds
/// there are, and which end sends which, is PTF's (its "nn" platform). It travels through a pair socket of nanomsg.
#ifndef KYBRIDGE_HOST_PTF_H
#define KYBRIDGE_HOST_PTF_H

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>

#include "host/host.h"

namespace host {

/// Port n of the tests is the n-th port that was announced, counted from 0.
class PtfSocket {
public:
    /// @param address to listen at: "tcp://127.0.0.1:PORT" or "ipc://PATH"
    /// @param notice takes a line, without its end, for the person in front
    /// Throws std::runtime_error with address and reason when nobody can listen there.
    PtfSocket(Host &host, const std::string &address, std::function<void(const std::string &)> notice);
    ~PtfSocket();
    PtfSocket(const PtfSocket &) = delete;
    PtfSocket &operator=(const PtfSocket &) = delete;

    int descriptor() const { return readable_; } ///< readable: serve has something to do
    void serve();                                ///< takes messages and answers them; about a millisecond's work

private:
    struct Message;

    void take(const Message &message);
    void set_link(const Message &message, bool up);
    void forward(const Message &message);
    void inform(const Message &message);
    void send(Message message);
    std::uint32_t log_port(std::int32_t port) const;
    std::optional<std::int32_t> port_of(std::uint32_t log_port) const;

    Host &host_;
    std::function<void(const std::string &)> notice_;
    int socket_;
    int readable_ = -1;
    bool is_losing_ = false; ///< the last frame that left found nobody to take it
};

} // namespace host

#endif
