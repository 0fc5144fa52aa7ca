#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include <array>

// The machine's IPv4 addresses on wired and wireless Ethernet ("en..."
// interfaces), as dotted quads. Nothing in the application asks for them
// yet; kept for diagnostics.
class LocalIP
{
public:
    // One address entry of an interface, with the interface's link flags.
    struct Interface {
        QString name;
        bool ipv4 = false;
        std::array<quint8, 4> address{}; // in network order, when ipv4
        bool up = false;                 // IFF_UP
        bool running = false;            // IFF_RUNNING: a carrier
    };

    // Interfaces whose names begin with "en" and whose link is up and
    // running; an address per IPv4 entry, in the system's order.
    static QStringList localIPs() { return addressesOf(interfaces()); }
    // The same rule over a given list.
    static QStringList addressesOf(const QList<Interface> &interfaces);
    // The system's entries (getifaddrs), flags asked with SIOCGIFFLAGS.
    static QList<Interface> interfaces();
};
