#pragma once

#include <QStringList>

// The machine's IPv4 addresses on wired and wireless Ethernet ("en..."
// interfaces), as dotted quads. Nothing in the application asks for them
// yet; kept for diagnostics.
class LocalIP
{
public:
    // Interfaces whose names begin with "en" and whose link is up and
    // running; an address per IPv4 entry, in the system's order.
    static QStringList localIPs();
};
