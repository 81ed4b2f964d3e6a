#include "platform/portico/InetAddress.h"

#include <arpa/inet.h>
#include <netinet/in.h>

namespace Portico {

InetAddress InetAddress::getByAddress(const std::string& dotted) {
    InetAddress address;
    in_addr parsed{};
    // A zero byte inside would hide what stands behind it.
    if (dotted.find('\0') == std::string::npos && inet_pton(AF_INET, dotted.c_str(), &parsed) == 1)
        address.text = dotted;
    return address;
}

} // namespace Portico
