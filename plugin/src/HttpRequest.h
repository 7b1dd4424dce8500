// One HTTP/1.1 request to the local client on a fresh TCP connection.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "Callback.h"

namespace Kestrix {
namespace Web {

class HttpResponse;
class Socket;

class HttpRequest {
public:
    static const std::string kGetMethod;      // "GET"
    static const std::string kPostMethod;     // "POST"
    static const std::string kContentLength;  // "Content-Length:"

    // Adds the "Authorization-key" header at once, read from the client's file.
    HttpRequest(const std::string& host, unsigned short port);
    ~HttpRequest();
    HttpRequest(const HttpRequest&) = delete;
    HttpRequest& operator=(const HttpRequest&) = delete;

    void addHeader(const std::string& name, const std::string& value);
    void appendData(const std::string& s);
    // Takes ownership of callback (deleted with the request).
    void setCallback(Callback* callback);
    Callback* getCallback() const;

    // Runs the exchange on the calling thread. The caller owns the result;
    // null when the client could not be reached or the answer did not parse.
    HttpResponse* invoke();
    // The answer's bytes as invoke() reads them from a connected socket:
    // until the announced Content-Length has arrived, else until the peer
    // closes. Each received chunk is cut at its first NUL.
    static std::string receive(Socket& socket);

    std::string host;
    unsigned short port;
    std::string method;
    std::string path;
    const std::string& data() const { return _data; }
    const std::multimap<std::string, std::string>& headers() const { return _headers; }

private:
    std::unique_ptr<Callback> _callback;
    std::string _data;
    std::multimap<std::string, std::string> _headers;
};

}  // namespace Web
}  // namespace Kestrix
