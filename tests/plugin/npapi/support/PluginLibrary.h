// A plug-in library loaded as a Unix host loads it (dlopen of the .so),
// with its exported entry points. It must outlive every FakeBrowser that
// uses its entry points.
#pragma once

#include <string>
#include <vector>

#include "PluginEntryPoints.h"

namespace CorvaneTest {

class PluginLibrary {
public:
    // Throws std::runtime_error with the loader's message when the
    // library cannot be loaded.
    explicit PluginLibrary(const std::string& path);
    ~PluginLibrary();
    PluginLibrary(const PluginLibrary&) = delete;
    PluginLibrary& operator=(const PluginLibrary&) = delete;

    const PluginEntryPoints& entryPoints() const { return _entryPoints; }
    // Which of NP_GetValue, NP_GetMIMEDescription, NP_Initialize and
    // NP_Shutdown are missing: a QtWebKit host silently ignores a library
    // that lacks any of them.
    std::vector<std::string> missingRequiredSymbols() const;
    bool exports(const std::string& symbol) const;

private:
    void* _handle = nullptr;
    PluginEntryPoints _entryPoints;
};

}  // namespace CorvaneTest
