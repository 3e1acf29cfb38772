#include "monitor/page_address.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>

#include <array>
#include <cstring>

std::string address_to_open(const std::string& listened_at) {
    if (listened_at != "0.0.0.0") {
        return listened_at;
    }
    std::string result = "127.0.0.1";
    ifaddrs* all = nullptr;
    if (getifaddrs(&all) != 0) {
        return result;
    }
    for (const ifaddrs* each = all; each != nullptr; each = each->ifa_next) {
        const bool is_ipv4 = each->ifa_addr != nullptr && each->ifa_addr->sa_family == AF_INET;
        if (is_ipv4 && (each->ifa_flags & IFF_UP) != 0 && (each->ifa_flags & IFF_LOOPBACK) == 0) {
            sockaddr_in address{};
            memcpy(&address, each->ifa_addr, sizeof address);
            std::array<char, INET_ADDRSTRLEN> text{};
            inet_ntop(AF_INET, &address.sin_addr, text.data(), text.size());
            result = text.data();
            break;
        }
    }
    freeifaddrs(all);
    return result;
}
