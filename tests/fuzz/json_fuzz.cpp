// A page's request body: the JSON parser, the tree lookups, and the rules
// that decide whether the body may go to the local client.
#include <stddef.h>
#include <stdint.h>

#include <string>

#include "FuzzEnv.h"
#include "Json.h"
#include "PlugIn.h"

using Kestrix::Web::Json;
using Kestrix::Web::PlugIn;

namespace {
PlugIn* plugin = nullptr;
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    CorvaneFuzz::privateHome();
    plugin = new PlugIn();  // kept to the end: it has no threads until init()
    plugin->setPageHostname("example.com");
    plugin->setLastSelectedPath("/home/u/down");
    PlugIn::addToApprovedFileList({"/home/u/a.txt", "/home/u/dir/", "C:\\u\\b.txt"});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string body(reinterpret_cast<const char*>(data), size);

    Json json;
    const bool parsed = json.parse(body);
    const char* appId[] = {"corvane_kestrix_settings", "app_id", nullptr};
    const char* first[] = {"transfer_specs", nullptr};
    json.getString(appId);
    json.isTrue(first);
    json.containsError();
    if (!parsed) json.err();

    // A body the parser refuses must never be approved.
    const std::string verdict = plugin->isJsonValid(body);
    if (!parsed && verdict.empty()) __builtin_trap();
    return 0;
}
