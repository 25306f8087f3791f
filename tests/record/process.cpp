// A management process that knows nothing of recorders. Its services are its own, in the program itself; the module is
// linked, or loaded with dlopen where it says BY_DLOPEN. It works for as many rounds as it is told (0: without end),
// writes a byte to standard output after each call that has returned, and ends with status 7. Its last argument: 1; 2,
// another thread comes into the module; or 0, in its rounds the process can make no system call but write and get no
// memory, nor can anybody who is in it; it does not stop the module.
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <thread>

#include <dlfcn.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "bench/services.h"
#include "kybridge/ky_bridge.h"

namespace {

struct Functions {
    decltype(&::ky_bridge_init) init;
    decltype(&::ky_bridge_set) set;
    decltype(&::ky_bridge_port_set) port_set;
    decltype(&::ky_bridge_clear_port) clear_port;
    decltype(&::ky_bridge_port_get) port_get;
    decltype(&::ky_bridge_deinit) deinit;
} module;

Functions find_functions(const char *file)
{
#ifdef BY_DLOPEN
    void *const loaded = dlopen(file, RTLD_NOW | RTLD_LOCAL);
    if (loaded == nullptr) {
        std::fprintf(stderr, "%s\n", dlerror());
        std::exit(1);
    }
    const auto by_name = [loaded]<typename Function>(Function &function, const char *name) {
        function = reinterpret_cast<Function>(dlsym(loaded, name));
    };
    Functions found{};
    by_name(found.init, "ky_bridge_init");
    by_name(found.set, "ky_bridge_set");
    by_name(found.port_set, "ky_bridge_port_set");
    by_name(found.clear_port, "ky_bridge_clear_port");
    by_name(found.port_get, "ky_bridge_port_get");
    by_name(found.deinit, "ky_bridge_deinit");
    ky_swid_validation_func_t *validation = nullptr;
    by_name(validation, "swid_validation_func_ptr");
    *validation = bench::validate_swid;
    return found;
#else
    static_cast<void>(file);
    swid_validation_func_ptr = bench::validate_swid;
    return {ky_bridge_init,       ky_bridge_set,      ky_bridge_port_set,
            ky_bridge_clear_port, ky_bridge_port_get, ky_bridge_deinit};
#endif
}

void returned(ky_status_t status)
{
    if (status != KY_STATUS_SUCCESS || write(STDOUT_FILENO, ".", 1) != 1)
        std::exit(1);
}

/// bridge_port_set of an SDK that lets another thread into the module, which is not allowed.
ky_status_t two_inside(ky_access_cmd_t cmd, std::uint16_t bridge_id, std::uint32_t log_port, std::uint16_t vlan,
                       std::uint32_t egress_mode, std::uint32_t is_internal)
{
    std::thread([bridge_id] {
        std::uint32_t count = 0;
        static_cast<void>(module.port_get(bridge_id, nullptr, &count, 0));
    }).join();
    return module.port_set(cmd, bridge_id, log_port, vlan, egress_mode, is_internal);
}

bool is_sealed = false;

/// From now on a system call other than write and _exit kills the process, and asking for memory does.
void seal()
{
    const std::uint32_t number = offsetof(seccomp_data, nr);
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, number), BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_write, 1, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit_group, 0, 1), BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS)};
    const sock_fprog program = {std::size(filter), filter};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0)
        std::exit(1);
    is_sealed = true;
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now); // a system call on few machines, where nobody can read the time any more
}

} // namespace

extern "C" void *__libc_malloc(size_t size);
extern "C" void *malloc(size_t size)
{
    if (is_sealed)
        __builtin_trap();
    return __libc_malloc(size);
}

int main(int argc, char **argv)
{
    if (argc != 4)
        return 2;
    module = find_functions(argv[1]);
    const unsigned long rounds = std::strtoul(argv[2], nullptr, 10);
    bench::bridge_port_set_target = *argv[3] == '2' ? two_inside : module.port_set;

    ky_bridge_init_params_t parameters{};
    parameters.sdk_mode = KY_BRIDGE_SDK_MODE_802_1D;
    parameters.sdk_mode_params.mode_1D.max_bridge_num = 8;
    parameters.sdk_mode_params.mode_1D.max_virtual_ports_num = 64;
    returned(module.init(&parameters));
    ky_port_event_t event{};
    event.log_port = 0x10001;
    returned(bench::port_event(KY_ADVISER_EVENT_PORT_ADD_INTO_SWID, &event));
    std::uint16_t bridge = 0;
    returned(module.set(KY_ACCESS_CMD_CREATE, &bridge, 0));
    if (*argv[3] == '0')
        seal();

    for (unsigned long round = 0; rounds == 0 || round < rounds; ++round) {
        const auto vlan = static_cast<std::uint16_t>(100 + round % 8);
        returned(module.port_set(KY_ACCESS_CMD_ADD, bridge, event.log_port, vlan, round % 2, 0));
        ky_bridge_port_t list[8];
        std::uint32_t count = 8;
        returned(module.port_get(bridge, list, &count, 0));
        if (round % 4 == 3)
            returned(module.clear_port(event.log_port, 0));
        else
            returned(module.port_set(KY_ACCESS_CMD_DELETE, bridge, event.log_port, vlan, round % 2, 0));
    }
    if (is_sealed)
        _exit(7);
    returned(module.deinit());
    return 7;
}
