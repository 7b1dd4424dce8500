#include "IpAddress.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstring>

#include "cv_log.h"

namespace Kestrix {
namespace Web {

namespace {

std::string dotted(const in_addr& address) {
    // inet_ntop rather than inet_ntoa: same text, no shared static buffer
    // when several threads resolve at once.
    char text[INET_ADDRSTRLEN] = "";
    if (!inet_ntop(AF_INET, &address, text, sizeof(text))) return std::string();
    return text;
}

}  // namespace

IpAddress::IpAddress() {
    std::memset(&_address, 0, sizeof(_address));
    _address.sin_family = AF_INET;
}

IpAddress::IpAddress(const sockaddr_in* address) : IpAddress() {
    if (address) _address = *address;
}

std::string IpAddress::resolve(const std::string& host) {
    addrinfo* list = nullptr;
    if (getaddrinfo(host.c_str(), nullptr, nullptr, &list) != 0) {
        cv_log("ERROR: Unable to resolve IP address");
        return std::string();
    }
    const addrinfo* entry = list;
    while (entry && entry->ai_family != AF_INET) entry = entry->ai_next;
    if (!entry) {
        cv_log("ERROR: Unable to resolve IP address (AF_INET not found)");
        std::fflush(stdout);
        freeaddrinfo(list);
        return std::string();
    }
    const std::string text = dotted(reinterpret_cast<const sockaddr_in*>(entry->ai_addr)->sin_addr);
    freeaddrinfo(list);
    return text;
}

std::string IpAddress::address() const {
    return dotted(_address.sin_addr);
}

unsigned short IpAddress::port() const {
    return ntohs(_address.sin_port);
}

}  // namespace Web
}  // namespace Kestrix
