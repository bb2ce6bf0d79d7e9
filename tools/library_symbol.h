// Binds a function of liboru_device by name from the copy load_oru_api put
// into the process (globally), so the command line links nothing itself.
#ifndef ORU_TOOLS_LIBRARY_SYMBOL_H
#define ORU_TOOLS_LIBRARY_SYMBOL_H

#include <dlfcn.h>

#include <string>

template <typename F>
bool bind_library_symbol(const char* name, F& fn, std::string& error) {
    fn = reinterpret_cast<F>(dlsym(RTLD_DEFAULT, name));
    if (!fn) error = std::string("liboru_device lacks ") + name;
    return fn != nullptr;
}

#endif
