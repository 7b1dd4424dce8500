// Thrown when a background thread cannot be started or joined.
#pragma once

#include <stdexcept>
#include <string>

namespace Kestrix {
namespace Web {

class SystemException : public std::runtime_error {
public:
    explicit SystemException(const std::string& message);
};

}  // namespace Web
}  // namespace Kestrix
