// Answers one parsed request: checks the key, then picks the endpoint.
#pragma once

#include <string>

#include "HttpMessage.h"

namespace Kestrix::Sim {

class Control;
class TransferStore;

struct Outcome {
    Response response;
    bool exitAfter = false;  // exit once the answer has gone out
};

class Router {
public:
    Router(const std::string& key, bool strictKey, Control& control, TransferStore& transfers, bool quiet);

    Outcome handle(const Request& request);

    // Paths of the simulator's own test endpoints; they never misbehave.
    static bool isControlPath(const std::string& path);

private:
    bool authorised(const Request& request) const;
    Response version() const;
    Response exitCall(Outcome& outcome) const;
    Response activity(const Request& request) const;
    Response startTransfers(const Request& request);
    Response window(const std::string& name);
    Response control(const Request& request);
    Response state() const;
    Response filler(const Request& request) const;
    Response scriptActivity(const Request& request);

    const std::string _key;
    const bool _strictKey;
    Control& _control;
    TransferStore& _transfers;
    const bool _quiet;
};

}  // namespace Kestrix::Sim
