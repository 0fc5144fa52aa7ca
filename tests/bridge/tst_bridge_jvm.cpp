// One JVM launched as the controller launches it, against the fixture jar:
// the options it received, the call catalogue with its conversions, null
// rules and exceptions, and callbacks from Java threads.
#include "BridgeFixture.h"
#include "LogCapture.h"
#include "bridge/JNIServer.h"
#include "platform/ProductWebsite.h"
#include "platform/Resources.h"

#include <QDir>
#include <QElapsedTimer>
#include <QThread>
#include <QtTest>

namespace {
const QString kSample = QStringLiteral("B\u00fcro \U0001F600 \U0001D11E"); // outside the Basic Multilingual Plane

// Java's null shown as "<null>", so that null and empty texts compare apart.
QString orNull(const QString &text)
{
    return text.isNull() ? QStringLiteral("<null>") : text;
}

bool javaThreadReturned(bool passed)
{
    return BridgeFixture::recordedCalls().contains(QStringLiteral("connectionTestEnded returned(%1)").arg(passed ? "true" : "false"));
}
}

class TestBridgeJvm : public QObject
{
    Q_OBJECT

    LogCapture m_log;
    QString m_home;
    QStringList m_startupCalls;
    QObject *m_receiver = nullptr;
    QList<qint64> m_updateTimes;
    int m_offMainThread = 0;
    QElapsedTimer m_clock;

    JNIServer *server() { return JNIServer::instance(); }

private slots:
    void initTestCase()
    {
        // A home outside the Basic Multilingual Plane: the application folder
        // handed to Java must arrive intact.
        m_home = QStringLiteral(QUILLON_TEST_BINARY_DIR "/home-\U0001F600");
        QDir().mkpath(m_home);
        qputenv("HOME", m_home.toUtf8());
        qputenv("JAVA_JVM_VERSION", "9.9");
        qputenv("LC_CTYPE", "C");
        JNIServer::initWithRemoteEnabled(true, false);
        QVERIFY2(server() && server()->isAvailable(), qPrintable(m_log.text()));
        QVERIFY2(m_log.lines().isEmpty(), qPrintable(m_log.text()));
        m_startupCalls = BridgeFixture::recordedCalls();
        m_clock.start();
    }

    void init()
    {
        BridgeFixture::resetScript();
        m_log.clear();
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

    void launchOptions()
    {
        const QString res = Resources::folder();
        const QString tmp = Resources::temporaryFolder();
        QVERIFY(tmp.endsWith(QLatin1String("tmp-jvm/")));
        const QString url = QLatin1String(kProductWebHost) + QStringLiteral("/JVM/v1/classes/");
        QVERIFY(url.startsWith(QLatin1String("http://")));
        const QStringList expected = {
            QStringLiteral("-Djava.class.path=%1/QuillonServer.jar:%1/jna.jar").arg(res),
            QStringLiteral("-Djna.library.path=%1").arg(res),
            QStringLiteral("-Djava.library.path=%1").arg(res),
            QStringLiteral("-Dfile.encoding=utf-8"),
            QStringLiteral("-Djava.awt.headless=true"),
            QStringLiteral("-Dsun.font.fontmanager=com.brookfen.font.osx.HeadlessFontManager"),
            QStringLiteral("-Dquillon-max-thumbnail-width=256"), // this test's Info.ini has no maxThumbnailWidth
            QStringLiteral("-agentpath:%1/libMiniAgent.so=mode=fetch-absent-classes;"
                           "class-cache-folder=%2quillon-server/class-cache/2.4/;class-load-url-prefix=%3")
                .arg(res, tmp, url),
        };
        // HotSpot lists every option but the class path among its input
        // arguments; the class path property also holds the agent's cache folder.
        QCOMPARE(BridgeFixture::call(QStringLiteral("inputArguments")).split(QLatin1Char('\n')), expected.mid(1));
        const QString classPath = BridgeFixture::call(QStringLiteral("property"), QStringLiteral("java.class.path"));
        QCOMPARE(QStringLiteral("-Djava.class.path=") + classPath.section(QLatin1Char(':'), 0, 1), expected.first());
        QVERIFY(QDir(tmp + QStringLiteral("quillon-server/class-cache/2.4")).exists()); // made by the agent

        QCOMPARE(qgetenv("JAVA_JVM_VERSION"), QByteArray("1.7")); // the first attempt succeeded
        // "UTF-8" where the C library knows it, else "C.UTF-8": either way the
        // JVM must get UTF-8 file names.
        QVERIFY(qgetenv("LC_CTYPE") == "UTF-8" || qgetenv("LC_CTYPE") == "C.UTF-8");
        QCOMPARE(BridgeFixture::call(QStringLiteral("property"), QStringLiteral("sun.jnu.encoding")), QStringLiteral("UTF-8"));

        const QStringList startUp = {
            QStringLiteral("init(%1/Library/Application Support/QuillonServer)").arg(m_home),
            QStringLiteral("RemoteManagerControl.init(true, false)"),
            QStringLiteral("getAvailableFontFamilyNames()"),
            QStringLiteral("getAvailableEncodings()"),
        };
        QCOMPARE(m_startupCalls, startUp);
        QVERIFY(JNIServer::initializedFlag());
    }

    void catalogueArguments()
    {
        const QList<QPair<std::function<void()>, QString>> calls = {
            {[&] { server()->setDefaultPort(45631); }, "setDefaultPort(45631)"},
            {[&] { server()->setConverterMaxWidth(720); }, "setConverterMaxWidth(720)"},
            {[&] { server()->setConverterMaxHeight(-1); }, "setConverterMaxHeight(-1)"},
            {[&] { server()->converterResetQueue(); }, "converterResetQueue()"},
            {[&] { server()->setComputerName(QStringLiteral("Alice's Mac")); }, "setComputerName(Alice's Mac)"},
            {[&] { server()->setComputerName(QString()); }, "setComputerName(null)"}, // a null text stays null...
            {[&] { server()->setComputerName(QStringLiteral("")); }, "setComputerName()"},
            {[&] { server()->setPasswordDigest(QString()); }, "setPasswordDigest()"}, // ...except for the digest
            {[&] { server()->setPasswordDigest(QStringLiteral("a9993e36")); }, "setPasswordDigest(a9993e36)"},
            {[&] { server()->setConverterFFMpegPath(QStringLiteral("/bin/ffmpeg")); }, "setConverterFFMpegPath(/bin/ffmpeg)"},
            {[&] { server()->setConverterFaacPath(QStringLiteral("/bin/faac")); }, "setConverterFaacPath(/bin/faac)"},
            {[&] { server()->setConverterMuxerPath(QStringLiteral("/bin/mp4creator")); }, "setConverterMuxerPath(/bin/mp4creator)"},
            {[&] { server()->setFontSize(18); }, "setFontSize(18)"},
            {[&] { server()->setDisableEmbeddedSubtitlesIfNoLanguageMatches(true); }, "setDisableEmbeddedSubtitlesIfNoLanguageMatches(true)"},
            {[&] { server()->setDefaultCharset(QStringLiteral("ISO-8859-1")); }, "setDefaultCharset(ISO-8859-1)"},
            {[&] { server()->setFontFamilyName(QStringLiteral("Serif")); }, "setFontFamilyName(Serif)"},
            {[&] { server()->setPreferredLanguages({QStringLiteral("English"), QStringLiteral("Fran\u00e7ais"), QString()}); },
             "setPreferredLanguages([English, Fran\u00e7ais, null])"},
            {[&] { server()->setPreferredLanguages({}); }, "setPreferredLanguages([])"},
            {[&] { server()->clearLog(QStringLiteral("remote")); }, "clearLog(remote)"},
            {[&] { server()->setEnableRemote(true); }, "RemoteManagerControl.setEnableRemote(true)"},
            {[&] { server()->setEnablePortMapping(false); }, "RemoteManagerControl.setEnablePortMapping(false)"},
            {[&] { server()->retry(); }, "RemoteManagerControl.retry()"},
            {[&] { server()->initialized(); }, "initialized()"},
        };
        QStringList expected;
        for (const auto &[call, received] : calls) {
            call();
            expected << received;
        }
        QCOMPARE(BridgeFixture::recordedCalls(), expected);
        QVERIFY(m_log.lines().isEmpty());
    }

    void startStopAndRunningState()
    {
        server()->stop(); // not running: stop and quit only ask
        server()->quit();
        server()->setDefaultPort(45632);
        QCOMPARE(server()->start(), 45632);
        QVERIFY(server()->isRunning());
        server()->stop();
        QVERIFY(!server()->isRunning());
        QCOMPARE(BridgeFixture::recordedCalls(),
                 QStringList({"serverRunning()", "serverRunning()", "setDefaultPort(45632)", "startServer()",
                              "serverRunning()", "serverRunning()", "stopServer()", "serverRunning()"}));
        QCOMPARE(m_log.lines(), QStringList{QStringLiteral("Server started on: 45632")});
    }

    void stringResults()
    {
        BridgeFixture::script(QStringLiteral("return.getLog.remote"), QStringLiteral(""));
        QCOMPARE(orNull(server()->getLog(QStringLiteral("remote"))), QStringLiteral(""));
        BridgeFixture::script(QStringLiteral("return.getLog.remote"), QString());
        QCOMPARE(orNull(server()->getLog(QStringLiteral("remote"))), QStringLiteral("<null>"));
        BridgeFixture::script(QStringLiteral("return.getLog.thumbnail"), QStringLiteral("first line\nsecond\tline\n"));
        QCOMPARE(server()->getLog(QStringLiteral("thumbnail")), QStringLiteral("first line\nsecond\tline\n"));
        BridgeFixture::script(QStringLiteral("return.getFontFamilyName"), QString());
        QCOMPARE(orNull(server()->getFontFamilyName()), QStringLiteral("<null>"));
        server()->setDefaultCharset(QStringLiteral("windows-1252"));
        QCOMPARE(server()->getDefaultCharset(), QStringLiteral("windows-1252"));
        QCOMPARE(server()->getConverterQueueAsJSON(), QStringLiteral("{\"items\":[],\"converting\":null}"));

        // Both ways intact: the fixture's own conversion is plain UTF-16.
        BridgeFixture::script(QStringLiteral("return.getLastConversionLog"), kSample);
        QCOMPARE(server()->getLastConversionLog(), kSample);
        server()->setComputerName(kSample);
        QCOMPARE(BridgeFixture::recordedCalls().constLast(), QStringLiteral("setComputerName(%1)").arg(kSample));
    }

    void listWalks()
    {
        const QList<QStringList> cases = { // method, scripted list, what C++ gets ("|" between elements), log
            {"getAvailableFontFamilyNames", "Dialog|<null>|Serif|<int>", "Dialog|Serif", ""}, // skipped
            {"getAvailableFontFamilyNames", "<null>", "", ""},
            {"getAvailableLanguages", "English|\u65e5\u672c\u8a9e", "English|\u65e5\u672c\u8a9e", ""},
            {"getAvailableLanguages", "English|<null>|German", "", "getAvailableLanguages: null element at 1"},
            {"getAvailableLanguages", "<int>", "", "getAvailableLanguages: non-text element at 0"},
            {"getAvailableEncodings", "Unicode (UTF-8)=UTF-8|<null>=ISO-8859-1|Cyrillic=<null>",
             "Unicode (UTF-8)=UTF-8|<null>=ISO-8859-1|Cyrillic=<null>", ""},
            {"getAvailableEncodings", "Unicode=UTF-8|<null>", "", "getAvailableEncodings: null element at 1"},
        };
        for (const QStringList &c : cases) {
            m_log.clear();
            BridgeFixture::script(QStringLiteral("list.") + c[0], c[1]);
            QStringList listed;
            if (c[0] == QLatin1String("getAvailableFontFamilyNames"))
                listed = server()->getAvailableFontFamilyNames();
            else if (c[0] == QLatin1String("getAvailableLanguages"))
                listed = server()->getAvailableLanguages();
            else {
                for (const Encoding &encoding : server()->getAvailableEncodings())
                    listed << orNull(encoding.name()) + QLatin1Char('=') + orNull(encoding.charset());
            }
            QCOMPARE(listed.join(QLatin1Char('|')), c[2]);
            QCOMPARE(m_log.text(), c[3]);
        }
    }

    void remoteManagerState()
    {
        const auto state = [this] {
            const std::optional<RemoteManagerState> s = server()->getRemoteManagerState();
            if (!s)
                return QStringLiteral("none");
            return QStringList{orNull(s->serverPin()), orNull(s->message()), QVariant(s->retryVisible()).toString(),
                               QVariant(s->testConnectionVisible()).toString(), QVariant(s->inProgress()).toString(),
                               QString::number(s->port())}.join(QLatin1Char('|'));
        };
        QCOMPARE(state(), QStringLiteral("1234|Ready|false|true|false|45631"));
        for (const char *scripted : {"<null>|No connection|true|false|true|-1", "PIN|<null>|false|false|false|0"}) {
            BridgeFixture::script(QStringLiteral("state"), scripted);
            QCOMPARE(state(), QLatin1String(scripted));
        }
        BridgeFixture::script(QStringLiteral("state"), QString());
        QCOMPARE(state(), QStringLiteral("none"));
        QVERIFY(m_log.lines().isEmpty());
    }

    void exceptionsAreClearedAndLogged()
    {
        server()->setDefaultCharset(QStringLiteral("UTF-8"));
        BridgeFixture::script(QStringLiteral("throw.getLog"), QStringLiteral("log store closed\nsecond line"));
        QVERIFY(server()->getLog(QStringLiteral("remote")).isNull());
        BridgeFixture::script(QStringLiteral("throw.serverRunning"), QStringLiteral("busy"));
        QVERIFY(!server()->isRunning());
        BridgeFixture::script(QStringLiteral("throw.setFontSize"), QStringLiteral("bad size"));
        server()->setFontSize(7);
        BridgeFixture::script(QStringLiteral("throw.getAvailableFontFamilyNames"), QStringLiteral("no fonts"));
        QVERIFY(server()->getAvailableFontFamilyNames().isEmpty());
        BridgeFixture::script(QStringLiteral("throw.isInProgress"), QStringLiteral("state gone"));
        QVERIFY(!server()->getRemoteManagerState().has_value());
        QCOMPARE(m_log.lines(),
                 QStringList({"Java exception in getLog: java.lang.IllegalStateException: log store closed second line",
                              "Java exception in serverRunning: java.lang.IllegalStateException: busy",
                              "Java exception in setFontSize: java.lang.IllegalStateException: bad size",
                              "Java exception in getAvailableFontFamilyNames: java.lang.IllegalStateException: no fonts",
                              "Java exception in isInProgress: java.lang.IllegalStateException: state gone"}));
        QCOMPARE(server()->getDefaultCharset(), QStringLiteral("UTF-8")); // cleared: the next call works
    }

    void refusedOffTheMainThread()
    {
        QString result = QStringLiteral("untouched");
        QThread *thread = QThread::create([&] { result = server()->getLog(QStringLiteral("remote")); });
        thread->start();
        QVERIFY(thread->wait(10000));
        delete thread;
        QVERIFY(result.isNull());
        QCOMPARE(m_log.lines(), QStringList{QStringLiteral("JNIServer: getLog called off the main thread; ignored")});
        QVERIFY(BridgeFixture::recordedCalls().isEmpty());
    }

    void manyCallsKeepNoReferences()
    {
        // 1,100 UTF-16 units, a new Java string per call: 5,000 references
        // left behind would keep over 10 MB of heap alive.
        const QString text = QString(kSample).repeated(100);
        BridgeFixture::script(QStringLiteral("return.getLog.remote"), text);
        QCOMPARE(server()->getLog(QStringLiteral("remote")), text);
        const qint64 before = BridgeFixture::call(QStringLiteral("usedHeapAfterGc")).toLongLong();
        QVERIFY(before > 0);
        for (int i = 0; i < 5000; ++i) {
            if (server()->getLog(QStringLiteral("remote")).size() != text.size())
                QFAIL("wrong text");
            server()->getRemoteManagerState();
            server()->getAvailableLanguages();
        }
        const qint64 grown = BridgeFixture::call(QStringLiteral("usedHeapAfterGc")).toLongLong() - before;
        QVERIFY2(grown < 4 * 1024 * 1024, qPrintable(QStringLiteral("heap grew by %1 bytes").arg(grown)));
        QVERIFY(m_log.lines().isEmpty());
    }

    void oneDelayedUpdatePerJavaUpdate_data()
    {
        QTest::addColumn<int>("threads");
        QTest::addColumn<int>("perThread");
        QTest::newRow("one thread") << 1 << 3; // all three well within 0.1 s
        QTest::newRow("eight threads") << 8 << 25;
    }

    void oneDelayedUpdatePerJavaUpdate()
    {
        QFETCH(int, threads);
        QFETCH(int, perThread);
        const qint64 fired = m_clock.elapsed();
        BridgeFixture::call(QStringLiteral("fireUpdates"), QStringLiteral("%1 %2").arg(threads).arg(perThread));
        QTRY_COMPARE_WITH_TIMEOUT(m_updateTimes.size(), threads * perThread, 10000);
        QVERIFY2(m_updateTimes.first() - fired >= 95, qPrintable(QString::number(m_updateTimes.first() - fired)));
        QTest::qWait(300);
        QCOMPARE(m_updateTimes.size(), threads * perThread);
        QCOMPARE(m_offMainThread, 0);
    }

    void withoutReceiverNothingIsDelivered()
    {
        bool tested = false;
        server()->setConnectionTestEndedSelector([&](bool) { tested = true; });
        delete m_receiver; // the receiver going away clears the target
        m_receiver = nullptr;
        QCOMPARE(server()->target(), nullptr);
        BridgeFixture::call(QStringLiteral("fireUpdates"), QStringLiteral("2 2"));
        BridgeFixture::call(QStringLiteral("fireConnectionTestEnded"), QStringLiteral("true"));
        QTRY_VERIFY_WITH_TIMEOUT(javaThreadReturned(true), 5000);
        QTest::qWait(300);
        QVERIFY(m_updateTimes.isEmpty());
        QVERIFY(!tested);
    }

    void connectionTestHoldsTheJavaThread()
    {
        QList<bool> outcomes;
        bool returnedEarly = false;
        bool onMainThread = false;
        server()->setConnectionTestEndedSelector([&](bool passed) {
            onMainThread = QThread::currentThread() == qApp->thread();
            returnedEarly = javaThreadReturned(passed); // still waiting, even after a while
            QTest::qSleep(250);
            returnedEarly = returnedEarly || javaThreadReturned(passed);
            outcomes << passed;
        });
        BridgeFixture::script(QStringLiteral("testConnection.result"), QStringLiteral("false"));
        server()->testConnection();
        QTRY_COMPARE_WITH_TIMEOUT(outcomes.size(), 1, 5000);
        QVERIFY(!outcomes.first() && onMainThread && !returnedEarly);
        QTRY_VERIFY_WITH_TIMEOUT(javaThreadReturned(false), 5000);
        QCOMPARE(BridgeFixture::recordedCalls().first(), QStringLiteral("RemoteManagerControl.testConnection()"));

        BridgeFixture::call(QStringLiteral("fireConnectionTestEnded"), QStringLiteral("true"));
        QTRY_COMPARE_WITH_TIMEOUT(outcomes.size(), 2, 5000);
        QVERIFY(outcomes.last() && !returnedEarly);
        QTRY_VERIFY_WITH_TIMEOUT(javaThreadReturned(true), 5000);
    }

    void releasedSingletonFreesWaitingJavaThreads()
    {
        bool called = false;
        server()->setConnectionTestEndedSelector([&](bool) { called = true; });
        BridgeFixture::call(QStringLiteral("fireConnectionTestEnded"), QStringLiteral("true"));
        QTest::qSleep(300); // the Java thread posts and waits; no event is processed here
        m_log.clear();
        JNIServer::releaseInstance();
        QCOMPARE(m_log.lines(), QStringList{QStringLiteral("JNIServer dealloc")});
        // The Java thread comes back without the main thread doing anything,
        // and the callback is never delivered.
        JNIServer::initWithRemoteEnabled(true, true);
        QVERIFY(server() && server()->isAvailable());
        QTRY_VERIFY_WITH_TIMEOUT(javaThreadReturned(true), 5000);
        QVERIFY(!called);
    }
};

QTEST_GUILESS_MAIN(TestBridgeJvm)
#include "tst_bridge_jvm.moc"
