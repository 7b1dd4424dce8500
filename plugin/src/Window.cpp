#include "Window.h"

#include <memory>

#include "HttpRequest.h"
#include "HttpResponse.h"
#include "KestrixApp.h"
#include "Messages.h"
#include "Utils.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {

Window::Window(const std::string& name) : _name(name) {}

bool Window::show(const std::string& arg) {
    if (!KestrixApp::launch()) {
        cv_err("%s", kErrorKestrixRequest.c_str());
        return false;
    }

    const std::string target = "/windows/" + _name + "/" + arg;
    std::unique_ptr<HttpRequest> request(
        Utils::createHttpRequest(HttpRequest::kGetMethod, target, "", kContentTypeXml));
    if (!request) {
        cv_err("%s", kErrorCreatingHttpRequest.c_str());
        return false;
    }

    std::unique_ptr<HttpResponse> response(request->invoke());
    request.reset();
    if (!response) {
        cv_err("Error displaying window: %s", kErrorKestrixRequest.c_str());
        return false;
    }
    return true;
}

}  // namespace Web
}  // namespace Kestrix
