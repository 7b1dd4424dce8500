#include "SystemException.h"

namespace Kestrix {
namespace Web {

SystemException::SystemException(const std::string& message) : std::runtime_error(message) {}

}  // namespace Web
}  // namespace Kestrix
