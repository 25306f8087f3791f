// Opens an SDK and the module with the flags that are asked for, and clears a port that has a virtual port.
//
//   loading SDK FLAGS MODULE FLAGS    SDK "-": this program is the SDK; FLAGS of N(OW), L(AZY), G(LOBAL), e.g. NG
//
// Exit status: that of ky_bridge_clear_port, or 99 when something cannot be opened.
#include <dlfcn.h>
#include <err.h>
#include <string.h>

#include <kybridge/ky_bridge.h>

static void *open_with(const char *file, const char *flags)
{
    void *handle = dlopen(file, (strchr(flags, 'N') ? RTLD_NOW : RTLD_LAZY) | (strchr(flags, 'G') ? RTLD_GLOBAL : 0));
    if (!handle)
        errx(99, "%s", dlerror());
    return handle;
}

static ky_status_t serve_all(unsigned int swid)
{
    return swid == 0 ? KY_STATUS_SUCCESS : KY_STATUS_PARAM_ERROR;
}

int main(int argc, char **argv)
{
    if (argc != 5)
        errx(2, "usage: SDK FLAGS MODULE FLAGS");
    if (strcmp(argv[1], "-") != 0)
        open_with(argv[1], argv[2]);
    void *module = open_with(argv[3], argv[4]);

    __typeof__(&ky_bridge_init) init;
    __typeof__(&ky_bridge_clear_undo) announce;
    __typeof__(&ky_bridge_set) set;
    __typeof__(&ky_bridge_port_set) port_set;
    __typeof__(&ky_bridge_clear_port) clear;
    *(void **)&init = dlsym(module, "ky_bridge_init");
    *(void **)&announce = dlsym(module, "ky_bridge_clear_undo");
    *(void **)&set = dlsym(module, "ky_bridge_set");
    *(void **)&port_set = dlsym(module, "ky_bridge_port_set");
    *(void **)&clear = dlsym(module, "ky_bridge_clear_port");
    *(ky_swid_validation_func_t *)dlsym(module, "swid_validation_func_ptr") = serve_all;

    const ky_bridge_init_params_t params = {KY_BRIDGE_SDK_MODE_802_1D, {{1, 1, 0}}};
    uint16_t bridge = 0;
    if (init(&params) != 0 || announce(0x10001, 0) != 0 || set(KY_ACCESS_CMD_CREATE, &bridge, 0) != 0 ||
        port_set(KY_ACCESS_CMD_ADD, bridge, 0x10001, 100, KY_EGRESS_MODE_TAGGED, 0) != 0)
        errx(1, "no virtual port");
    return (int)clear(0x10001, 1);
}
