#include "Uuid.h"

#include <uuid/uuid.h>

namespace Kestrix::Sim {

std::string newUuid() {
    uuid_t id;
    uuid_generate_random(id);
    char text[37];
    uuid_unparse_lower(id, text);
    return text;
}

}  // namespace Kestrix::Sim
