// Exit paths of a process hosting the JVM, each in a child process: this
// program again, as a host that quits by itself during a burst of callbacks
// from eight Java threads ("burst"), or that waits for SIGTERM or SIGINT
// ("signal").
#include "BridgeFixture.h"
#include "bridge/JNIServer.h"
#include "bridge/SignalQuit.h"
#include "platform/SystemLog.h"

#include <QProcess>
#include <QtTest>

#include <csignal>
#include <cstdio>

namespace {
int host(QCoreApplication &app, bool burst)
{
    JNIServer::initWithRemoteEnabled(false, false);
    JNIServer *server = JNIServer::instance();
    if (!server || !server->isAvailable() || (!burst && !installSignalQuit()))
        return 2;
    int updates = 0;
    int tests = 0;
    server->setTarget(&app);
    server->setUpdateSelector([&] { ++updates; });
    server->setConnectionTestEndedSelector([&](bool) { ++tests; });
    if (burst) {
        QTimer::singleShot(800, &app, &QCoreApplication::quit);
    } else {
        server->setDefaultPort(0);
        server->start();
    }
    BridgeFixture::call(QStringLiteral("startBurst"), burst ? QStringLiteral("8") : QStringLiteral("2"));
    std::fputs("ready\n", stdout);
    std::fflush(stdout);
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
        process.start(QCoreApplication::applicationFilePath(), {signal ? QStringLiteral("signal") : QStringLiteral("burst")});
        QVERIFY(process.waitForStarted());
        if (signal) {
            QByteArray out;
            while (!out.contains("ready\n") && process.waitForReadyRead(30000))
                out += process.readAllStandardOutput();
            if (!out.contains("ready\n")) // (QVERIFY2 would read the log even on success)
                QFAIL(process.readAllStandardError().constData());
            QTest::qWait(200);
            QCOMPARE(::kill(pid_t(process.processId()), signal), 0);
        }
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
    const QString mode = app.arguments().value(1);
    if (mode == QLatin1String("burst") || mode == QLatin1String("signal"))
        return host(app, mode == QLatin1String("burst"));
    TestBridgeExit test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_bridge_exit.moc"
