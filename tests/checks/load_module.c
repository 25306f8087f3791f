// Loads the library named on the command line as a management process does, with every symbol resolved at once.
#include <dlfcn.h>
#include <stdio.h>

int main(int argc, char **argv)
{
    if (argc != 2) {
        fprintf(stderr, "usage: %s LIBRARY\n", argv[0]);
        return 2;
    }
    void *module = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (!module || !dlsym(module, "ky_bridge_init")) {
        fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    return dlclose(module);
}
