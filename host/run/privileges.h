/// What the process may do while it forwards: as little as it needs.
#ifndef KYBRIDGE_HOST_PRIVILEGES_H
#define KYBRIDGE_HOST_PRIVILEGES_H

#include <optional>
#include <string>

#include <sys/types.h>

namespace host {

struct User {
    std::string name;
    uid_t uid;
    gid_t gid;
};

/// @throws std::runtime_error that names a user who is not known
User find_user(const std::string &name);

/// Keeps CAP_NET_RAW, as far as the process has it, and nothing else, for good: neither the process nor a program
/// that it runs gets anything back.
/// @param user who the process is from now on; none: who it is
/// @throws std::runtime_error with the reason, when something could not be given up
void give_up_privileges(const std::optional<User> &user);

} // namespace host

#endif
