// The facade in a process that starts with saved settings, the wish
// "serverRunning" NO among them. What each setter stores is tst_server_fresh's,
// that stored values are read back from the file tst_platform's.
#include "LogCapture.h"
#include "ServerTestSupport.h"
#include "bridge/JNIServer.h"
#include "server/PasswordDigest.h"

using namespace ServerTest;

class TestServerSaved : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;
    LogCapture m_log;
    QStringList m_startupCalls;
    Defaults &store() { return Defaults::standard(); }

private slots:
    void initTestCase()
    {
        useTemporaryHome(m_home);
        const QList<QPair<QString, QVariant>> saved = {
            {"serverRunning", false}, {"ListenOnCustomPort", true}, {"CustomPort", 8080},
            {"RemoteSupportEnabled", true}, {"PortMappingEnabled", false}, {"ConverterMaximalWidth", 0},
            {"ConverterMaximalHeight", 400}, {"SubtitleDefaultCharset", "MacRoman"}, // not offered by the server
            {"SubtitleFontFamilyName", "Serif"}, {"SubtitlePreferredLanguage2", "French"}, {"SubtitlePreferredLanguage4", "German"},
            {"DisableEmbeddedSubtitlesIfNoLanguageMatches", true}, {"SubtitleFontSize", 130}, {"requiresPassword", true},
            {"passwordDigest", PasswordDigest::getSHA1(QStringLiteral("pw"))},
        };
        for (const auto &[key, value] : saved)
            store().setObject(value, key);
        QVERIFY(!Server::preferencesIsRunning());
        QVERIFY(Server::instance());
        QVERIFY2(JNIServer::instance()->isAvailable(), qPrintable(m_log.lines().join('\n')));
        m_startupCalls = BridgeFixture::recordedCalls();
    }

    void startUpWithSavedSettings()
    {
        QVERIFY(m_startupCalls.contains(QStringLiteral("RemoteManagerControl.init(true, false)")));
        const QString res = qEnvironmentVariable("QUILLON_RESOURCE_DIR");
        const QStringList expected = { // one line a step
            "setConverterMuxerPath(" + res + "/mp4creator)", "setConverterMaxWidth(0)", "setConverterMaxHeight(400)",
            "getAvailableEncodings()", "setDefaultCharset(UTF-8)", // the stored charset: the server's default is not asked
            "setFontFamilyName(Serif)", "setPreferredLanguages([French, German])",
            "setDisableEmbeddedSubtitlesIfNoLanguageMatches(true)", "setFontSize(130)",
            "serverRunning()", "setDefaultPort(8080)",
            "serverRunning()", // stop: not running, so nothing more
            "initialized()",
        };
        QCOMPARE(callsAfterBridgeInit(m_startupCalls), expected);
        QCOMPARE(store().objectForKey("SubtitleDefaultCharset"), QVariant(QStringLiteral("UTF-8")));
        QCOMPARE(store().objectForKey("serverRunning"), QVariant(false));
    }
};

QTEST_GUILESS_MAIN(TestServerSaved)
#include "tst_server_saved.moc"
