// One HTTP/1.1 request to the local client on a fresh TCP connection.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "Callback.h"

namespace Kestrix {
namespace Web {

class HttpResponse;
class Socket;

// Lets one thread abandon the exchanges that another thread runs with the
// client: a plug-in instance going away must not wait for a client that
// answers slowly or never. abort() shuts the connection in use down, which
// wakes a blocked connect, send or receive at once, and every exchange that
// thread starts afterwards fails without connecting. There is no way back.
class HttpAbort {
public:
    HttpAbort() = default;
    HttpAbort(const HttpAbort&) = delete;
    HttpAbort& operator=(const HttpAbort&) = delete;

    // Any thread.
    void abort();
    bool aborted() const;

    // The switch that the calling thread's exchanges obey; null (the
    // default) for none. Set by a thread for itself before its first
    // exchange.
    static void setForThisThread(HttpAbort* abort);
    // Whether the calling thread's switch has been thrown.
    static bool thisThreadAborted();

private:
    friend class HttpRequest;
    // Makes the calling thread's switch, if any, shut `socket` down when
    // thrown, for as long as the attachment lives: it must end before the
    // socket is closed, so that a late abort() never hits a descriptor that
    // has been reused since. Refused once the switch has been thrown.
    class Attachment {
    public:
        explicit Attachment(Socket* socket);
        ~Attachment();
        Attachment(const Attachment&) = delete;
        Attachment& operator=(const Attachment&) = delete;
        bool refused() const { return _refused; }

    private:
        HttpAbort* _abort;
        bool _refused;
    };

    mutable std::mutex _mutex;
    bool _aborted = false;
    Socket* _socket = nullptr;  // the connection in use, guarded by _mutex
};

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
    // null when the client could not be reached, the answer did not parse,
    // or the thread's HttpAbort was thrown.
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
