#include "server/LocalIP.h"

#include <cstring>

#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {
// The link state of one interface: up, and with a carrier.
bool linkIsUp(const char *name)
{
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0)
        return false;
    struct ifreq request;
    std::memset(&request, 0, sizeof request);
    std::strncpy(request.ifr_name, name, IFNAMSIZ - 1);
    const bool up = ioctl(fd, SIOCGIFFLAGS, &request) == 0
        && (request.ifr_flags & IFF_UP) && (request.ifr_flags & IFF_RUNNING);
    shutdown(fd, SHUT_RDWR);
    close(fd);
    return up;
}
}

QStringList LocalIP::localIPs()
{
    QStringList addresses;
    struct ifaddrs *list = nullptr;
    if (getifaddrs(&list) != 0)
        return addresses;
    for (struct ifaddrs *entry = list; entry; entry = entry->ifa_next) {
        const char *name = entry->ifa_name;
        if (!name || std::strlen(name) < 3 || std::strncmp(name, "en", 2) != 0)
            continue;
        if (!entry->ifa_addr || entry->ifa_addr->sa_family != AF_INET || !linkIsUp(name))
            continue;
        const auto *address = reinterpret_cast<const struct sockaddr_in *>(entry->ifa_addr);
        const auto *octets = reinterpret_cast<const unsigned char *>(&address->sin_addr.s_addr);
        addresses << QString::asprintf("%i.%i.%i.%i", octets[0], octets[1], octets[2], octets[3]);
    }
    freeifaddrs(list);
    return addresses;
}
