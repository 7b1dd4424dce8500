// Asks the local client to bring up one of its own windows.
#pragma once

#include <string>

namespace Kestrix {
namespace Web {

class Window {
public:
    explicit Window(const std::string& name);
    virtual ~Window() = default;

    // GET "/windows/<name>/<arg>". Window requests have never carried the
    // API version prefix, and the client expects them without it.
    // True when the client answered at all, whatever the status.
    bool show(const std::string& arg);

    const std::string& name() const { return _name; }

private:
    std::string _name;
};

}  // namespace Web
}  // namespace Kestrix
