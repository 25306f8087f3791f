#include "host/run/privileges.h"

#include <stdexcept>

#include <cap-ng.h>
#include <fmt/format.h>
#include <pwd.h>
#include <sys/prctl.h>

namespace host {

User find_user(const std::string &name)
{
    const passwd *entry = getpwnam(name.c_str()); // NOLINT(concurrency-mt-unsafe): there are no threads
    if (entry == nullptr)
        throw std::runtime_error(fmt::format("--user {}: there is no such user", name));
    return {name, entry->pw_uid, entry->pw_gid};
}

void give_up_privileges(const std::optional<User> &user)
{
    const bool sends = capng_have_capability(CAPNG_PERMITTED, CAP_NET_RAW) != 0;
    const bool limits_programs = capng_have_capability(CAPNG_EFFECTIVE, CAP_SETPCAP) != 0;
    capng_clear(CAPNG_SELECT_BOTH);
    if (sends)
        capng_update(CAPNG_ADD, static_cast<capng_type_t>(CAPNG_EFFECTIVE | CAPNG_PERMITTED), CAP_NET_RAW);

    if (user) {
        const auto flags = static_cast<capng_flags_t>(CAPNG_DROP_SUPP_GRP | CAPNG_CLEAR_BOUNDING);
        if (capng_change_id(static_cast<int>(user->uid), static_cast<int>(user->gid), flags) != 0)
            throw std::runtime_error(fmt::format(
                "--user {}: it takes root to become another user, or CAP_SETUID, CAP_SETGID and CAP_SETPCAP",
                user->name));
    } else if (capng_apply(limits_programs ? CAPNG_SELECT_BOTH : CAPNG_SELECT_CAPS) != 0) {
        throw std::runtime_error("the system lets no privileges be given up");
    }
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) // NOLINT(*-vararg)
        throw std::runtime_error("the system lets no privileges be given up");
}

} // namespace host
