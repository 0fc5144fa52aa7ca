// One JVM launched as the controller launches it, against the fixture jar:
// the options it received, the call catalogue with its conversions, null
// rules and exceptions, and callbacks from Java threads.
#include "BridgeFixture.h"
#include "LogCapture.h"
#include "bridge/JNIServer.h"
#include "platform/ProductWebsite.h"
#include "platform/Resources.h"

#include <QtTest>

namespace {
const QString kSample = QStringLiteral("B\u00fcro \U0001F600 \U0001D11E"); // outside the Basic Multilingual Plane

// Java's null shown as "<null>", so that null and empty texts compare apart.
QString orNull(const QString &text) { return text.isNull() ? QStringLiteral("<null>") : text; }

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

    JNIServer *server() { return JNIServer::instance(); }

    // A getter's answer as one text: "|" between list elements; a state is
    // only told apart from none (its fields are tst_remote's).
    QString answer(const QString &getter)
    {
        JNIServer *s = server();
        QStringList parts;
        if (getter == u"getLog")
            return orNull(s->getLog(QStringLiteral("remote")));
        if (getter == u"getRemoteManagerState")
            return s->getRemoteManagerState() ? QStringLiteral("state") : QStringLiteral("none");
        if (getter == u"getAvailableFontFamilyNames")
            parts = s->getAvailableFontFamilyNames();
        else if (getter == u"getAvailableLanguages")
            parts = s->getAvailableLanguages();
        else if (getter == u"getAvailableEncodings")
            for (const Encoding &encoding : s->getAvailableEncodings())
                parts << orNull(encoding.name()) + u'=' + orNull(encoding.charset());
        else
            s->setFontSize(7);
        return parts.join(u'|');
    }

private slots:
    void initTestCase()
    {
        // The application folder handed to Java must arrive intact.
        m_home = QStringLiteral(QUILLON_TEST_BINARY_DIR "/home-\U0001F600");
        QDir().mkpath(m_home);
        qputenv("HOME", m_home.toUtf8());
        qputenv("LC_CTYPE", "C");
        JNIServer::initWithRemoteEnabled(true, false);
        QVERIFY2(server() && server()->isAvailable(), qPrintable(m_log.text()));
        QVERIFY2(m_log.lines().isEmpty(), qPrintable(m_log.text()));
        m_startupCalls = BridgeFixture::recordedCalls();
    }

    void init()
    {
        BridgeFixture::resetScript();
        m_log.clear();
    }

    void launchOptions()
    {
        const QString res = Resources::folder();
        const QString tmp = Resources::temporaryFolder();
        QVERIFY(tmp.endsWith(QLatin1String("tmp-jvm/")));
        const QString url = QLatin1String(kProductWebHost) + QStringLiteral("/JVM/v1/classes/");
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

        // "C.UTF-8" where the C library lacks "UTF-8": either way UTF-8 file names.
        QVERIFY(qgetenv("LC_CTYPE") == "UTF-8" || qgetenv("LC_CTYPE") == "C.UTF-8");
        QCOMPARE(BridgeFixture::call(QStringLiteral("property"), QStringLiteral("sun.jnu.encoding")), QStringLiteral("UTF-8"));

        QCOMPARE(m_startupCalls, QStringList({"init(" + m_home + "/Library/Application Support/QuillonServer)",
                                              "RemoteManagerControl.init(true, false)", "getAvailableFontFamilyNames()",
                                              "getAvailableEncodings()"}));
    }

    void catalogueArguments()
    {
        int port = 0;
        bool running = false;
        const QList<QPair<std::function<void()>, QString>> calls = { // the call, what Java received (";" between calls)
            {[&] { server()->stop(); }, "serverRunning()"}, // not running: stop and quit only ask
            {[&] { server()->quit(); }, "serverRunning()"},
            {[&] { server()->setDefaultPort(45632); }, "setDefaultPort(45632)"},
            {[&] { port = server()->start(); }, "startServer()"},
            {[&] { running = server()->isRunning(); }, "serverRunning()"},
            {[&] { server()->stop(); }, "serverRunning();stopServer()"},
            {[&] { server()->setConverterMaxHeight(-1); }, "setConverterMaxHeight(-1)"},
            {[&] { server()->setComputerName(kSample); }, "setComputerName(" + kSample + ")"},
            {[&] { server()->setComputerName(QString()); }, "setComputerName(null)"}, // a null text stays null...
            {[&] { server()->setComputerName(QStringLiteral("")); }, "setComputerName()"},
            {[&] { server()->setPasswordDigest(QString()); }, "setPasswordDigest()"}, // ...except for the digest
            {[&] { server()->setPasswordDigest(QStringLiteral("a9993e36")); }, "setPasswordDigest(a9993e36)"},
            {[&] { server()->setPreferredLanguages({QStringLiteral("English"), QStringLiteral("Fran\u00e7ais"), QString()}); },
             "setPreferredLanguages([English, Fran\u00e7ais, null])"},
        };
        QStringList expected;
        for (const auto &[call, received] : calls) {
            call();
            expected << received.split(u';');
        }
        QCOMPARE(BridgeFixture::recordedCalls(), expected);
        QVERIFY(port == 45632 && running);
        QCOMPARE(m_log.lines(), QStringList{QStringLiteral("Server started on: 45632")});
    }

    void answers_data()
    {
        QTest::addColumn<QString>("getter");
        QTest::addColumn<QString>("script"); // "key=value" for the fixture, "<null>" being Java's null
        QTest::addColumn<QString>("expected");
        QTest::addColumn<QString>("log");
        int n = 0;
        const auto row = [&n](const char *getter, const QString &script, const QString &expected, const QString &log = {}) {
            QTest::addRow("%d %s", ++n, getter) << QString::fromLatin1(getter) << script << expected << log;
        };
        row("getLog", "return.getLog.remote=<null>", "<null>");
        row("getRemoteManagerState", "state=<null>", "none");
        // The three list walks: null and non-text elements skipped, or the whole list refused.
        row("getAvailableFontFamilyNames", "list.getAvailableFontFamilyNames=Dialog|<null>|Serif|<int>", "Dialog|Serif");
        row("getAvailableFontFamilyNames", "list.getAvailableFontFamilyNames=<null>", "");
        row("getAvailableLanguages", "list.getAvailableLanguages=English|<null>|German", "", "getAvailableLanguages: null element at 1");
        row("getAvailableLanguages", "list.getAvailableLanguages=<int>", "", "getAvailableLanguages: non-text element at 0");
        row("getAvailableEncodings", "list.getAvailableEncodings=Unicode (UTF-8)=UTF-8|<null>=ISO-8859-1|Cyrillic=<null>",
            "Unicode (UTF-8)=UTF-8|<null>=ISO-8859-1|Cyrillic=<null>");
        row("getAvailableEncodings", "list.getAvailableEncodings=Unicode=UTF-8|<null>", "", "getAvailableEncodings: null element at 1");
        // Exceptions give the empty answer and one line each.
        const QString thrown = QStringLiteral("Java exception in %1: java.lang.IllegalStateException: %2");
        row("getLog", "throw.getLog=log store closed\nsecond line", "<null>", thrown.arg("getLog", "log store closed second line"));
        row("setFontSize", "throw.setFontSize=bad size", "", thrown.arg("setFontSize", "bad size"));
        row("getAvailableFontFamilyNames", "throw.getAvailableFontFamilyNames=no fonts", "", thrown.arg("getAvailableFontFamilyNames", "no fonts"));
        row("getRemoteManagerState", "throw.isInProgress=state gone", "none", thrown.arg("isInProgress", "state gone"));
    }

    void answers()
    {
        QFETCH(QString, getter);
        QFETCH(QString, script);
        QFETCH(QString, expected);
        QFETCH(QString, log);
        if (!script.isEmpty())
            BridgeFixture::call(QStringLiteral("script"), script);
        QCOMPARE(answer(getter), expected);
        BridgeFixture::resetScript(); // nothing left pending: the next call works and logs nothing
        QCOMPARE(answer(QStringLiteral("getAvailableLanguages")), QStringLiteral("English|French|German"));
        QCOMPARE(m_log.text(), log);
    }

    void refusedOffTheMainThread()
    {
        QString result = QStringLiteral("untouched");
        const std::unique_ptr<QThread> thread(QThread::create([&] { result = server()->getLog(QStringLiteral("remote")); }));
        thread->start();
        QVERIFY(thread->wait(10000));
        QVERIFY(result.isNull());
        QCOMPARE(m_log.lines(), QStringList{QStringLiteral("JNIServer: getLog called off the main thread; ignored")});
        QVERIFY(BridgeFixture::recordedCalls().isEmpty());
    }

    void callbacksReachOnlyALiveReceiver_data()
    {
        QTest::addColumn<int>("threads");
        QTest::addColumn<int>("perThread");
        QTest::addColumn<bool>("receiver");
        QTest::newRow("eight threads") << 8 << 25 << true;
        QTest::newRow("receiver gone") << 2 << 2 << false;
    }

    // One delayed update per Java update; the connection test's Java thread
    // waits until the receiver has returned. All on the main thread.
    void callbacksReachOnlyALiveReceiver()
    {
        QFETCH(int, threads);
        QFETCH(int, perThread);
        QFETCH(bool, receiver);
        auto target = std::make_unique<QObject>();
        server()->setTarget(target.get());
        int updates = 0, offMainThread = 0;
        server()->setUpdateSelector([&] {
            offMainThread += QThread::currentThread() != qApp->thread();
            ++updates;
        });
        QStringList outcomes; // with whether Java's thread had returned before the receiver did
        server()->setConnectionTestEndedSelector([&](bool passed) {
            offMainThread += QThread::currentThread() != qApp->thread();
            QTest::qSleep(150);
            outcomes << QStringLiteral("passed=%1 returned=%2").arg(int(passed)).arg(int(javaThreadReturned(passed)));
        });
        if (!receiver) {
            target.reset(); // clears the target
            QCOMPARE(server()->target(), nullptr);
        }
        BridgeFixture::call(QStringLiteral("fireUpdates"), QStringLiteral("%1 %2").arg(threads).arg(perThread));
        QTest::qWait(80); // each update waits 0.1 s on the main thread
        QCOMPARE(updates, 0);
        BridgeFixture::script(QStringLiteral("testConnection.result"), QStringLiteral("false"));
        server()->testConnection();
        BridgeFixture::call(QStringLiteral("fireConnectionTestEnded"), QStringLiteral("true"));
        const int expected = receiver ? threads * perThread : 0;
        QTRY_VERIFY_WITH_TIMEOUT(updates == expected && javaThreadReturned(true) && javaThreadReturned(false), 10000);
        QTest::qWait(300);
        QCOMPARE(updates, expected);
        outcomes.sort();
        QCOMPARE(outcomes, receiver ? QStringList({"passed=0 returned=0", "passed=1 returned=0"}) : QStringList());
        QCOMPARE(offMainThread, 0);
        QVERIFY(BridgeFixture::recordedCalls().contains(QStringLiteral("RemoteManagerControl.testConnection()")));
    }

    void releasedSingletonFreesWaitingJavaThreads()
    {
        bool called = false;
        QObject target;
        server()->setTarget(&target);
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
