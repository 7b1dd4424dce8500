#include "Control.h"

namespace Kestrix::Sim {

namespace {

struct ModeName {
    Mode_e mode;
    const char* name;
};

const ModeName kModeNames[] = {
    {Mode_e::Normal, "normal"},
    {Mode_e::Slow, "slow"},
    {Mode_e::Hang, "hang"},
    {Mode_e::Close, "close"},
    {Mode_e::NoLength, "no-length"},
    {Mode_e::Garbage, "garbage"},
    {Mode_e::ZeroLength, "zero-length"},
    {Mode_e::ExtraBytes, "extra-bytes"},
    {Mode_e::BadHeader, "bad-header"},
    {Mode_e::EmptyBody, "empty-body"},
};

// "slow" without a delay of its own still has to be noticeably slow.
const int kDefaultSlowDelayMs = 1000;

}  // namespace

bool parseMode(const std::string& text, Mode_e& mode) {
    for (const auto& entry : kModeNames) {
        if (text == entry.name) {
            mode = entry.mode;
            return true;
        }
    }
    return false;
}

const char* modeName(Mode_e mode) {
    for (const auto& entry : kModeNames) {
        if (entry.mode == mode) return entry.name;
    }
    return "?";
}

Control::Control(const Behaviour& behaviour, int exitReply, const std::string& versionText)
    : _behaviour(behaviour), _exitReply(exitReply), _versionText(versionText) {}

Delivery Control::deliveryFor(const std::string& path) {
    std::lock_guard<std::mutex> lock(_mutex);
    Delivery delivery;
    if (_behaviour.times == 0 || (!_behaviour.path.empty() && _behaviour.path != path)) return delivery;
    if (_behaviour.times > 0 && --_behaviour.times == 0) {
        // Used up: the next requests are answered normally again.
        delivery.mode = _behaviour.mode;
        delivery.delayMs = _behaviour.delayMs;
        _behaviour = Behaviour();
    } else {
        delivery.mode = _behaviour.mode;
        delivery.delayMs = _behaviour.delayMs;
    }
    if (delivery.mode == Mode_e::Slow && delivery.delayMs <= 0) delivery.delayMs = kDefaultSlowDelayMs;
    return delivery;
}

Behaviour Control::behaviour() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _behaviour;
}

void Control::setBehaviour(const Behaviour& behaviour) {
    std::lock_guard<std::mutex> lock(_mutex);
    _behaviour = behaviour;
}

int Control::exitReply() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _exitReply;
}

void Control::setExitReply(int status) {
    std::lock_guard<std::mutex> lock(_mutex);
    _exitReply = status;
}

std::string Control::versionText() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _versionText;
}

void Control::setVersionText(const std::string& text) {
    std::lock_guard<std::mutex> lock(_mutex);
    _versionText = text;
}

void Control::windowOpened(const std::string& name) {
    std::lock_guard<std::mutex> lock(_mutex);
    ++_windows[name];
}

std::map<std::string, int> Control::windowsOpened() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _windows;
}

void Control::scriptActivity(const std::string& body, int times) {
    std::lock_guard<std::mutex> lock(_mutex);
    _scriptedActivity.emplace_back(body, times);
}

bool Control::nextScriptedActivity(std::string& body) {
    std::lock_guard<std::mutex> lock(_mutex);
    if (_scriptedActivity.empty()) return false;
    auto& front = _scriptedActivity.front();
    body = front.first;
    if (--front.second == 0) _scriptedActivity.pop_front();
    return true;
}

long long Control::scriptedActivityCount() const {
    std::lock_guard<std::mutex> lock(_mutex);
    long long count = 0;
    for (const auto& entry : _scriptedActivity) count += entry.second;
    return count;
}

}  // namespace Kestrix::Sim
