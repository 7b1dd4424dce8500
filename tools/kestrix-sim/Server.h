// The simulator's own small HTTP/1.1 server on 127.0.0.1: one thread per
// connection, one request per connection, then the connection is closed.
//
// It reads each request off the socket itself, so that the bytes can be
// recorded exactly as they came, and it writes each answer itself, so that
// the answer can be made to misbehave on purpose.
#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace Kestrix::Sim {

class Control;
class Recorder;
class Router;

class Server {
public:
    Server(Router& router, Control& control, Recorder& recorder);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    bool listen(unsigned short port, std::string& error);
    unsigned short port() const { return _port; }

    // Starts accepting. `onExit` runs on a connection thread after an exit
    // call has been answered.
    void start(std::function<void()> onExit);
    // Stops accepting, wakes every connection (held ones included) and waits for them.
    void stop();

private:
    struct Connection {
        int fd = -1;
        std::thread thread;
        std::atomic<bool> done{false};
    };

    void acceptLoop();
    void serve(Connection& connection);
    std::string readRequest(int fd);
    // Waits until `fd` is readable: 1 readable, 0 time-out, -1 stopping.
    int waitReadable(int fd, int timeoutMs) const;
    bool pause(int ms) const;  // false when stopping
    void holdUntilClosed(int fd, int limitMs) const;
    void reapFinished();

    Router& _router;
    Control& _control;
    Recorder& _recorder;
    std::function<void()> _onExit;

    int _listenFd = -1;
    int _wakePipe[2] = {-1, -1};  // written once by stop(); readable ever after
    unsigned short _port = 0;
    std::thread _acceptThread;
    std::mutex _connectionsMutex;
    std::list<std::unique_ptr<Connection>> _connections;
};

}  // namespace Kestrix::Sim
