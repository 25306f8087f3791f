// Loads the library named on the command line as a management process does, with every symbol resolved at once, and
// delivers an event when it has closed it again: the adviser knows no way to take a registration back.
#include <dlfcn.h>
#include <err.h>
#include <stddef.h>

int main(int argc, char **argv)
{
    if (argc != 2)
        errx(2, "usage: LIBRARY");
    void *module = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (!module || !dlsym(module, "ky_bridge_init"))
        errx(1, "%s", dlerror());
    unsigned (*event)(unsigned, const void *);
    *(void **)&event = dlsym(module, "__bridge_port_add_swid_callbacks");
    if (!event || dlclose(module) != 0)
        errx(1, "%s", dlerror());
    return (int)event(9, NULL);
}
