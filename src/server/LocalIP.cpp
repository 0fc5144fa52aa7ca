#include "server/LocalIP.h"

#include <cstring>

#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {
// The link flags of one interface, asked on a socket of its own.
void readFlags(LocalIP::Interface &interface)
{
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0)
        return;
    struct ifreq request;
    std::memset(&request, 0, sizeof request);
    std::strncpy(request.ifr_name, interface.name.toLocal8Bit().constData(), IFNAMSIZ - 1);
    if (ioctl(fd, SIOCGIFFLAGS, &request) == 0) {
        interface.up = request.ifr_flags & IFF_UP;
        interface.running = request.ifr_flags & IFF_RUNNING;
    }
    shutdown(fd, SHUT_RDWR);
    close(fd);
}
}

QStringList LocalIP::addressesOf(const QList<Interface> &interfaces)
{
    QStringList addresses;
    for (const Interface &entry : interfaces) {
        if (entry.name.size() < 3 || !entry.name.startsWith(QLatin1String("en")))
            continue;
        if (!entry.ipv4 || !entry.up || !entry.running)
            continue;
        const auto &octets = entry.address;
        addresses << QString::asprintf("%i.%i.%i.%i", octets[0], octets[1], octets[2], octets[3]);
    }
    return addresses;
}

QList<LocalIP::Interface> LocalIP::interfaces()
{
    QList<Interface> result;
    struct ifaddrs *list = nullptr;
    if (getifaddrs(&list) != 0)
        return result;
    for (struct ifaddrs *entry = list; entry; entry = entry->ifa_next) {
        if (!entry->ifa_name)
            continue;
        Interface interface;
        interface.name = QString::fromLocal8Bit(entry->ifa_name);
        interface.ipv4 = entry->ifa_addr && entry->ifa_addr->sa_family == AF_INET;
        if (interface.ipv4) {
            const auto *address = reinterpret_cast<const struct sockaddr_in *>(entry->ifa_addr);
            std::memcpy(interface.address.data(), &address->sin_addr.s_addr, 4);
            readFlags(interface);
        }
        result.append(interface);
    }
    freeifaddrs(list);
    return result;
}
