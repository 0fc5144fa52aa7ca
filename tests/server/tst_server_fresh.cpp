// The facade in a process that starts with an empty preferences store,
// against the fixture jar: start-up order, the running state and its poll,
// and every setting's store and push.
#include "LogCapture.h"
#include "ServerTestSupport.h"
#include "bridge/JNIServer.h"
#include "platform/DelayedCall.h"
#include "server/PasswordDigest.h"


using namespace ServerTest;

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
        LogCapture log;
        QVERIFY(Server::preferencesIsRunning()); // an absent wish means running
        QVERIFY(server());
        QVERIFY2(JNIServer::instance() && JNIServer::instance()->isAvailable(), qPrintable(log.text()));
        m_startupCalls = BridgeFixture::recordedCalls();
    }

    void startUpOrderAndDefaults()
    {
        QVERIFY(m_startupCalls.contains(QStringLiteral("RemoteManagerControl.init(false, true)")));
        const QString res = qEnvironmentVariable("QUILLON_RESOURCE_DIR");
        const QStringList expected = { // one line a step; no mp4creator here, so no muxer path
            "setConverterFFMpegPath(" + res + "/ffmpeg)", "setConverterFaacPath(" + res + "/faac)",
            "setConverterMaxWidth(480)", "setConverterMaxHeight(320)",
            "getDefaultCharset()", "getAvailableEncodings()", "setDefaultCharset(UTF-8)",
            "getFontFamilyName()", "setFontFamilyName(Dialog)",
            "setPreferredLanguages([])", "setDisableEmbeddedSubtitlesIfNoLanguageMatches(false)", "setFontSize(100)",
            "serverRunning()", "setDefaultPort(45631)",
            "setPasswordDigest()", "setComputerName(" + Server::computerName() + ")", "setConverterMaxWidth(480)",
            "setConverterMaxHeight(320)", "startServer()",
            "initialized()",
        };
        QCOMPARE(callsAfterBridgeInit(m_startupCalls), expected); // the poll it arms is pollNoticesAServerThatStopsByItself's

        // The defaults no call above shows.
        QCOMPARE(QStringList({server()->codec(), server()->preferredLanguage1(), server()->preferredLanguage4()}),
                 QStringList({"X264", "None", "None"}));
        QVERIFY(server()->passwordPlaceholder().isNull() && server()->passwordDigest().isNull());
        // The server's charset and family were stored (the other subtitle
        // settings through the setters the calls show).
        QCOMPARE(store().objectForKey(QStringLiteral("SubtitleDefaultCharset")), QVariant(QStringLiteral("UTF-8")));
        QCOMPARE(store().objectForKey(QStringLiteral("SubtitleFontFamilyName")), QVariant(QStringLiteral("Dialog")));
    }

    void setRunningWithAndWithoutChange()
    {
        LogCapture log;
        QSignalSpy spy(server(), &Server::runningChanged);
        const auto setRunning = [&](bool wanted) { return callsDuring([&] { server()->setRunning(wanted); }); };
        QCOMPARE(setRunning(true), QStringList({"serverRunning()"})); // already running: no wish written
        QVERIFY(!store().contains(QStringLiteral("serverRunning")));
        QCOMPARE(setRunning(false), QStringList({"serverRunning()", "serverRunning()", "serverRunning()", "stopServer()"}));
        QCOMPARE(store().objectForKey(QStringLiteral("serverRunning")), QVariant(false));
        QCOMPARE(setRunning(false), QStringList({"serverRunning()"}));
        QCOMPARE(log.count(QStringLiteral("Stopping server")), 1);
        QCOMPARE(setRunning(true), QStringList({"serverRunning()", "setPasswordDigest()", "setComputerName(" + Server::computerName() + ")",
                                                "setConverterMaxWidth(480)", "setConverterMaxHeight(320)", "startServer()"}));
        QCOMPARE(store().objectForKey(QStringLiteral("serverRunning")), QVariant(true));
        QCOMPARE(spy.count(), 4); // observers hear of every request
    }

    // A start refused for its port says why until the server runs or the
    // user stops it (its text is the shell test's); only a start the user asked for is announced.
    void refusedStartSaysWhy()
    {
        QSignalSpy announced(server(), &Server::requestedStartFailed);
        QSignalSpy changed(server(), &Server::startFailureChanged);
        server()->setRunning(false);
        BridgeFixture::script(QStringLiteral("return.startServer"), QStringLiteral("-1"));
        store().setBool(true, "serverRunning");
        server()->checkUserDefaults(); // the start at launch: not asked for
        server()->setRunning(true);
        QVERIFY(!server()->isRunning());
        QCOMPARE(announced.count(), 1);
        QCOMPARE(changed.count(), 1);
        server()->setRunning(false);
        QCOMPARE(server()->startFailure(), QString());
        BridgeFixture::resetScript();
        server()->setRunning(true);
        QVERIFY(server()->isRunning() && server()->startFailure().isNull());
        QCOMPARE(changed.count(), 2);
    }

    void pollNoticesAServerThatStopsByItself()
    {
        QTest::qWait(1200); // one pass of the poll has seen the running server
        QSignalSpy spy(server(), &Server::runningChanged);
        JNIServer::instance()->stop(); // behind the facade's back
        QTRY_COMPARE_WITH_TIMEOUT(spy.count(), 1, 1500);
        QVERIFY(Server::preferencesIsRunning()); // the wish is untouched
        QTest::qWait(1200);
        QCOMPARE(spy.count(), 1); // reported once, not on every pass
        QCOMPARE(DelayedCall::pendingCount(server()), 1);
    }

    void storedValuesAsRead()
    {
        for (qint64 port : {0LL, -5LL, 1LL << 31}) { // a port below 1 (or beyond an int) is no port...
            store().setInteger(port, "CustomPort");
            QCOMPARE(server()->customPort(), 45631);
        }
        store().setInteger(0, "ConverterMaximalWidth"); // ...but a width of 0 is a width
        QCOMPARE(server()->maximalWidth(), 0);
        store().removeObjectForKey("ConverterMaximalWidth");
        store().setInteger(9000, "CustomPort");
        store().setBool(true, "ListenOnCustomPort");
        const QStringList calls = callsDuring([&] { server()->checkUserDefaults(); }); // the wish is YES: start again
        QCOMPARE(calls.value(0), QStringLiteral("setDefaultPort(9000)"));
        QVERIFY(calls.contains(QStringLiteral("startServer()")));
        store().setBool(false, "ListenOnCustomPort");
    }

    // Each bound property notifies, reads back what was written, and pushes
    // its value; charset and family reach Java before the store, the rest after.
    void settingsStoreNotifyAndPush_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QVariant>("storedAtPush");
        QTest::addColumn<QStringList>("pushed");
        const auto row = [](const char *name, const QVariant &value, const char *key, const QVariant &storedAtPush,
                            const QStringList &pushed) { QTest::newRow(name) << value << QString::fromLatin1(key) << storedAtPush << pushed; };
        row("customPort", 8080, "CustomPort", 8080, {"setDefaultPort(45631)"}); // not in use
        row("listenOnCustomPort", true, "ListenOnCustomPort", true, {"setDefaultPort(8080)"});
        row("listenOnCustomPort off", false, "ListenOnCustomPort", false, {"setDefaultPort(45631)"});
        row("maximalWidth", 640, "ConverterMaximalWidth", 640, {"setConverterMaxWidth(640)"});
        row("maximalHeight", 200, "ConverterMaximalHeight", 200, {"setConverterMaxHeight(200)"});
        row("remoteSupportEnabled", true, "RemoteSupportEnabled", true, {"RemoteManagerControl.setEnableRemote(true)"});
        row("portMappingEnabled", false, "PortMappingEnabled", false, {"RemoteManagerControl.setEnablePortMapping(false)"});
        row("codec", "MPEG4", "ConverterCodec", "<no push>", {}); // stored only
        row("requiresPassword", true, "requiresPassword", true, {"setPasswordDigest()"});
        row("defaultEncoding", QVariant::fromValue(Encoding(QStringLiteral("Western"), QStringLiteral("ISO-8859-1"))), "SubtitleDefaultCharset", "UTF-8",
            {"setDefaultCharset(ISO-8859-1)"});
        row("fontFamilyName", "Serif", "SubtitleFontFamilyName", "Dialog", {"setFontFamilyName(Serif)"});
        row("preferredLanguage3", "German", "SubtitlePreferredLanguage3", "German", {"setPreferredLanguages([German])"});
        row("preferredLanguage1", "English", "SubtitlePreferredLanguage1", "English", {"setPreferredLanguages([English, German])"}); // the gap closed
        row("preferredLanguage1 none", "None", "SubtitlePreferredLanguage1", QVariant(), {"setPreferredLanguages([German])"});
        row("disableEmbeddedSubtitlesIfNoLanguageMatches", true, "DisableEmbeddedSubtitlesIfNoLanguageMatches", true,
            {"setDisableEmbeddedSubtitlesIfNoLanguageMatches(true)"});
        row("fontSize", 120, "SubtitleFontSize", 120, {"setFontSize(120)"});
    }

    void settingsStoreNotifyAndPush()
    {
        QFETCH(QVariant, value);
        QFETCH(QString, key);
        QFETCH(QVariant, storedAtPush);
        QFETCH(QStringList, pushed);
        const QByteArray name = QByteArray(QTest::currentDataTag()).split(' ').first();
        const QMetaProperty property = server()->metaObject()->property(server()->metaObject()->indexOfProperty(name));
        QVERIFY(property.hasNotifySignal());
        QSignalSpy notified(server(), property.notifySignal());
        QVariant stored;
        const QString method = pushed.value(0).section(QLatin1Char('('), 0, 0).section(QLatin1Char('.'), -1);
        QCOMPARE(callsDuring([&] { property.write(server(), value); }, method, key, &stored), pushed);
        QCOMPARE(stored, storedAtPush);
        QCOMPARE(notified.count(), 1);
        QCOMPARE(property.read(server()), value);
    }

    // Both ends are inside; no value is no error. The messages are the shell test's.
    void validation()
    {
        const QList<std::tuple<bool, QVariant, bool>> cases = { // width (or height), the value, valid
            {true, 300, true}, {true, 299, false}, {true, 641, false}, {true, QStringLiteral("abc"), false},
            {true, QVariant(), true}, {false, 481, false}, {false, QVariant::fromValue(nullptr), true},
        };
        for (const auto &[width, value, valid] : cases) {
            ValidationError error;
            const bool accepted = width ? server()->validateMaximalWidth(value, &error) : server()->validateMaximalHeight(value, &error);
            QVERIFY2(accepted == valid && error.description.isEmpty() == valid, qPrintable(value.toString()));
        }
        QVERIFY(!server()->validateMaximalWidth(641, nullptr));
    }

    void password()
    {
        const QString secret = QStringLiteral("s3cret-pw");
        const QString digest = PasswordDigest::getSHA1(secret);
        store().setString(QStringLiteral("leftover"), "password");
        QSignalSpy placeholder(server(), &Server::passwordPlaceholderChanged);
        const auto setPassword = [&](const QString &password) { return callsDuring([&] { server()->setPassword(password); }); };
        server()->setRequiresPassword(false);
        QCOMPARE(setPassword(secret), QStringList({"setPasswordDigest()"})); // the switch is off: Java requires nothing
        QCOMPARE(placeholder.count(), 1);
        QVERIFY(!store().contains("password"));
        QCOMPARE(callsDuring([&] { server()->setRequiresPassword(true); }), QStringList({"setPasswordDigest(" + digest + ")"}));
        QCOMPARE(setPassword(QStringLiteral("\U0001F600")),
                 QStringList({"setPasswordDigest(" + PasswordDigest::getSHA1(QStringLiteral("\U0001F600")) + ")"}));
        QCOMPARE(server()->passwordPlaceholder(), QStringLiteral("**")); // two UTF-16 units
        QCOMPARE(setPassword(QString()), QStringList({"setPasswordDigest()"})); // switch on, no password: nothing
        QVERIFY(!store().contains("passwordDigest"));
        QCOMPARE(store().objectForKey("requiresPassword"), QVariant(true)); // setPassword leaves the switch

        QFile file(store().fileName()); // the password itself never reaches the disk
        QVERIFY(file.open(QIODevice::ReadOnly));
        QVERIFY(!file.readAll().contains(secret.toUtf8()));

        store().setInteger(-2, "passwordLength");
        QVERIFY(server()->passwordPlaceholder().isEmpty() && !server()->passwordPlaceholder().isNull());
        store().setInteger(qint64(1) << 40, "passwordLength"); // damaged: bounded, no huge allocation
        QCOMPARE(server()->passwordPlaceholder().size(), 4096);
    }

    void subtitles()
    {
        QCOMPARE(server()->availableLanguages(), QStringList({"None", "English", "French", "German"}));
        QVERIFY(callsDuring([&] { server()->setPreferredLanguage(QStringLiteral("French"), 5); }).isEmpty()); // no such slot

        // A stored charset the server no longer offers gives way to the first
        // offered one, which start-up then stores.
        BridgeFixture::script("list.getAvailableEncodings", "Cyrillic (KOI8-U)=KOI8-U|Western=ISO-8859-1");
        store().setString(QStringLiteral("MacRoman"), "SubtitleDefaultCharset");
        QCOMPARE(server()->defaultEncoding().name(), QStringLiteral("Cyrillic (KOI8-U)"));
        server()->updateSubtitleSettings();
        QCOMPARE(store().objectForKey("SubtitleDefaultCharset"), QVariant(QStringLiteral("KOI8-U")));

        // No encodings at all: the wanted charset is kept as it is, and a
        // null one is neither pushed nor stored.
        BridgeFixture::script("list.getAvailableEncodings", "");
        QCOMPARE(server()->defaultEncoding().charset(), QStringLiteral("KOI8-U"));
        store().removeObjectForKey("SubtitleDefaultCharset");
        BridgeFixture::script("return.getDefaultCharset", "<null>");
        QVERIFY(server()->defaultEncoding().charset().isNull());
        BridgeFixture::clearRecordedCalls();
        server()->setDefaultEncoding(server()->defaultEncoding());
        QVERIFY(BridgeFixture::recordedCalls().filter(QStringLiteral("setDefaultCharset")).isEmpty());
        QVERIFY(!store().contains("SubtitleDefaultCharset"));

        store().removeObjectForKey("SubtitleFontFamilyName"); // an absent family is the server's
        BridgeFixture::script("return.getFontFamilyName", "Monospaced");
        QCOMPARE(server()->fontFamilyName(), QStringLiteral("Monospaced"));
    }
};

QTEST_GUILESS_MAIN(TestServerFresh)
#include "tst_server_fresh.moc"
