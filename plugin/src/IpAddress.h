// One IPv4 socket address, and host name resolution to dotted text.
#pragma once

#include <netinet/in.h>

#include <string>

namespace Kestrix {
namespace Web {

class IpAddress {
public:
    // AF_INET with zero port and address.
    IpAddress();
    explicit IpAddress(const sockaddr_in* address);

    // The first IPv4 address of host as dotted text, or "" (logged).
    static std::string resolve(const std::string& host);

    std::string address() const;
    // In host byte order.
    unsigned short port() const;

private:
    sockaddr_in _address;
};

}  // namespace Web
}  // namespace Kestrix
