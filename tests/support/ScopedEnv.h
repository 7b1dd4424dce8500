// Sets environment variables for one test and puts the old values back.
#pragma once

#include <stdlib.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace CorvaneTest {

class ScopedEnv {
public:
    ScopedEnv() = default;
    ~ScopedEnv() {
        for (auto it = _saved.rbegin(); it != _saved.rend(); ++it) {
            if (it->second)
                setenv(it->first.c_str(), it->second->c_str(), 1);
            else
                unsetenv(it->first.c_str());
        }
    }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

    void set(const std::string& name, const std::string& value) {
        const char* old = getenv(name.c_str());
        _saved.emplace_back(name, old ? std::optional<std::string>(old) : std::nullopt);
        setenv(name.c_str(), value.c_str(), 1);
    }
    // HOME at home, the XDG data/state/config/cache folders below it.
    void privateHome(const std::string& home) {
        set("HOME", home);
        set("XDG_DATA_HOME", home + "/.local/share");
        set("XDG_STATE_HOME", home + "/.local/state");
        set("XDG_CONFIG_HOME", home + "/.config");
        set("XDG_CACHE_HOME", home + "/.cache");
    }

private:
    std::vector<std::pair<std::string, std::optional<std::string>>> _saved;
};

}  // namespace CorvaneTest
