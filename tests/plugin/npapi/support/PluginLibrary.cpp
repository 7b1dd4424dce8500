#include "PluginLibrary.h"

#include <dlfcn.h>

#include <stdexcept>

namespace CorvaneTest {

namespace {

template <typename Function>
Function lookUp(void* handle, const char* name) {
    return reinterpret_cast<Function>(dlsym(handle, name));
}

}  // namespace

PluginLibrary::PluginLibrary(const std::string& path) {
    // RTLD_LOCAL as the hosts do: the library's symbols stay out of the
    // global scope, so a symbol the plug-in forgot to define is not
    // silently taken from the test program.
    _handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!_handle) {
        const char* error = dlerror();
        throw std::runtime_error("cannot load " + path + ": " + (error ? error : "unknown error"));
    }
    _entryPoints.getMIMEDescription = lookUp<NP_GetMIMEDescriptionFunc>(_handle, "NP_GetMIMEDescription");
    _entryPoints.getValue = lookUp<NP_GetValueFunc>(_handle, "NP_GetValue");
    _entryPoints.initialize = lookUp<NP_InitializeFunc>(_handle, "NP_Initialize");
    _entryPoints.getEntryPoints = lookUp<NP_GetEntryPointsFunc>(_handle, "NP_GetEntryPoints");
    _entryPoints.shutdown = lookUp<NP_ShutdownFunc>(_handle, "NP_Shutdown");
}

PluginLibrary::~PluginLibrary() {
    if (_handle) {
        dlclose(_handle);
    }
}

std::vector<std::string> PluginLibrary::missingRequiredSymbols() const {
    std::vector<std::string> missing;
    if (!_entryPoints.getValue) {
        missing.push_back("NP_GetValue");
    }
    if (!_entryPoints.getMIMEDescription) {
        missing.push_back("NP_GetMIMEDescription");
    }
    if (!_entryPoints.initialize) {
        missing.push_back("NP_Initialize");
    }
    if (!_entryPoints.shutdown) {
        missing.push_back("NP_Shutdown");
    }
    return missing;
}

bool PluginLibrary::exports(const std::string& symbol) const {
    return dlsym(_handle, symbol.c_str()) != nullptr;
}

}  // namespace CorvaneTest
