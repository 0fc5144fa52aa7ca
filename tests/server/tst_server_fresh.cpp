// The facade in a process that starts with an empty preferences store,
// against the fixture jar: start-up order, the running state and its poll,
// and every setting's store and push.
#include "LogCapture.h"
#include "ServerTestSupport.h"
#include "bridge/JNIServer.h"
#include "platform/DelayedCall.h"
#include "server/PasswordDigest.h"
#include "server/Server.h"

#include <QElapsedTimer>
#include <QMetaProperty>
#include <QSignalSpy>

using namespace ServerTest;

namespace {
const QString kComputerName = QStringLiteral("Test Box \U0001F600");
}

class TestServerFresh : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;
    QStringList m_startupCalls;
    Server *server() { return Server::instance(); }
    Defaults &store() { return Defaults::standard(); }

private slots:
    void initTestCase()
    {
        useTemporaryHome(m_home);
        QFile info(m_home.filePath(QStringLiteral("machine-info")));
        QVERIFY(info.open(QIODevice::WriteOnly));
        info.write("# written by a test\nPRETTY_HOSTNAME=\"Test Box \xF0\x9F\x98\x80\"\nICON_NAME=computer\n");
        info.close();
        Server::setMachineInfoPath(info.fileName());

        LogCapture log;
        QVERIFY(Server::preferencesIsRunning()); // an absent wish means running
        QVERIFY(server());
        QVERIFY2(JNIServer::instance() && JNIServer::instance()->isAvailable(), qPrintable(log.lines().join('\n')));
        m_startupCalls = BridgeFixture::recordedCalls();
    }

    void init()
    {
        BridgeFixture::resetScript();
    }

    void startUpOrder()
    {
        QVERIFY(m_startupCalls.contains(QStringLiteral("RemoteManagerControl.init(false, true)")));
        const QString res = qEnvironmentVariable("QUILLON_RESOURCE_DIR");
        const QStringList expected = {
            "setConverterFFMpegPath(" + res + "/ffmpeg)",
            "setConverterFaacPath(" + res + "/faac)", // no mp4creator here: no muxer path
            "setConverterMaxWidth(480)",
            "setConverterMaxHeight(320)",
            "getDefaultCharset()",
            "getAvailableEncodings()",
            "setDefaultCharset(UTF-8)",
            "getFontFamilyName()",
            "setFontFamilyName(Dialog)",
            "setPreferredLanguages([])",
            "setDisableEmbeddedSubtitlesIfNoLanguageMatches(false)",
            "setFontSize(100)",
            "serverRunning()",
            "setDefaultPort(45631)",
            "setPasswordDigest()",
            "setComputerName(" + kComputerName + ")",
            "setConverterMaxWidth(480)",
            "setConverterMaxHeight(320)",
            "startServer()",
            "initialized()",
        };
        QCOMPARE(callsAfterBridgeInit(m_startupCalls), expected);

        // The wish stays absent; the subtitle settings were written back.
        QVERIFY(!store().contains(QStringLiteral("serverRunning")));
        QCOMPARE(store().objectForKey(QStringLiteral("SubtitleDefaultCharset")), QVariant(QStringLiteral("UTF-8")));
        QCOMPARE(store().objectForKey(QStringLiteral("SubtitleFontFamilyName")), QVariant(QStringLiteral("Dialog")));
        QCOMPARE(store().objectForKey(QStringLiteral("DisableEmbeddedSubtitlesIfNoLanguageMatches")), QVariant(false));
        QCOMPARE(store().objectForKey(QStringLiteral("SubtitleFontSize")).toInt(), 100);
        QVERIFY(server()->isRunning());
        QCOMPARE(DelayedCall::pendingCount(server()), 1);
    }

    void setRunningWithAndWithoutChange()
    {
        LogCapture log;
        QSignalSpy spy(server(), &Server::runningChanged);

        server()->setRunning(true); // already running
        QCOMPARE(BridgeFixture::recordedCalls(), QStringList({"serverRunning()"}));
        QVERIFY(!store().contains(QStringLiteral("serverRunning")));
        QCOMPARE(spy.count(), 1);

        BridgeFixture::clearRecordedCalls();
        server()->setRunning(false);
        QCOMPARE(store().objectForKey(QStringLiteral("serverRunning")), QVariant(false));
        QCOMPARE(BridgeFixture::recordedCalls(),
                 QStringList({"serverRunning()", "serverRunning()", "serverRunning()", "stopServer()"}));
        QCOMPARE(log.count(QStringLiteral("Stopping server")), 1);
        QCOMPARE(spy.count(), 2);
        QVERIFY(!server()->isRunning());

        BridgeFixture::clearRecordedCalls();
        server()->setRunning(false); // already stopped: nothing, not even the log line
        QCOMPARE(BridgeFixture::recordedCalls(), QStringList({"serverRunning()"}));
        QCOMPARE(log.count(QStringLiteral("Stopping server")), 1);
        QCOMPARE(spy.count(), 3);

        BridgeFixture::clearRecordedCalls();
        server()->setRunning(true);
        QCOMPARE(store().objectForKey(QStringLiteral("serverRunning")), QVariant(true));
        QCOMPARE(BridgeFixture::recordedCalls(),
                 QStringList({"serverRunning()", "setPasswordDigest()", "setComputerName(" + kComputerName + ")",
                              "setConverterMaxWidth(480)", "setConverterMaxHeight(320)", "startServer()"}));
        QCOMPARE(spy.count(), 4);
        QVERIFY(server()->property("running").toBool());
    }

    void pollNoticesAServerThatStopsByItself()
    {
        QTest::qWait(1200); // one pass of the poll has seen the running server
        QSignalSpy spy(server(), &Server::runningChanged);
        QElapsedTimer clock;
        clock.start();
        JNIServer::instance()->stop(); // behind the facade's back
        QTRY_COMPARE_WITH_TIMEOUT(spy.count(), 1, 2000);
        QVERIFY2(clock.elapsed() < 1500, qPrintable(QString::number(clock.elapsed())));
        QVERIFY(!server()->isRunning());
        QVERIFY(Server::preferencesIsRunning()); // the wish is untouched
        QTest::qWait(1200);
        QCOMPARE(spy.count(), 1); // reported once, not on every pass
        QCOMPARE(DelayedCall::pendingCount(server()), 1);
    }

    void portAndConverterSettings()
    {
        QCOMPARE(server()->listenOnCustomPort(), false);
        QCOMPARE(server()->customPort(), 45631);
        QCOMPARE(server()->remoteSupportEnabled(), false);
        QCOMPARE(server()->portMappingEnabled(), true);
        QCOMPARE(server()->maximalWidth(), 480);
        QCOMPARE(server()->maximalHeight(), 320);
        QCOMPARE(server()->codec(), QStringLiteral("X264"));
        QCOMPARE(server()->codecValues(), QStringList({"X264", "MPEG4"}));

        // Each setter stores, then pushes: the store already holds the value
        // when Java hears of it.
        QCOMPARE(storedAtPush("setDefaultPort", "CustomPort", [&] { server()->setCustomPort(8080); }), QVariant(8080));
        server()->setCustomPort(8080);
        QCOMPARE(BridgeFixture::recordedCalls(), QStringList({"setDefaultPort(45631)"})); // not in use yet
        QCOMPARE(storedAtPush("setDefaultPort", "ListenOnCustomPort", [&] { server()->setListenOnCustomPort(true); }),
                 QVariant(true));
        server()->setListenOnCustomPort(true);
        server()->setListenOnCustomPort(false);
        QCOMPARE(BridgeFixture::recordedCalls(), QStringList({"setDefaultPort(8080)", "setDefaultPort(45631)"}));
        QCOMPARE(store().objectForKey("CustomPort"), QVariant(8080)); // kept while not in use

        QCOMPARE(storedAtPush("setConverterMaxWidth", "ConverterMaximalWidth", [&] { server()->setMaximalWidth(640); }),
                 QVariant(640));
        QCOMPARE(storedAtPush("setConverterMaxHeight", "ConverterMaximalHeight", [&] { server()->setMaximalHeight(200); }),
                 QVariant(200));
        QCOMPARE(storedAtPush("setEnableRemote", "RemoteSupportEnabled", [&] { server()->setRemoteSupportEnabled(true); }),
                 QVariant(true));
        QCOMPARE(storedAtPush("setEnablePortMapping", "PortMappingEnabled", [&] { server()->setPortMappingEnabled(false); }),
                 QVariant(false));
        server()->setMaximalWidth(300);
        server()->setMaximalHeight(480);
        server()->setRemoteSupportEnabled(false);
        server()->setPortMappingEnabled(true);
        server()->setCodec(QStringLiteral("MPEG4")); // stored only
        QCOMPARE(BridgeFixture::recordedCalls(),
                 QStringList({"setConverterMaxWidth(300)", "setConverterMaxHeight(480)",
                              "RemoteManagerControl.setEnableRemote(false)",
                              "RemoteManagerControl.setEnablePortMapping(true)"}));
        QCOMPARE(server()->codec(), QStringLiteral("MPEG4"));
        server()->setCodec(QString());
        QVERIFY(!store().contains("ConverterCodec"));
        QCOMPARE(server()->codec(), QStringLiteral("X264"));

        // A port below 1 is no port; a width of 0 is a width.
        for (qint64 port : {0, -5}) {
            store().setInteger(port, "CustomPort");
            QCOMPARE(server()->customPort(), 45631);
        }
        store().setInteger(0, "ConverterMaximalWidth");
        QCOMPARE(server()->maximalWidth(), 0);
        store().removeObjectForKey("ConverterMaximalWidth");
        QCOMPARE(server()->maximalWidth(), 480);
        store().setInteger(9000, "CustomPort");
        store().setBool(true, "ListenOnCustomPort");
        BridgeFixture::clearRecordedCalls();
        server()->checkUserDefaults(); // the wish is YES: start again
        QCOMPARE(BridgeFixture::recordedCalls().value(0), QStringLiteral("setDefaultPort(9000)"));
        QVERIFY(server()->isRunning());
    }

    // Every bound property notifies when written and reads back what was written.
    void propertiesNotify()
    {
        const QList<QPair<const char *, QVariant>> samples = {
            {"running", false},
            {"listenOnCustomPort", true},
            {"customPort", 12345},
            {"remoteSupportEnabled", true},
            {"portMappingEnabled", false},
            {"maximalWidth", 500},
            {"maximalHeight", 300},
            {"codec", QStringLiteral("MPEG4")},
            {"requiresPassword", true},
            {"defaultEncoding", QVariant::fromValue(Encoding(QStringLiteral("Western"), QStringLiteral("ISO-8859-1")))},
            {"fontFamilyName", QStringLiteral("Serif")},
            {"preferredLanguage1", QStringLiteral("French")},
            {"preferredLanguage2", QStringLiteral("German")},
            {"preferredLanguage3", QStringLiteral("English")},
            {"preferredLanguage4", QStringLiteral("French")},
            {"disableEmbeddedSubtitlesIfNoLanguageMatches", true},
            {"fontSize", 140},
        };
        const QMetaObject *meta = server()->metaObject();
        for (const auto &[name, value] : samples) {
            const QMetaProperty property = meta->property(meta->indexOfProperty(name));
            QVERIFY2(property.isValid() && property.hasNotifySignal(), name);
            QSignalSpy spy(server(), property.notifySignal());
            QVERIFY2(property.write(server(), value), name);
            QVERIFY2(spy.count() == 1, name);
            QVERIFY2(property.read(server()) == value, name);
        }
        QSignalSpy placeholder(server(), &Server::passwordPlaceholderChanged);
        server()->setPassword(QStringLiteral("x"));
        QCOMPARE(placeholder.count(), 1);
        QCOMPARE(server()->property("passwordPlaceholder").toString(), QStringLiteral("*"));
    }

    void validation()
    {
        struct Case { bool width; QVariant value; bool valid; };
        const QList<Case> cases = {
            {true, 300, true}, {true, 640, true}, {true, 299, false}, {true, 641, false},
            {true, QStringLiteral("500"), true}, {true, QStringLiteral("abc"), false}, {true, 639.9, true},
            {false, 200, true}, {false, 480, true}, {false, 199, false}, {false, 481, false},
            {true, QVariant(), true}, {false, QVariant::fromValue(nullptr), true},
        };
        for (const Case &c : cases) {
            ValidationError error;
            const bool valid = c.width ? server()->validateMaximalWidth(c.value, &error)
                                       : server()->validateMaximalHeight(c.value, &error);
            QVERIFY2(valid == c.valid, qPrintable(c.value.toString()));
            if (valid) {
                QVERIFY(error.description.isEmpty());
                continue;
            }
            QCOMPARE(error.domain, QStringLiteral("Quillon"));
            QCOMPARE(error.code, 0);
            QCOMPARE(error.description, c.width ? QStringLiteral("Value must be between 300 and 640")
                                                : QStringLiteral("Value must be between 200 and 480"));
        }
        QVERIFY(!server()->validateMaximalWidth(641, nullptr));
        QCOMPARE(QList<int>({server()->maximalWidthMin(), server()->maximalWidthMax(), server()->maximalHeightMin(),
                             server()->maximalHeightMax()}),
                 QList<int>({300, 640, 200, 480}));
    }

    void password()
    {
        server()->setPassword(QString());
        server()->setRequiresPassword(false);
        QVERIFY(server()->passwordPlaceholder().isNull());
        store().setString(QStringLiteral("leftover"), "password");
        BridgeFixture::clearRecordedCalls();

        const QString secret = QStringLiteral("s3cret-pw");
        const QString digest = PasswordDigest::getSHA1(secret);
        server()->setPassword(secret); // the switch is off: Java requires nothing
        QCOMPARE(server()->passwordDigest(), digest);
        QCOMPARE(store().objectForKey("passwordLength").toInt(), 9);
        QCOMPARE(server()->passwordPlaceholder(), QStringLiteral("*********"));
        QVERIFY(!store().contains("password"));
        QCOMPARE(BridgeFixture::recordedCalls(), QStringList({"setPasswordDigest()"}));
        QCOMPARE(storedAtPush("setPasswordDigest", "requiresPassword", [&] { server()->setRequiresPassword(true); }),
                 QVariant(true));
        server()->setRequiresPassword(false);
        server()->setRequiresPassword(true);
        server()->setPassword(QStringLiteral("\U0001F600")); // two UTF-16 units
        QCOMPARE(server()->passwordPlaceholder(), QStringLiteral("**"));
        server()->setPassword(QStringLiteral(""));
        QVERIFY(server()->passwordPlaceholder().isNull());
        QCOMPARE(server()->passwordDigest(), QStringLiteral("DA39A3EE5E6B4B0D3255BFEF95601890AFD80709"));
        server()->setPassword(QString());
        QVERIFY(!store().contains("passwordDigest"));
        QCOMPARE(store().objectForKey("passwordLength").toInt(), 0);
        QCOMPARE(BridgeFixture::recordedCalls(),
                 QStringList({"setPasswordDigest()", "setPasswordDigest(" + digest + ")", // the switch
                              "setPasswordDigest(" + PasswordDigest::getSHA1(QStringLiteral("\U0001F600")) + ")",
                              "setPasswordDigest(DA39A3EE5E6B4B0D3255BFEF95601890AFD80709)",
                              "setPasswordDigest()"})); // switch on but no password: nothing
        QCOMPARE(store().objectForKey("requiresPassword"), QVariant(true)); // setPassword leaves the switch

        // The password itself never reaches the disk.
        QFile file(store().fileName());
        QVERIFY(file.open(QIODevice::ReadOnly));
        QVERIFY(!file.readAll().contains(secret.toUtf8()));

        store().setInteger(-2, "passwordLength");
        QVERIFY(!server()->passwordPlaceholder().isNull());
        QVERIFY(server()->passwordPlaceholder().isEmpty());
        store().setInteger(qint64(1) << 40, "passwordLength"); // damaged: bounded, no huge allocation
        QCOMPARE(server()->passwordPlaceholder().size(), 4096);
    }

    void subtitles()
    {
        for (int i = 1; i <= 4; ++i)
            server()->setPreferredLanguage(QStringLiteral("None"), i);
        QCOMPARE(server()->availableLanguages(), QStringList({"None", "English", "French", "German"}));
        QCOMPARE(server()->availableFontSizes(), QList<int>({90, 100, 110, 120, 130, 140, 150}));
        QCOMPARE(withPercent(90), QStringLiteral("90%"));
        store().removeObjectForKey("SubtitleFontSize");
        QCOMPARE(withPercent(server()->fontSize()), QStringLiteral("100%"));

        // Slots with gaps: the list pushed closes them, slot order kept.
        BridgeFixture::clearRecordedCalls();
        server()->setPreferredLanguage3(QStringLiteral("German"));
        server()->setPreferredLanguage1(QStringLiteral("English"));
        server()->setPreferredLanguage2(QStringLiteral("None"));
        QVERIFY(!store().contains("SubtitlePreferredLanguage2"));
        QCOMPARE(server()->preferredLanguage2(), QStringLiteral("None"));
        server()->setPreferredLanguage1(QStringLiteral("None"));
        server()->setPreferredLanguage(QStringLiteral("French"), 5); // no such slot
        QCOMPARE(server()->preferredLanguageForIndex(0), QStringLiteral("None"));
        QCOMPARE(BridgeFixture::recordedCalls(),
                 QStringList({"setPreferredLanguages([German])", "setPreferredLanguages([English, German])",
                              "setPreferredLanguages([English, German])", "setPreferredLanguages([German])"}));

        // Charset and family are pushed before they are stored; the switch and
        // the size after.
        const Encoding latin1(QStringLiteral("Western (ISO Latin 1)"), QStringLiteral("ISO-8859-1"));
        server()->setDefaultEncoding(Encoding(QStringLiteral("Unicode (UTF-8)"), QStringLiteral("UTF-8")));
        QCOMPARE(storedAtPush("setDefaultCharset", "SubtitleDefaultCharset", [&] { server()->setDefaultEncoding(latin1); }),
                 QVariant(QStringLiteral("UTF-8")));
        QCOMPARE(store().objectForKey("SubtitleDefaultCharset"), QVariant(QStringLiteral("ISO-8859-1")));
        QCOMPARE(server()->defaultEncoding().name(), latin1.name());
        server()->setFontFamilyName(QStringLiteral("Dialog"));
        QCOMPARE(storedAtPush("setFontFamilyName", "SubtitleFontFamilyName", [&] { server()->setFontFamilyName("Serif"); }),
                 QVariant(QStringLiteral("Dialog")));
        QCOMPARE(server()->fontFamilyName(), QStringLiteral("Serif"));
        server()->setDisableEmbeddedSubtitlesIfNoLanguageMatches(false);
        QCOMPARE(storedAtPush("setDisableEmbeddedSubtitlesIfNoLanguageMatches",
                              "DisableEmbeddedSubtitlesIfNoLanguageMatches",
                              [&] { server()->setDisableEmbeddedSubtitlesIfNoLanguageMatches(true); }),
                 QVariant(true));
        QCOMPARE(storedAtPush("setFontSize", "SubtitleFontSize", [&] { server()->setFontSize(120); }), QVariant(120));
        QCOMPARE(server()->fontSize(), 120);

        // A stored charset the server no longer offers gives way to the first
        // offered one, which start-up then stores.
        BridgeFixture::script("list.getAvailableEncodings", "Cyrillic (KOI8-U)=KOI8-U|Western=ISO-8859-1");
        store().setString(QStringLiteral("MacRoman"), "SubtitleDefaultCharset");
        QCOMPARE(server()->defaultEncoding().name(), QStringLiteral("Cyrillic (KOI8-U)"));
        server()->updateSubtitleSettings();
        QCOMPARE(store().objectForKey("SubtitleDefaultCharset"), QVariant(QStringLiteral("KOI8-U")));

        // No encodings at all: the wanted charset is kept as it is.
        BridgeFixture::script("list.getAvailableEncodings", "");
        QCOMPARE(server()->defaultEncoding().charset(), QStringLiteral("KOI8-U"));
        store().removeObjectForKey("SubtitleDefaultCharset");
        BridgeFixture::script("return.getDefaultCharset", "<null>");
        QVERIFY(server()->defaultEncoding().charset().isNull());
        BridgeFixture::clearRecordedCalls();
        server()->setDefaultEncoding(server()->defaultEncoding()); // nothing to push or store
        QVERIFY(!BridgeFixture::recordedCalls().contains(QStringLiteral("setDefaultCharset(null)")));
        QVERIFY(!store().contains("SubtitleDefaultCharset"));

        // An absent family is the server's.
        store().removeObjectForKey("SubtitleFontFamilyName");
        BridgeFixture::script("return.getFontFamilyName", "Monospaced");
        QCOMPARE(server()->fontFamilyName(), QStringLiteral("Monospaced"));
    }

    void cleanupTestCase()
    {
        LogCapture log;
        Server::releaseInstance();
        QCOMPARE(log.lines(), QStringList({"Server Dealloc"}));
        QVERIFY(!Server::instance()); // gone for good: nothing restarts it
        QVERIFY(JNIServer::instance()); // the bridge ends on its own
    }
};

QTEST_GUILESS_MAIN(TestServerFresh)
#include "tst_server_fresh.moc"
