// Fresh random UUIDs in their lower-case text form (libuuid).
#pragma once

#include <string>

namespace Kestrix::Sim {

std::string newUuid();

}  // namespace Kestrix::Sim
