// Starts the facade against the fixture jar in a process of its own and
// prints what it reads: "setting:" lines for every setting, "call:" lines for
// the calls Java received during start-up. Then quits through the
// application's normal end.
#include "ServerTestSupport.h"

#include <QCoreApplication>
#include <QTimer>

#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    Server *server = Server::instance();
    if (!server)
        return 2;
    QStringList lines;
    for (const QString &call : BridgeFixture::recordedCalls()) // before reading adds its own
        lines << QStringLiteral("call:") + call;
    for (const QString &line : ServerTest::describeSettings(server))
        lines << QStringLiteral("setting:") + line;
    std::fputs(lines.join(QLatin1Char('\n')).append(QLatin1Char('\n')).toUtf8().constData(), stdout);
    std::fflush(stdout);
    QTimer::singleShot(0, &app, &QCoreApplication::quit);
    return app.exec();
}
