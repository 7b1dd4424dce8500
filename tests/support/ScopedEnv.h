// Sets environment variables for one test and puts the old values back.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace CorvaneTest {

class ScopedEnv {
public:
    ScopedEnv() = default;
    ~ScopedEnv();
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

    void set(const std::string& name, const std::string& value);
    void unset(const std::string& name);
    // HOME at home, the XDG data/state/config/cache folders below it.
    void privateHome(const std::string& home);

private:
    void remember(const std::string& name);
    std::vector<std::pair<std::string, std::optional<std::string>>> _saved;
};

}  // namespace CorvaneTest
