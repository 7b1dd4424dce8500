// A page's request body: the JSON parser, the tree lookups, and the rules
// that decide whether the body may go to the local client.
#include "FuzzEnv.h"
#include "Json.h"
#include "PlugIn.h"

using Kestrix::Web::Json;
using Kestrix::Web::PlugIn;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static PlugIn* const plugin = [] {
        auto* made = new PlugIn();  // kept to the end: it has no threads until init()
        made->setPageHostname("example.com");
        made->setLastSelectedPath("/home/u/down");
        PlugIn::addToApprovedFileList({"/home/u/a.txt", "/home/u/dir/", "C:\\u\\b.txt"});
        return made;
    }();
    const std::string body = fuzzText(data, size);
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
