// The call catalogue against the fixture: what Java receives, what comes
// back, the null rules of the list walks, and exceptions.
#include "BridgeFixture.h"
#include "LogCapture.h"
#include "bridge/JNIServer.h"

#include <QThread>
#include <QtTest>

namespace {
const QString kSample = QStringLiteral("B\u00fcro \U0001F600 \U0001D11E");
}

class TestBridgeCalls : public QObject
{
    Q_OBJECT

    LogCapture m_log;
    JNIServer *server() { return JNIServer::instance(); }

private slots:
    void initTestCase()
    {
        JNIServer::initWithRemoteEnabled(false, false);
        QVERIFY2(server() && server()->isAvailable(), qPrintable(m_log.lines().join(QLatin1Char('\n'))));
    }

    void init()
    {
        BridgeFixture::resetScript();
        m_log.clear();
    }

    void catalogueArguments()
    {
        server()->setDefaultPort(45631);
        server()->setConverterMaxWidth(720);
        server()->setConverterMaxHeight(-1);
        server()->converterResetQueue();
        server()->setComputerName(QStringLiteral("Alice's Mac"));
        server()->setComputerName(QString());
        server()->setComputerName(QStringLiteral(""));
        server()->setPasswordDigest(QString());
        server()->setPasswordDigest(QStringLiteral("a9993e36"));
        server()->setConverterFFMpegPath(QStringLiteral("/usr/bin/ffmpeg"));
        server()->setConverterFaacPath(QStringLiteral("/usr/bin/faac"));
        server()->setConverterMuxerPath(QStringLiteral("/usr/bin/mp4creator"));
        server()->setFontSize(18);
        server()->setDisableEmbeddedSubtitlesIfNoLanguageMatches(true);
        server()->setDefaultCharset(QStringLiteral("ISO-8859-1"));
        server()->setFontFamilyName(QStringLiteral("Serif"));
        server()->setPreferredLanguages({QStringLiteral("English"), QStringLiteral("Fran\u00e7ais"), QString()});
        server()->setPreferredLanguages({});
        server()->clearLog(QStringLiteral("remote"));
        server()->setEnableRemote(true);
        server()->setEnablePortMapping(false);
        server()->retry();
        server()->initialized();
        const QStringList expected = {
            "setDefaultPort(45631)",
            "setConverterMaxWidth(720)",
            "setConverterMaxHeight(-1)",
            "converterResetQueue()",
            "setComputerName(Alice's Mac)",
            "setComputerName(null)", // a null text stays null...
            "setComputerName()",
            "setPasswordDigest()", // ...except for the digest
            "setPasswordDigest(a9993e36)",
            "setConverterFFMpegPath(/usr/bin/ffmpeg)",
            "setConverterFaacPath(/usr/bin/faac)",
            "setConverterMuxerPath(/usr/bin/mp4creator)",
            "setFontSize(18)",
            "setDisableEmbeddedSubtitlesIfNoLanguageMatches(true)",
            "setDefaultCharset(ISO-8859-1)",
            "setFontFamilyName(Serif)",
            "setPreferredLanguages([English, Fran\u00e7ais, null])",
            "setPreferredLanguages([])",
            "clearLog(remote)",
            "RemoteManagerControl.setEnableRemote(true)",
            "RemoteManagerControl.setEnablePortMapping(false)",
            "RemoteManagerControl.retry()",
            "initialized()",
        };
        QCOMPARE(BridgeFixture::recordedCalls(), expected);
        QVERIFY(m_log.lines().isEmpty());
    }

    void startStopAndRunningState()
    {
        // Not running: stop and quit only ask.
        server()->stop();
        server()->quit();
        QCOMPARE(BridgeFixture::recordedCalls(), QStringList({"serverRunning()", "serverRunning()"}));

        BridgeFixture::clearRecordedCalls();
        server()->setDefaultPort(45632);
        QCOMPARE(server()->start(), 45632);
        QVERIFY(m_log.lines().contains(QStringLiteral("Server started on: 45632")));
        QVERIFY(server()->isRunning());
        server()->stop();
        QVERIFY(!server()->isRunning());
        QCOMPARE(BridgeFixture::recordedCalls(),
                 QStringList({"setDefaultPort(45632)", "startServer()", "serverRunning()", "serverRunning()",
                              "stopServer()", "serverRunning()"}));
    }

    void stringResults()
    {
        BridgeFixture::script(QStringLiteral("return.getLog.remote"), QStringLiteral(""));
        const QString empty = server()->getLog(QStringLiteral("remote"));
        QVERIFY(!empty.isNull());
        QVERIFY(empty.isEmpty());

        BridgeFixture::script(QStringLiteral("return.getLog.remote"), QString());
        QVERIFY(server()->getLog(QStringLiteral("remote")).isNull());

        const QString lines = QStringLiteral("first line\nsecond\tline\n");
        BridgeFixture::script(QStringLiteral("return.getLog.thumbnail"), lines);
        QCOMPARE(server()->getLog(QStringLiteral("thumbnail")), lines);

        BridgeFixture::script(QStringLiteral("return.getFontFamilyName"), QString());
        QVERIFY(server()->getFontFamilyName().isNull());
        server()->setDefaultCharset(QStringLiteral("windows-1252"));
        QCOMPARE(server()->getDefaultCharset(), QStringLiteral("windows-1252"));
        QCOMPARE(server()->getConverterQueueAsJSON(), QStringLiteral("{\"items\":[],\"converting\":null}"));
        QCOMPARE(server()->getLastConversionLog(), QStringLiteral(""));
    }

    void charactersOutsideTheBasicPlane()
    {
        // Java to C++: the text is a Java literal inside the fixture.
        BridgeFixture::script(QStringLiteral("return.getLastConversionLog"), QStringLiteral("<sample>"));
        QCOMPARE(server()->getLastConversionLog(), kSample);
        // C++ to Java: the fixture compares with the same literal.
        server()->setComputerName(kSample);
        QCOMPARE(BridgeFixture::scripted(QStringLiteral("setComputerName.isSample")), QStringLiteral("true"));
        server()->setComputerName(QStringLiteral("B\u00fcro"));
        QCOMPARE(BridgeFixture::scripted(QStringLiteral("setComputerName.isSample")), QStringLiteral("false"));
    }

    void fontListSkipsNulls()
    {
        BridgeFixture::script(QStringLiteral("list.getAvailableFontFamilyNames"), QStringLiteral("Dialog|<null>|Serif|<int>"));
        QCOMPARE(server()->getAvailableFontFamilyNames(), QStringList({"Dialog", "Serif"}));
        BridgeFixture::script(QStringLiteral("list.getAvailableFontFamilyNames"), QStringLiteral(""));
        QCOMPARE(server()->getAvailableFontFamilyNames(), QStringList());
        BridgeFixture::script(QStringLiteral("list.getAvailableFontFamilyNames"), QString());
        QCOMPARE(server()->getAvailableFontFamilyNames(), QStringList());
        QVERIFY(m_log.lines().isEmpty());
    }

    void languageListRefusesNulls()
    {
        BridgeFixture::script(QStringLiteral("list.getAvailableLanguages"), QStringLiteral("English|Deutsch|\u65e5\u672c\u8a9e"));
        QCOMPARE(server()->getAvailableLanguages(), QStringList({"English", "Deutsch", "\u65e5\u672c\u8a9e"}));
        QVERIFY(m_log.lines().isEmpty());

        BridgeFixture::script(QStringLiteral("list.getAvailableLanguages"), QStringLiteral("English|<null>|German"));
        QCOMPARE(server()->getAvailableLanguages(), QStringList());
        QCOMPARE(m_log.lines(), QStringList{QStringLiteral("getAvailableLanguages: null element at 1")});

        m_log.clear();
        BridgeFixture::script(QStringLiteral("list.getAvailableLanguages"), QStringLiteral("<int>"));
        QCOMPARE(server()->getAvailableLanguages(), QStringList());
        QCOMPARE(m_log.lines(), QStringList{QStringLiteral("getAvailableLanguages: non-text element at 0")});
    }

    void encodingList()
    {
        BridgeFixture::script(QStringLiteral("list.getAvailableEncodings"),
                              QStringLiteral("Unicode (UTF-8)=UTF-8|<null>=ISO-8859-1|Cyrillic=<null>"));
        const QList<Encoding> encodings = server()->getAvailableEncodings();
        QCOMPARE(encodings.size(), 3);
        QCOMPARE(encodings[0].name(), QStringLiteral("Unicode (UTF-8)"));
        QCOMPARE(encodings[0].charset(), QStringLiteral("UTF-8"));
        QVERIFY(encodings[1].name().isNull());
        QCOMPARE(encodings[1].charset(), QStringLiteral("ISO-8859-1"));
        QVERIFY(encodings[2].charset().isNull());

        BridgeFixture::script(QStringLiteral("list.getAvailableEncodings"), QStringLiteral("Unicode=UTF-8|<null>"));
        QVERIFY(server()->getAvailableEncodings().isEmpty());
        QCOMPARE(m_log.lines(), QStringList{QStringLiteral("getAvailableEncodings: null element at 1")});
    }

    void remoteManagerState()
    {
        std::optional<RemoteManagerState> state = server()->getRemoteManagerState();
        QVERIFY(state.has_value());
        QCOMPARE(state->serverPin(), QStringLiteral("1234"));
        QCOMPARE(state->message(), QStringLiteral("Ready"));
        QVERIFY(!state->retryVisible());
        QVERIFY(state->testConnectionVisible());
        QVERIFY(!state->inProgress());
        QCOMPARE(state->port(), 45631);

        BridgeFixture::script(QStringLiteral("state"), QStringLiteral("<null>|No connection|true|false|true|-1"));
        state = server()->getRemoteManagerState();
        QVERIFY(state.has_value());
        QVERIFY(state->serverPin().isNull());
        QCOMPARE(state->message(), QStringLiteral("No connection"));
        QVERIFY(state->retryVisible());
        QVERIFY(!state->testConnectionVisible());
        QVERIFY(state->inProgress());
        QCOMPARE(state->port(), -1);

        BridgeFixture::script(QStringLiteral("state"), QString());
        QVERIFY(!server()->getRemoteManagerState().has_value());
        QVERIFY(m_log.lines().isEmpty());
    }

    void exceptionsAreClearedAndLogged()
    {
        server()->setDefaultCharset(QStringLiteral("UTF-8"));
        BridgeFixture::script(QStringLiteral("throw.getLog"), QStringLiteral("log store closed\nsecond line"));
        QVERIFY(server()->getLog(QStringLiteral("remote")).isNull());
        QCOMPARE(m_log.lines(),
                 QStringList{QStringLiteral(
                     "Java exception in getLog: java.lang.IllegalStateException: log store closed second line")});
        // Cleared: the next call works.
        QCOMPARE(server()->getDefaultCharset(), QStringLiteral("UTF-8"));

        m_log.clear();
        BridgeFixture::script(QStringLiteral("throw.serverRunning"), QStringLiteral("busy"));
        QVERIFY(!server()->isRunning());
        BridgeFixture::script(QStringLiteral("throw.setFontSize"), QStringLiteral("bad size"));
        server()->setFontSize(7);
        BridgeFixture::script(QStringLiteral("throw.getAvailableFontFamilyNames"), QStringLiteral("no fonts"));
        QVERIFY(server()->getAvailableFontFamilyNames().isEmpty());
        BridgeFixture::script(QStringLiteral("throw.isInProgress"), QStringLiteral("state gone"));
        QVERIFY(!server()->getRemoteManagerState().has_value());
        QCOMPARE(m_log.lines(),
                 QStringList({"Java exception in serverRunning: java.lang.IllegalStateException: busy",
                              "Java exception in setFontSize: java.lang.IllegalStateException: bad size",
                              "Java exception in getAvailableFontFamilyNames: java.lang.IllegalStateException: no fonts",
                              "Java exception in isInProgress: java.lang.IllegalStateException: state gone"}));
        QCOMPARE(server()->getDefaultCharset(), QStringLiteral("UTF-8"));
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
        QVERIFY(!BridgeFixture::recordedCalls().contains(QStringLiteral("getLog(remote)")));
    }

    void manyCallsKeepNoReferences()
    {
        // getLog gives a new string of 1,100 UTF-16 units per call: 5,000
        // references left behind would keep over 10 MB of Java heap alive.
        const QString text = QString(kSample).repeated(100);
        BridgeFixture::script(QStringLiteral("return.getLog.remote"), text);
        QCOMPARE(server()->getLog(QStringLiteral("remote")), text);
        const qint64 before = BridgeFixture::usedHeapAfterGc();
        QVERIFY(before > 0);
        for (int i = 0; i < 5000; ++i) {
            if (server()->getLog(QStringLiteral("remote")).size() != text.size())
                QFAIL("wrong text");
            server()->getRemoteManagerState();
            server()->getAvailableLanguages();
        }
        const qint64 after = BridgeFixture::usedHeapAfterGc();
        QVERIFY2(after - before < 4 * 1024 * 1024, qPrintable(QStringLiteral("heap grew by %1 bytes").arg(after - before)));
        QVERIFY(m_log.lines().isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestBridgeCalls)
#include "tst_bridge_calls.moc"
