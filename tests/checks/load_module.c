// Loads the library named on the command line as a management process does, with every symbol resolved at once.
#include <dlfcn.h>
#include <err.h>

int main(int argc, char **argv)
{
    if (argc != 2)
        errx(2, "usage: LIBRARY");
    void *module = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (!module || !dlsym(module, "ky_bridge_init"))
        errx(1, "%s", dlerror());
    return dlclose(module);
}
