// The local client's base URL, split into its parts.
#include <stddef.h>
#include <stdint.h>

#include <string>

#include "FuzzEnv.h"
#include "Url.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    CorvaneFuzz::privateHome();  // an invalid URL is logged
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Kestrix::Web::Url url(std::string(reinterpret_cast<const char*>(data), size));
    url.port(443);
    return 0;
}
