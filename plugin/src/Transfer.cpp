#include "Transfer.h"

#include <memory>

#include "HttpRequest.h"
#include "HttpResponse.h"
#include "KestrixApp.h"
#include "Messages.h"
#include "Utils.h"
#include "XmlEscaper.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {

const std::string Transfer::kXmlNamespace = "urn:corvane:kestrix:xferreq";

void Transfer::setSource(const std::string& source) {
    _sources.clear();
    _sources.push_back(source);
}

void Transfer::setSource(const std::vector<std::string>& sources) {
    _sources = sources;
}

void Transfer::setDestination(const std::string& destination) {
    _destination = destination;
}

void Transfer::setParam(const std::string& name, const std::string& value) {
    _params[name] = value;
}

std::string Transfer::toXml() const {
    std::string xml = "<xferreq xmlns=\"" + kXmlNamespace + "\">";
    for (const std::string& source : _sources) {
        if (!source.empty()) {
            xml += "<src>" + XmlEscaper::escape(source) + "</src>";
        }
    }
    if (!_destination.empty()) {
        xml += "<dest>" + XmlEscaper::escape(_destination) + "</dest>";
    }
    // The client has always been sent parameters in this shape: the name's
    // quote is never closed and the element never ends. It must stay so.
    for (const auto& param : _params) {
        xml += "<param name=\"" + param.first + " value=\"" + param.second + "\">";
    }
    xml += "</xferreq>";
    return xml;
}

bool Transfer::request() {
    if (!KestrixApp::launch()) {
        cv_err("%s", kErrorKestrixRequest.c_str());
        return false;
    }

    std::unique_ptr<HttpRequest> request(
        Utils::createHttpRequest(HttpRequest::kPostMethod, "/transfers/", toXml(), kContentTypeXml));
    if (!request) {
        cv_err("%s", kErrorCreatingHttpRequest.c_str());
        return false;
    }

    std::unique_ptr<HttpResponse> response(request->invoke());
    request.reset();
    if (!response) {
        cv_err("%s", kErrorKestrixRequest.c_str());
        return false;
    }
    return true;
}

}  // namespace Web
}  // namespace Kestrix
