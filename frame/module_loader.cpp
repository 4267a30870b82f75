// Run-time loading of companion modules through the dynamic loader. A bare
// module name is first resolved by the loader's own search (RUNPATH,
// LD_LIBRARY_PATH, the system folders), then in the folder of the object
// holding this code and in the kernel library's folder, where the family's
// modules are installed together. The last two matter when the loader's
// idea of the caller is wrong, as under AddressSanitizer, whose dlopen
// wrapper makes the runtime the caller and so hides our RUNPATH.
#include "module_loader.h"

#include <rzimg.h>

#include <cstring>
#include <dlfcn.h>

namespace rz {

namespace {

// The module in the folder of the object that holds address.
void *OpenBeside(const void *address, const char *module) {
    Dl_info info{};
    if (!dladdr(address, &info) || !info.dli_fname)
        return nullptr;
    const char *slash = std::strrchr(info.dli_fname, '/');
    if (!slash)
        return nullptr;
    const size_t dir = size_t(slash - info.dli_fname) + 1;
    const size_t len = std::strlen(module);
    char path[4096];
    if (dir + len + 1 > sizeof path)
        return nullptr;
    std::memcpy(path, info.dli_fname, dir);
    std::memcpy(path + dir, module, len + 1);
    return dlopen(path, RTLD_NOW | RTLD_LOCAL);
}

} // namespace

LoadedModule::~LoadedModule() {
    if (handle_)
        dlclose(handle_);
}

int32_t LoadedModule::open(const char *module) {
    if (handle_) {
        dlclose(handle_);
        handle_ = nullptr;
    }
    if (!module || !*module)
        return ST_LIBRARY_NOT_LOADED;
    handle_ = dlopen(module, RTLD_NOW | RTLD_LOCAL);
    if (!handle_ && !std::strchr(module, '/'))
        handle_ = OpenBeside(reinterpret_cast<const void *>(&LoadModuleEntry), module);
    if (!handle_ && !std::strchr(module, '/'))
        handle_ = OpenBeside(reinterpret_cast<const void *>(&KrnMemAlloc), module);
    return handle_ ? ST_SUCCESS : ST_LIBRARY_NOT_LOADED;
}

int32_t LoadedModule::entry(const char *name, void **fn) const {
    if (!fn)
        return ST_NULL_POINTER;
    *fn = nullptr;
    if (!handle_ || !name)
        return ST_LIBRARY_NOT_LOADED;
    *fn = dlsym(handle_, name);
    return *fn ? ST_SUCCESS : ST_LIBRARY_NOT_LOADED;
}

int32_t LoadModuleEntry(const char *module, const char *entry, void **fn) {
    if (!fn)
        return ST_NULL_POINTER;
    *fn = nullptr;
    LoadedModule m;
    int32_t st = m.open(module);
    if (st == ST_SUCCESS)
        st = m.entry(entry, fn);
    if (st == ST_SUCCESS)
        m.keep();
    return st;
}

} // namespace rz
