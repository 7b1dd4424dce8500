#include "TransfersPoller.h"

#include <algorithm>
#include <chrono>

#include "HttpRequest.h"
#include "HttpResponse.h"
#include "Json.h"
#include "Messages.h"
#include "TransferEventListener.h"
#include "Utils.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {

// Named by the checks below, which stay on in release builds: carrying on
// would call through a null listener or free a mutex that a running thread
// still uses.
const char* const kSourceFile = "plugin/src/TransfersPoller";

TransfersPoller::TransfersPoller(int intervalMs)
    : _done(false),
      _listenersMutex(new cv_mutex_t()),
      _intervalMs(std::max(intervalMs, 0)),
      _stopping(false) {
    if (cv_dbg_get_all() >= 2) {
        cv_dbg("%p TransfersPoller()", static_cast<void*>(this));
    }
    cv_mutex_init(_listenersMutex.get());
}

TransfersPoller::~TransfersPoller() {
    if (cv_dbg_get_all() >= 2) {
        cv_dbg("%p ~TransfersPoller() - started?=%u", static_cast<void*>(this),
               static_cast<unsigned>(_started.load()));
    }
    Utils::checkOrAbort(!_started || isDone(), "!_started || isDone()", kSourceFile, __LINE__);
    cv_mutex_destroy(_listenersMutex.get());
}

void TransfersPoller::setAppId(const std::string& appId) {
    _appId = appId;
}

void TransfersPoller::addListener(TransferEventListener* l) {
    Utils::checkOrAbort(l != nullptr, "l != NULL", kSourceFile, __LINE__);
    cv_mutex_acquire(_listenersMutex.get());
    if (cv_dbg_get_all() >= 2) {
        cv_dbg("%p TransferPoller::addListener() - size=%i", static_cast<void*>(this),
               static_cast<int>(_listeners.size()));
    }
    _listeners.push_back(l);
    cv_mutex_release(_listenersMutex.get());
}

void TransfersPoller::removeListener(TransferEventListener* l) {
    Utils::checkOrAbort(l != nullptr, "l != NULL", kSourceFile, __LINE__);
    cv_mutex_acquire(_listenersMutex.get());
    if (cv_dbg_get_all() >= 2) {
        cv_dbg("%p TransferPoller::removeListener() - size=%i", static_cast<void*>(this),
               static_cast<int>(_listeners.size()));
    }
    const auto found = std::find(_listeners.begin(), _listeners.end(), l);
    if (found != _listeners.end()) {
        _listeners.erase(found);
        if (cv_dbg_get_all() >= 2) {
            cv_dbg("%p TransferPoller::removeListener() - removed", static_cast<void*>(this));
        }
    }
    cv_mutex_release(_listenersMutex.get());
}

void TransfersPoller::notifyListeners(const std::string& json) const {
    cv_mutex_acquire(_listenersMutex.get());
    if (cv_dbg_get_all() >= 2) {
        cv_dbg("%p TransferPoller::notifyListeners() - size=%i", static_cast<const void*>(this),
               static_cast<int>(_listeners.size()));
    }
    for (TransferEventListener* listener : _listeners) {
        listener->transferEventOccurred(json);
    }
    cv_mutex_release(_listenersMutex.get());
}

std::string TransfersPoller::createRequestData() const {
    // The client has always been sent exactly this text, spacing included.
    return "{\n"
           "    \"iteration_token\": \"" +
           _iterationToken +
           "\",\n"
           "    \"corvane_kestrix_settings\" : {\n"
           "        \"app_id\": \"" +
           _appId +
           "\"\n"
           "    }\n"
           "}\n";
}

bool TransfersPoller::isDone() const {
    return _done;
}

void TransfersPoller::run() {
    if (cv_dbg_get_all() >= 2) {
        cv_dbg("%p TransferPoller::run()", static_cast<void*>(this));
    }
    while (!_stopping) {
        {
            std::unique_lock<std::mutex> lock(_wakeMutex);
            _wake.wait_for(lock, std::chrono::milliseconds(_intervalMs), [this] { return _stopping.load(); });
        }
        if (_stopping) {
            break;
        }
        pollOnce();
    }
    _done = true;
    if (cv_dbg_get_all() >= 2) {
        cv_dbg("%p TransferPoller::run() - done", static_cast<void*>(this));
    }
}

void TransfersPoller::pollOnce() {
    std::unique_ptr<HttpRequest> request(Utils::createHttpRequest(kContentTypeJson));
    if (!request) {
        return;  // no client URL known yet
    }
    request->path = "/v" + kKestrixApiVersion + "/transfers/activity";
    request->method = HttpRequest::kPostMethod;
    request->appendData(createRequestData());
    std::unique_ptr<HttpResponse> response(request->invoke());
    request.reset();
    if (!response) {
        return;
    }
    const std::string body = response->data();
    response.reset();
    if (_stopping) {
        return;  // the owner is shutting down: nobody wants this answer
    }

    Json json;
    if (!json.parse(body)) {
        cv_err("%s: %s", kErrorJsonParse.c_str(), json.err().c_str());
    } else if (json.containsError()) {
        cv_err("Transfer poller response contained an error: %s", body.c_str());
    } else {
        const char* tokenPath[] = {"iteration_token", nullptr};
        _iterationToken = json.getString(tokenPath);
        notifyListeners(body);
    }
}

void TransfersPoller::stop() {
    if (cv_dbg_get_all() >= 2) {
        cv_dbg("%p TransferPoller::stop() - done?=%i", static_cast<void*>(this),
               static_cast<int>(_done.load()));
    }
    if (_done) {
        return;
    }
    {
        std::lock_guard<std::mutex> lock(_wakeMutex);
        _stopping = true;
    }
    _wake.notify_all();
    abandonExchanges();
}

}  // namespace Web
}  // namespace Kestrix
