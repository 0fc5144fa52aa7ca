// Exit paths of a process hosting the JVM, each run in a child process.
#include <QProcess>
#include <QtTest>

#include <csignal>

class TestBridgeExit : public QObject
{
    Q_OBJECT

    static QString host() { return QCoreApplication::applicationDirPath() + QStringLiteral("/bridge_host"); }

private slots:
    void cleanExitDuringCallbackBurst()
    {
        QProcess process;
        process.start(host(), {QStringLiteral("burst")});
        QVERIFY(process.waitForStarted());
        QVERIFY2(process.waitForFinished(60000), "the process hangs on exit");
        const QString log = QString::fromUtf8(process.readAllStandardError());
        QCOMPARE(process.exitStatus(), QProcess::NormalExit);
        QVERIFY2(process.exitCode() == 0, qPrintable(log));
        const qsizetype dealloc = log.indexOf(QLatin1String("JNIServer dealloc"));
        const qsizetype ended = log.indexOf(QLatin1String("event loop ended: "));
        QVERIFY2(dealloc >= 0 && ended > dealloc, qPrintable(log));
        // The burst did reach the receiver before the exit.
        const QStringList counts = log.mid(ended).section(QLatin1Char('\n'), 0, 0).split(QLatin1Char(' '));
        QVERIFY2(counts.value(3).toInt() > 0 && counts.value(5).toInt() > 0, qPrintable(log));
    }

    void signalEndsTheEventLoop_data()
    {
        QTest::addColumn<int>("signal");
        QTest::newRow("SIGTERM") << int(SIGTERM);
        QTest::newRow("SIGINT") << int(SIGINT);
    }

    void signalEndsTheEventLoop()
    {
        QFETCH(int, signal);
        QProcess process;
        process.start(host(), {QStringLiteral("signal")});
        QVERIFY(process.waitForStarted());
        QByteArray out;
        while (!out.contains("ready\n") && process.waitForReadyRead(30000))
            out += process.readAllStandardOutput();
        if (!out.contains("ready\n"))
            QFAIL(process.readAllStandardError().constData());
        QTest::qWait(200);
        QCOMPARE(::kill(pid_t(process.processId()), signal), 0);
        QVERIFY2(process.waitForFinished(30000), "the signal did not end the process");
        const QString log = QString::fromUtf8(process.readAllStandardError());
        QCOMPARE(process.exitStatus(), QProcess::NormalExit);
        QVERIFY2(process.exitCode() == 0, qPrintable(log));
        QVERIFY2(log.contains(QLatin1String("Server started on: 0")), qPrintable(log));
        const qsizetype dealloc = log.indexOf(QLatin1String("JNIServer dealloc"));
        QVERIFY2(dealloc >= 0 && log.indexOf(QLatin1String("event loop ended: ")) > dealloc, qPrintable(log));
    }
};

QTEST_GUILESS_MAIN(TestBridgeExit)
#include "tst_bridge_exit.moc"
