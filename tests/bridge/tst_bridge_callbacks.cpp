// Callbacks from Java threads: on the main thread, one delayed update per
// Java update, and the Java thread held until the test result is handled.
#include "BridgeFixture.h"
#include "LogCapture.h"
#include "bridge/JNIServer.h"

#include <QElapsedTimer>
#include <QThread>
#include <QtTest>

class TestBridgeCallbacks : public QObject
{
    Q_OBJECT

    LogCapture m_log;
    QObject *m_receiver = nullptr;
    QList<qint64> m_updateTimes;
    int m_offMainThread = 0;
    QElapsedTimer m_clock;

    JNIServer *server() { return JNIServer::instance(); }

    bool javaThreadReturned(bool passed)
    {
        return BridgeFixture::recordedCalls().contains(
            QStringLiteral("connectionTestEnded returned(%1)").arg(passed ? "true" : "false"));
    }

private slots:
    void initTestCase()
    {
        JNIServer::initWithRemoteEnabled(true, true);
        QVERIFY2(server() && server()->isAvailable(), qPrintable(m_log.lines().join(QLatin1Char('\n'))));
        m_clock.start();
    }

    void init()
    {
        BridgeFixture::resetScript();
        m_receiver = new QObject(this);
        m_updateTimes.clear();
        m_offMainThread = 0;
        server()->setTarget(m_receiver);
        server()->setUpdateSelector([this] {
            if (QThread::currentThread() != qApp->thread())
                ++m_offMainThread;
            m_updateTimes << m_clock.elapsed();
        });
        server()->setConnectionTestEndedSelector({});
    }

    void cleanup()
    {
        delete m_receiver;
        m_receiver = nullptr;
    }

    void oneDelayedUpdatePerJavaUpdate()
    {
        const qint64 fired = m_clock.elapsed();
        BridgeFixture::fireUpdates(1, 3); // three updates well within 0.1 s
        QTRY_COMPARE_WITH_TIMEOUT(m_updateTimes.size(), 3, 5000);
        for (qint64 at : std::as_const(m_updateTimes))
            QVERIFY2(at - fired >= 95, qPrintable(QStringLiteral("update after %1 ms").arg(at - fired)));
        QCOMPARE(m_offMainThread, 0);
        QTest::qWait(300);
        QCOMPARE(m_updateTimes.size(), 3);
    }

    void updatesFromManyThreads()
    {
        BridgeFixture::fireUpdates(8, 25);
        QTRY_COMPARE_WITH_TIMEOUT(m_updateTimes.size(), 200, 10000);
        QTest::qWait(200);
        QCOMPARE(m_updateTimes.size(), 200);
        QCOMPARE(m_offMainThread, 0);
    }

    void updatesWithoutReceiverAreDropped()
    {
        delete m_receiver; // the receiver going away clears the target
        m_receiver = nullptr;
        QCOMPARE(server()->target(), nullptr);
        BridgeFixture::fireUpdates(2, 2);
        QTest::qWait(400);
        QVERIFY(m_updateTimes.isEmpty());
    }

    void connectionTestHoldsTheJavaThread()
    {
        QList<bool> outcomes;
        bool returnedEarly = false;
        bool onMainThread = false;
        server()->setConnectionTestEndedSelector([&](bool passed) {
            onMainThread = QThread::currentThread() == qApp->thread();
            // The Java thread must still be waiting, even after a while.
            returnedEarly = javaThreadReturned(passed);
            QTest::qSleep(250);
            returnedEarly = returnedEarly || javaThreadReturned(passed);
            outcomes << passed;
        });
        BridgeFixture::script(QStringLiteral("testConnection.result"), QStringLiteral("false"));
        server()->testConnection();
        QTRY_COMPARE_WITH_TIMEOUT(outcomes.size(), 1, 5000);
        QCOMPARE(outcomes.first(), false);
        QVERIFY(onMainThread);
        QVERIFY(!returnedEarly);
        QTRY_VERIFY_WITH_TIMEOUT(javaThreadReturned(false), 5000);

        BridgeFixture::fireConnectionTestEnded(true);
        QTRY_COMPARE_WITH_TIMEOUT(outcomes.size(), 2, 5000);
        QCOMPARE(outcomes.last(), true);
        QTRY_VERIFY_WITH_TIMEOUT(javaThreadReturned(true), 5000);
        QCOMPARE(BridgeFixture::recordedCalls().first(), QStringLiteral("RemoteManagerControl.testConnection()"));
    }

    void connectionTestWithoutReceiverReleasesJava()
    {
        bool called = false;
        server()->setConnectionTestEndedSelector([&](bool) { called = true; });
        server()->setTarget(nullptr);
        BridgeFixture::fireConnectionTestEnded(true);
        QTRY_VERIFY_WITH_TIMEOUT(javaThreadReturned(true), 5000);
        QVERIFY(!called);
    }

    void releasedSingletonFreesWaitingJavaThreads()
    {
        // A Java thread waiting for the main thread when the singleton goes
        // is let go, and later callbacks return at once.
        bool called = false;
        server()->setConnectionTestEndedSelector([&](bool) { called = true; });
        BridgeFixture::fireConnectionTestEnded(true);
        QTest::qSleep(300); // the Java thread posts and waits; no event is processed here
        m_log.clear();
        JNIServer::releaseInstance();
        QCOMPARE(m_log.lines(), QStringList{QStringLiteral("JNIServer dealloc")});
        QTest::qWait(100);
        QVERIFY(!called);
        // The Java thread came back without the main thread doing anything.
        JNIServer::initWithRemoteEnabled(true, true);
        QVERIFY(server() && server()->isAvailable());
        QTRY_VERIFY_WITH_TIMEOUT(javaThreadReturned(true), 5000);
        QVERIFY(!called);
    }
};

QTEST_GUILESS_MAIN(TestBridgeCallbacks)
#include "tst_bridge_callbacks.moc"
