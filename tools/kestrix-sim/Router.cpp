#include "Router.h"

#include <yajl/yajl_tree.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "Control.h"
#include "JsonWriter.h"
#include "TransferOrder.h"
#include "TransferStore.h"

namespace Kestrix::Sim {

namespace {

const char kKeyHeader[] = "Authorization-key";
const char kXmlType[] = "application/vnd.corvane.xferreq+xml";
const char kJsonType[] = "application/vnd.corvane.xferreq+json";
const char kControlPrefix[] = "/sim/";

const char* const kWindows[] = {"about", "preferences", "transfer-manager"};

// The largest body /sim/body hands out; the answer is built in memory.
const long kMaxFillerBytes = 64L * 1024 * 1024;
// Filler text: printable, no NUL (the plug-in cuts bodies at a NUL byte),
// and varying with the offset so that a misplaced or lost chunk shows.
const char kFillerPattern[] = "abcdefghijklmnopqrstuvwxyz0123456789";

bool startsWith(const std::string& text, const char* prefix) {
    return text.compare(0, std::char_traits<char>::length(prefix), prefix) == 0;
}

std::string trimRight(std::string text) {
    while (!text.empty() &&
           (text.back() == ' ' || text.back() == '\t' || text.back() == '\r' || text.back() == '\n'))
        text.pop_back();
    return text;
}

bool toInt(const std::string& text, long low, long high, int& value) {
    char* end = nullptr;
    long parsed = strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || parsed < low || parsed > high) return false;
    value = static_cast<int>(parsed);
    return true;
}

Response methodNotAllowed(const Request& request) {
    return Response::error(405, "Method not allowed: " + request.method + " " + request.path);
}

}  // namespace

Router::Router(const std::string& key, bool strictKey, Control& control, TransferStore& transfers, bool quiet)
    : _key(key), _strictKey(strictKey), _control(control), _transfers(transfers), _quiet(quiet) {}

bool Router::isControlPath(const std::string& path) {
    return startsWith(path, kControlPrefix);
}

bool Router::authorised(const Request& request) const {
    const std::string* value = request.header(kKeyHeader);
    if (value == nullptr) return false;
    // The plug-in sends the key file's text after the URL line as it stands,
    // so a key file that ends in a newline puts that newline into the header.
    return _strictKey ? *value == _key : trimRight(*value) == _key;
}

Outcome Router::handle(const Request& request) {
    Outcome outcome;
    const std::string& path = request.path;
    const bool get = request.method == "GET";
    const bool post = request.method == "POST";
    if (!authorised(request)) {
        outcome.response = Response::error(403, "Missing or wrong Authorization-key");
    } else if (path == "/v4/kestrix/version") {
        outcome.response = get ? version() : methodNotAllowed(request);
    } else if (path == "/v4/kestrix/exit") {
        outcome.response = post ? exitCall(outcome) : methodNotAllowed(request);
    } else if (path == "/v4/transfers/activity") {
        outcome.response = post ? activity(request) : methodNotAllowed(request);
    } else if (path == "/transfers/") {
        outcome.response = post ? startTransfers(request) : methodNotAllowed(request);
    } else if (path == "/sim/control") {
        outcome.response = post ? control(request) : methodNotAllowed(request);
    } else if (path == "/sim/state") {
        outcome.response = get ? state() : methodNotAllowed(request);
    } else if (path == "/sim/body") {
        outcome.response = get ? filler(request) : methodNotAllowed(request);
    } else if (path == "/sim/activity") {
        outcome.response = post ? scriptActivity(request) : methodNotAllowed(request);
    } else {
        outcome.response = Response::error(404, "Not found: " + path);
        for (const char* name : kWindows) {
            if (path == std::string("/windows/") + name + "/")
                outcome.response = get ? window(name) : methodNotAllowed(request);
        }
    }
    return outcome;
}

Response Router::version() const {
    JsonWriter json;
    json.openMap();
    json.field("name", "Corvane Kestrix");
    json.field("version", _control.versionText());
    json.field("api_version", "4");
    json.field("platform", "linux");
    json.closeMap();
    return Response::json(200, json.text());
}

Response Router::exitCall(Outcome& outcome) const {
    const int reply = _control.exitReply();
    if (reply == 403) return Response::error(403, "Exit refused");
    if (reply == 404) return Response::error(404, "Not found: /v4/kestrix/exit");
    outcome.exitAfter = true;
    return Response::json(200, "{\"status\":\"exiting\"}");
}

Response Router::activity(const Request& request) const {
    std::string scripted;
    if (_control.nextScriptedActivity(scripted)) return Response::json(200, scripted);
    char parseError[512] = "";
    std::unique_ptr<yajl_val_s, void (*)(yajl_val)> root(
        yajl_tree_parse(request.body.c_str(), parseError, sizeof(parseError)), yajl_tree_free);
    if (!root) return Response::error(400, std::string("JSON error: ") + parseError);
    const char* tokenPath[] = {"iteration_token", nullptr};
    yajl_val token = yajl_tree_get(root.get(), tokenPath, yajl_t_string);
    return Response::json(200, _transfers.activity(token ? YAJL_GET_STRING(token) : ""));
}

Response Router::startTransfers(const Request& request) {
    const std::string* type = request.header("Content-Type");
    std::vector<TransferOrder> orders;
    std::string error;
    if (type != nullptr && startsWith(*type, kXmlType)) {
        TransferOrder order;
        if (!parseXferreqXml(request.body, order, error))
            return Response::error(400, "Invalid transfer request: " + error);
        orders.push_back(order);
    } else if (type != nullptr && startsWith(*type, kJsonType)) {
        if (!parseXferreqJson(request.body, orders, error))
            return Response::error(400, "Invalid transfer request: " + error);
    } else {
        return Response::error(415, "Unsupported content type: " + (type ? *type : std::string()));
    }
    JsonWriter json;
    json.openMap();
    json.key("transfers");
    json.openArray();
    for (const auto& order : orders) _transfers.start(order, json);
    json.closeArray();
    json.closeMap();
    return Response::json(200, json.text());
}

Response Router::window(const std::string& name) {
    _control.windowOpened(name);
    if (!_quiet) fprintf(stderr, "kestrix-sim: window opened: %s\n", name.c_str());
    JsonWriter json;
    json.openMap();
    json.field("window", name);
    json.field("opened", true);
    json.closeMap();
    return Response::json(200, json.text());
}

Response Router::control(const Request& request) {
    std::string value;
    bool behaviourGiven = false;
    Behaviour behaviour;
    if (request.queryValue("mode", value)) {
        if (!parseMode(value, behaviour.mode)) return Response::error(400, "Unknown mode: " + value);
        behaviourGiven = true;
    }
    if (request.queryValue("delay_ms", value)) {
        if (!toInt(value, 0, INT_MAX, behaviour.delayMs))
            return Response::error(400, "Invalid delay_ms: " + value);
        behaviourGiven = true;
    }
    if (request.queryValue("path", value)) {
        behaviour.path = value;
        behaviourGiven = true;
    }
    if (request.queryValue("times", value)) {
        if (!toInt(value, 1, INT_MAX, behaviour.times))
            return Response::error(400, "Invalid times: " + value);
        behaviourGiven = true;
    }
    int exitReply = 0;
    if (request.queryValue("exit_reply", value)) {
        if (!toInt(value, 200, 404, exitReply) || (exitReply != 200 && exitReply != 403 && exitReply != 404))
            return Response::error(400, "Invalid exit_reply: " + value);
    }
    // Everything checked: now apply.
    if (behaviourGiven) _control.setBehaviour(behaviour);
    if (exitReply != 0) _control.setExitReply(exitReply);
    if (request.queryValue("version_text", value)) _control.setVersionText(value);
    return state();
}

Response Router::state() const {
    const Behaviour behaviour = _control.behaviour();
    JsonWriter json;
    json.openMap();
    json.field("mode", modeName(behaviour.mode));
    json.field("delay_ms", static_cast<long long>(behaviour.delayMs));
    json.field("path", behaviour.path);
    json.field("times", static_cast<long long>(behaviour.times));
    json.field("exit_reply", static_cast<long long>(_control.exitReply()));
    json.field("version_text", _control.versionText());
    json.key("windows");
    json.openMap();
    for (const auto& entry : _control.windowsOpened())
        json.field(entry.first, static_cast<long long>(entry.second));
    json.closeMap();
    json.field("scripted_activity", _control.scriptedActivityCount());
    json.key("transfers");
    _transfers.describeAll(json);
    json.closeMap();
    return Response::json(200, json.text());
}

Response Router::filler(const Request& request) const {
    std::string value;
    int bytes = 0;
    if (!request.queryValue("bytes", value) || !toInt(value, 0, kMaxFillerBytes, bytes))
        return Response::error(400, "Invalid bytes: " + value);
    bool withLength = true;
    if (request.queryValue("length", value)) {
        if (value != "0" && value != "1") return Response::error(400, "Invalid length: " + value);
        withLength = value == "1";
    }
    Response response;
    response.contentType = "application/octet-stream";
    response.withLength = withLength;
    // Doubling keeps building a large body down to a few copies.
    const size_t size = static_cast<size_t>(bytes);
    response.body.reserve(size);
    response.body.assign(kFillerPattern, std::min(size, sizeof(kFillerPattern) - 1));
    while (response.body.size() < size)
        response.body.append(response.body, 0, std::min(response.body.size(), size - response.body.size()));
    return response;
}

Response Router::scriptActivity(const Request& request) {
    std::string value;
    int times = 1;
    if (request.queryValue("times", value) && !toInt(value, 1, INT_MAX, times))
        return Response::error(400, "Invalid times: " + value);
    _control.scriptActivity(request.body, times);
    return state();
}

}  // namespace Kestrix::Sim
