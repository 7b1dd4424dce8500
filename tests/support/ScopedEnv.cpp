#include "ScopedEnv.h"

#include <stdlib.h>

namespace CorvaneTest {

ScopedEnv::~ScopedEnv() {
    for (auto it = _saved.rbegin(); it != _saved.rend(); ++it) {
        if (it->second)
            setenv(it->first.c_str(), it->second->c_str(), 1);
        else
            unsetenv(it->first.c_str());
    }
}

void ScopedEnv::remember(const std::string& name) {
    const char* old = getenv(name.c_str());
    _saved.emplace_back(name, old ? std::optional<std::string>(old) : std::nullopt);
}

void ScopedEnv::set(const std::string& name, const std::string& value) {
    remember(name);
    setenv(name.c_str(), value.c_str(), 1);
}

void ScopedEnv::unset(const std::string& name) {
    remember(name);
    unsetenv(name.c_str());
}

void ScopedEnv::privateHome(const std::string& home) {
    set("HOME", home);
    set("XDG_DATA_HOME", home + "/.local/share");
    set("XDG_STATE_HOME", home + "/.local/state");
    set("XDG_CONFIG_HOME", home + "/.config");
    set("XDG_CACHE_HOME", home + "/.cache");
}

}  // namespace CorvaneTest
