// Exit paths of a process hosting the JVM, each in a child process: this
// program again ("host <signal>"), as a host that quits by itself during a
// burst of callbacks from eight Java threads (signal 0), or that sends itself
// SIGTERM or SIGINT while two threads call back.
#include "BridgeFixture.h"
#include "bridge/JNIServer.h"
#include "bridge/SignalQuit.h"
#include "platform/SystemLog.h"

#include <QProcess>
#include <QtTest>

#include <csignal>
#include <unistd.h>

namespace {
int host(QCoreApplication &app, int signal)
{
    JNIServer::initWithRemoteEnabled(false, false);
    JNIServer *server = JNIServer::instance();
    if (!server || !server->isAvailable() || (signal && !installSignalQuit()))
        return 2;
    int updates = 0;
    int tests = 0;
    server->setTarget(&app);
    server->setUpdateSelector([&] { ++updates; });
    server->setConnectionTestEndedSelector([&](bool) { ++tests; });
    if (signal) {
        server->setDefaultPort(0);
        server->start();
        // To the process, as a kill from outside: any thread not holding it may take it.
        QTimer::singleShot(200, &app, [signal] { ::kill(::getpid(), signal); });
    } else {
        QTimer::singleShot(800, &app, &QCoreApplication::quit);
    }
    BridgeFixture::call(QStringLiteral("startBurst"), signal ? QStringLiteral("2") : QStringLiteral("8"));
    const int result = app.exec();
    systemLog(QStringLiteral("event loop ended: %1 updates, %2 tests").arg(updates).arg(tests));
    return result;
}
}

class TestBridgeExit : public QObject
{
    Q_OBJECT

private slots:
    void endsCleanly_data()
    {
        QTest::addColumn<int>("signal"); // 0: the host quits by itself during the burst
        QTest::newRow("burst") << 0;
        QTest::newRow("SIGTERM") << int(SIGTERM);
        QTest::newRow("SIGINT") << int(SIGINT);
    }

    void endsCleanly()
    {
        QFETCH(int, signal);
        QProcess process;
        process.start(QCoreApplication::applicationFilePath(), {QStringLiteral("host"), QString::number(signal)});
        QVERIFY2(process.waitForFinished(60000), "the process did not end");
        const QString log = QString::fromUtf8(process.readAllStandardError());
        QCOMPARE(process.exitStatus(), QProcess::NormalExit);
        QVERIFY2(process.exitCode() == 0, qPrintable(log));
        const qsizetype dealloc = log.indexOf(QLatin1String("JNIServer dealloc"));
        const qsizetype ended = log.indexOf(QLatin1String("event loop ended: "));
        QVERIFY2(dealloc >= 0 && ended > dealloc, qPrintable(log));
        QVERIFY2(!signal || log.contains(QLatin1String("Server started on: 0")), qPrintable(log)); // stopped by the exit
        // "event loop ended: <updates> updates, <tests> tests": the burst reached the receiver.
        const QStringList counts = log.mid(ended).section(QLatin1Char('\n'), 0, 0).split(QLatin1Char(' '));
        QVERIFY2(counts.value(3).toInt() > 0 && (signal || counts.value(5).toInt() > 0), qPrintable(log));
    }
};

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (app.arguments().value(1) == QLatin1String("host"))
        return host(app, app.arguments().value(2).toInt());
    TestBridgeExit test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_bridge_exit.moc"
