#include "host/run/control.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <set>
#include <stdexcept>
#include <vector>

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <fmt/format.h>

#include "host/serve/dialogue.h"

namespace host {

namespace {

using sim::Descriptor;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::microseconds slice(1000); ///< after which no further command is begun while frames may wait
constexpr std::size_t most_clients = 64;

/// @throws std::runtime_error with the system's reason, when a call answered with -1
int checked(int answer, std::string_view what)
{
    if (answer < 0)
        throw std::runtime_error(fmt::format("{}: {}", what, std::strerror(errno))); // NOLINT(concurrency-mt-unsafe)
    return answer;
}

sockaddr_un address_of(const std::string &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        throw std::runtime_error(
            fmt::format("{}: a path of a socket has at most {} characters", path, sizeof address.sun_path - 1));
    path.copy(address.sun_path, path.size());
    return address;
}

const sockaddr *general(const sockaddr_un &address)
{
    return reinterpret_cast<const sockaddr *>(&address);
}

/// Removes the socket of a host that did not end in order.
/// @throws std::runtime_error when something else is there
void remove_stale(const std::string &path, const sockaddr_un &address)
{
    struct stat existing {};
    if (lstat(path.c_str(), &existing) != 0)
        return;
    if (!S_ISSOCK(existing.st_mode))
        throw std::runtime_error(fmt::format("{}: exists, and is no socket", path));
    const Descriptor probe(checked(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0), path));
    if (connect(probe.get(), general(address), sizeof address) == 0 || errno == EAGAIN)
        throw std::runtime_error(fmt::format("{}: in use, another process listens there", path));
    checked(errno == ECONNREFUSED ? unlink(path.c_str()) : -1, path);
}

} // namespace

ControlSocket::ControlSocket(std::string path) : path_(std::move(path))
{
    const sockaddr_un address = address_of(path_);
    // Of hosts that start at once, one looks and binds after the other.
    const std::string folder = std::filesystem::path(path_).parent_path().string();
    const Descriptor lock(
        checked(open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC), path_)); // NOLINT
    checked(flock(lock.get(), LOCK_EX), path_);
    remove_stale(path_, address);

    listener_.reset(checked(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0), path_));
    const mode_t mask = umask(0177);
    const int bound = bind(listener_.get(), general(address), sizeof address);
    umask(mask);
    checked(bound, path_);
    struct stat made {};
    checked(lstat(path_.c_str(), &made), path_);
    device_ = made.st_dev;
    inode_ = made.st_ino;
    checked(listen(listener_.get(), most_clients), path_);
}

ControlSocket::~ControlSocket()
{
    struct stat existing {};
    if (lstat(path_.c_str(), &existing) == 0 && existing.st_dev == device_ && existing.st_ino == inode_)
        unlink(path_.c_str());
}

Control::Client::Client(int accepted, Host &host, const Files &files)
    : socket(accepted), answers(accepted, {}, nullptr, Outlet::Pace::never_waits, SIZE_MAX),
      session(accepted, answers, std::make_unique<ClientDialogue>(host, answers, files))
{
}

Control::Control(Host &host, const std::string &path, const std::string &files)
    : host_(host), clients_files_(files), events_(checked(epoll_create1(EPOLL_CLOEXEC), "the control input")),
      always_(checked(eventfd(1, EFD_CLOEXEC), "the control input"))
{
    if (path.empty())
        standard_input_.emplace(STDIN_FILENO, host.out,
                                std::make_unique<CommandDialogue>(host, host.out, host.err, all_files_));
    else
        socket_.emplace(path);
    watch_all();
}

Control::~Control()
{
    const auto deadline = Outlet::Clock::now() + std::chrono::seconds(1);
    for (Client &client : clients_)
        client.answers.finish(deadline);
}

void Control::serve()
{
    std::array<epoll_event, most_clients> events{};
    const int count = epoll_wait(events_.get(), events.data(), static_cast<int>(events.size()), 0);
    std::set<int> ready;
    for (int i = 0; i < count; ++i)
        ready.insert(events.at(static_cast<std::size_t>(i)).data.fd);

    if (socket_ && ready.contains(socket_->descriptor()))
        accept_clients();
    for (Session *session : sessions())
        if (ready.contains(session->input()) && session->wants_input())
            session->receive();
    carry_out();
    for (Outlet *outlet : outlets())
        outlet->flush();
    clients_.remove_if(
        [](const Client &client) { return client.session.has_ended() && client.answers.pending() == 0; });
    watch_all();
}

void Control::give_to(uid_t user)
{
    if (socket_)
        checked(lchown(socket_->path().c_str(), user, static_cast<gid_t>(-1)), socket_->path());
}

void Control::tell(const std::string &notice)
{
    host_.out.write(notice + "\n");
    host_.out.flush();
    watch_all();
}

void Control::accept_clients()
{
    for (;;) {
        Descriptor client(accept4(socket_->descriptor(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (client.get() < 0)
            return;
        if (clients_.size() < most_clients) {
            clients_.emplace_back(client.release(), host_, clients_files_);
        } else {
            const std::string refusal = fmt::format("control: {} clients are connected, which is all\n", most_clients);
            send(client.get(), refusal.data(), refusal.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        }
    }
}

/// Lets each session that has something to do carry out a line or a part of one, in turn, for a slice of time.
void Control::carry_out()
{
    const std::vector<Session *> all = sessions();
    const auto end = Clock::now() + slice;
    for (std::size_t idle = 0; idle < all.size() && !host_.quitting && Clock::now() < end;) {
        Session &session = *all[turn_++ % all.size()];
        if (session.has_work()) {
            session.work();
            idle = 0;
        } else {
            ++idle;
        }
    }
}

/// Waits for what each of them needs next.
void Control::watch_all()
{
    bool has_work = false;
    std::map<int, std::uint32_t> wanted;
    if (socket_)
        wanted[socket_->descriptor()] = EPOLLIN;
    for (const Session *session : sessions()) {
        if (session->wants_input())
            wanted[session->input()] |= EPOLLIN;
        has_work = has_work || session->has_work();
    }
    for (const Outlet *outlet : outlets())
        if (outlet->pending() > 0)
            wanted[outlet->descriptor()] |= EPOLLOUT;
    if (has_work)
        wanted[always_.get()] = EPOLLIN;
    for (auto &[descriptor, events] : watched_)
        if (!wanted.contains(descriptor))
            epoll_ctl(events_.get(), EPOLL_CTL_DEL, descriptor, nullptr); // or it is closed, and gone from there
    for (const auto &[descriptor, events] : wanted) {
        const auto before = watched_.find(descriptor);
        if (before != watched_.end() && before->second == events)
            continue;
        epoll_event event{.events = events, .data = {.fd = descriptor}};
        // A regular file cannot be waited for: it has no commands for later, and can always be written to.
        const int how = before == watched_.end() ? EPOLL_CTL_ADD : EPOLL_CTL_MOD;
        if (epoll_ctl(events_.get(), how, descriptor, &event) != 0 && errno != EPERM)
            checked(-1, "the control input");
    }
    watched_ = std::move(wanted);
}

std::vector<Session *> Control::sessions()
{
    std::vector<Session *> all;
    if (standard_input_)
        all.push_back(&*standard_input_);
    for (Client &client : clients_)
        all.push_back(&client.session);
    return all;
}

std::vector<Outlet *> Control::outlets()
{
    std::vector<Outlet *> all = {&host_.out, &host_.err, host_.log.outlet};
    for (Client &client : clients_)
        all.push_back(&client.answers);
    return all;
}

} // namespace host
