// Loading a companion module (the file library, the effects library) at run
// time by name and finding one of its entry points.
#pragma once

#include <cstdint>

namespace rz {

// Owns one reference to a loaded module; the module is released when the
// owner goes away.
class LoadedModule {
  public:
    LoadedModule() = default;
    ~LoadedModule();
    LoadedModule(const LoadedModule &) = delete;
    LoadedModule &operator=(const LoadedModule &) = delete;

    // ST_SUCCESS, or ST_LIBRARY_NOT_LOADED when the module cannot be found.
    // A bare name is looked up the system's way, then beside this library.
    int32_t open(const char *module);
    // ST_SUCCESS, or ST_LIBRARY_NOT_LOADED when the entry point is missing.
    int32_t entry(const char *name, void **fn) const;
    // Gives up ownership: the module stays loaded for the process.
    void keep() { handle_ = nullptr; }
    bool loaded() const { return handle_ != nullptr; }

  private:
    void *handle_ = nullptr;
};

// Finds entry in module; on success the module stays loaded for the rest of
// the process (its functions may be called at any later time), on failure
// nothing stays loaded. ST_SUCCESS or ST_LIBRARY_NOT_LOADED (-16).
int32_t LoadModuleEntry(const char *module, const char *entry, void **fn);

} // namespace rz
