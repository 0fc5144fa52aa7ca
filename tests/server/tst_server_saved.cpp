// The facade in a process that starts with saved settings, the wish
// "serverRunning" NO among them; then settings written here and read back by
// a new process.
#include "LogCapture.h"
#include "ServerTestSupport.h"
#include "bridge/JNIServer.h"
#include "server/PasswordDigest.h"

#include <QProcess>

using namespace ServerTest;

class TestServerSaved : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;
    LogCapture m_log;
    QStringList m_startupCalls;
    Server *server() { return Server::instance(); }
    Defaults &store() { return Defaults::standard(); }

private slots:
    void initTestCase()
    {
        useTemporaryHome(m_home);
        store().setBool(false, "serverRunning");
        store().setBool(true, "ListenOnCustomPort");
        store().setInteger(8080, "CustomPort");
        store().setBool(true, "RemoteSupportEnabled");
        store().setBool(false, "PortMappingEnabled");
        store().setInteger(0, "ConverterMaximalWidth");
        store().setInteger(400, "ConverterMaximalHeight");
        store().setString("MacRoman", "SubtitleDefaultCharset"); // not offered by the server
        store().setString("Serif", "SubtitleFontFamilyName");
        store().setString("French", "SubtitlePreferredLanguage2");
        store().setString("German", "SubtitlePreferredLanguage4");
        store().setBool(true, "DisableEmbeddedSubtitlesIfNoLanguageMatches");
        store().setInteger(130, "SubtitleFontSize");
        store().setBool(true, "requiresPassword");
        store().setString(PasswordDigest::getSHA1("pw"), "passwordDigest");

        QVERIFY(!Server::preferencesIsRunning());
        QVERIFY(server());
        QVERIFY2(JNIServer::instance()->isAvailable(), qPrintable(m_log.lines().join('\n')));
        m_startupCalls = BridgeFixture::recordedCalls();
    }

    void startUpWithSavedSettings()
    {
        QVERIFY(m_startupCalls.contains(QStringLiteral("RemoteManagerControl.init(true, false)")));
        const QString res = qEnvironmentVariable("QUILLON_RESOURCE_DIR");
        const QStringList expected = {
            "setConverterMuxerPath(" + res + "/mp4creator)",
            "setConverterMaxWidth(0)",
            "setConverterMaxHeight(400)",
            "getAvailableEncodings()", // the stored charset: the server's default is not asked
            "setDefaultCharset(UTF-8)",
            "setFontFamilyName(Serif)",
            "setPreferredLanguages([French, German])",
            "setDisableEmbeddedSubtitlesIfNoLanguageMatches(true)",
            "setFontSize(130)",
            "serverRunning()",
            "setDefaultPort(8080)",
            "serverRunning()", // stop: not running, so nothing more
            "initialized()",
        };
        QCOMPARE(callsAfterBridgeInit(m_startupCalls), expected);
        QVERIFY(!m_log.contains(QStringLiteral("Stopping server")));
        QCOMPARE(store().objectForKey("SubtitleDefaultCharset"), QVariant(QStringLiteral("UTF-8")));
        QCOMPARE(store().objectForKey("serverRunning"), QVariant(false));
        QVERIFY(!server()->isRunning());
    }

    void settingsSurviveANewProcess()
    {
        server()->setListenOnCustomPort(true);
        server()->setCustomPort(9090);
        server()->setRemoteSupportEnabled(false);
        server()->setPortMappingEnabled(true);
        server()->setMaximalWidth(640);
        server()->setMaximalHeight(200);
        server()->setCodec(QStringLiteral("MPEG4"));
        server()->setRequiresPassword(true);
        server()->setPassword(QStringLiteral("p\u00e4ssword"));
        server()->setDefaultEncoding(Encoding(QStringLiteral("Western"), QStringLiteral("ISO-8859-1")));
        server()->setFontFamilyName(QStringLiteral("Monospaced"));
        server()->setPreferredLanguage1(QStringLiteral("French"));
        server()->setPreferredLanguage2(QStringLiteral("None"));
        server()->setPreferredLanguage3(QStringLiteral("English"));
        server()->setPreferredLanguage4(QStringLiteral("None"));
        server()->setDisableEmbeddedSubtitlesIfNoLanguageMatches(false);
        server()->setFontSize(150);
        server()->setRunning(true);
        const QStringList written = describeSettings(server());

        QProcess reader;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment(); // the same home and store
        env.insert(QStringLiteral("QUILLON_RESOURCE_DIR"), QStringLiteral(QUILLON_READER_RESOURCES));
        reader.setProcessEnvironment(env);
        reader.start(QStringLiteral(QUILLON_READER), {});
        QVERIFY(reader.waitForFinished(60000));
        const QString errors = QString::fromUtf8(reader.readAllStandardError());
        QVERIFY2(reader.exitStatus() == QProcess::NormalExit && reader.exitCode() == 0, qPrintable(errors));

        QStringList settings, calls;
        for (const QString &line : QString::fromUtf8(reader.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts)) {
            if (line.startsWith(QLatin1String("setting:")))
                settings << line.mid(8);
            else if (line.startsWith(QLatin1String("call:")))
                calls << line.mid(5);
        }
        QCOMPARE(settings, written);

        // What the new process pushed at its start-up.
        QVERIFY(calls.contains(QStringLiteral("RemoteManagerControl.init(false, true)")));
        const QString digest = PasswordDigest::getSHA1(QStringLiteral("p\u00e4ssword"));
        const QStringList expected = {
            "setConverterMaxWidth(640)",
            "setConverterMaxHeight(200)",
            "getAvailableEncodings()",
            "setDefaultCharset(ISO-8859-1)",
            "setFontFamilyName(Monospaced)",
            "setPreferredLanguages([French, English])",
            "setDisableEmbeddedSubtitlesIfNoLanguageMatches(false)",
            "setFontSize(150)",
            "serverRunning()",
            "setDefaultPort(9090)",
            "setPasswordDigest(" + digest + ")",
            "setComputerName(" + Server::computerName() + ")",
            "setConverterMaxWidth(640)",
            "setConverterMaxHeight(200)",
            "startServer()",
            "initialized()",
        };
        QCOMPARE(callsAfterBridgeInit(calls), expected);

        // The application's end frees the facade, then the bridge.
        const qsizetype facade = errors.indexOf(QLatin1String("Server Dealloc"));
        QVERIFY2(facade >= 0 && facade < errors.indexOf(QLatin1String("JNIServer dealloc")), qPrintable(errors));
    }
};

QTEST_GUILESS_MAIN(TestServerSaved)
#include "tst_server_saved.moc"
