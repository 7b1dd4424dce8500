// The local client's base URL, split into its parts (an invalid one is logged).
#include "FuzzEnv.h"
#include "Url.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Kestrix::Web::Url(fuzzText(data, size)).port(443);
    return 0;
}
