// Shared libraries by dlopen. Names stay local to the library, and all are bound at once, so that a library with a
// missing symbol is refused here and does not end the program later.
#include "pal/module.h"

#include <cstdio>
#include <cstring>

#include <dlfcn.h>

namespace pal {

// A path without a slash would be searched for in the system's folders.
Module* ModuleOpen(const char* path, char* reason, size_t size) {
    char local[4096];
    if (!std::strchr(path, '/')) {
        std::snprintf(local, sizeof local, "./%s", path);
        path = local;
    }
    void* handle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    const char* text = handle ? nullptr : dlerror();
    std::snprintf(reason, size, "%s", text ? text : "");
    return static_cast<Module*>(handle);
}

void* ModuleSymbol(Module* module, const char* name) { return dlsym(module, name); }

void ModuleClose(Module* module) {
    if (module) dlclose(module);
}

}   // namespace pal
