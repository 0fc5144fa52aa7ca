// A controller-like process for the exit tests: "burst" quits while eight
// Java threads call back without pause; "signal" waits for SIGTERM/SIGINT.
#include "BridgeFixture.h"
#include "bridge/JNIServer.h"
#include "bridge/SignalQuit.h"
#include "platform/SystemLog.h"

#include <QCoreApplication>
#include <QTimer>

#include <atomic>
#include <cstdio>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QString mode = app.arguments().value(1);

    JNIServer::initWithRemoteEnabled(false, false);
    JNIServer *server = JNIServer::instance();
    if (!server || !server->isAvailable())
        return 2;
    int updates = 0;
    int tests = 0;
    server->setTarget(&app);
    server->setUpdateSelector([&] { ++updates; });
    server->setConnectionTestEndedSelector([&](bool) { ++tests; });

    if (mode == QLatin1String("burst")) {
        BridgeFixture::startBurst(8);
        QTimer::singleShot(800, &app, &QCoreApplication::quit);
    } else if (mode == QLatin1String("signal")) {
        if (!installSignalQuit())
            return 3;
        server->setDefaultPort(0);
        server->start();
        BridgeFixture::startBurst(2);
        std::fputs("ready\n", stdout);
        std::fflush(stdout);
    } else {
        return 4;
    }
    const int result = app.exec();
    systemLog(QStringLiteral("event loop ended: %1 updates, %2 tests").arg(updates).arg(tests));
    return result;
}
