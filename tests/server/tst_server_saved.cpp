// The facade in a process that starts with saved settings, the wish
// "serverRunning" NO among them; then settings written here and read back by
// a new process: this program again, with the argument "read".
#include "LogCapture.h"
#include "ServerTestSupport.h"
#include "bridge/JNIServer.h"
#include "server/PasswordDigest.h"

#include <QProcess>

#include <cstdio>

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
        QVERIFY(server());
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
        QVERIFY(!m_log.contains(QStringLiteral("Stopping server")));
        QCOMPARE(store().objectForKey("SubtitleDefaultCharset"), QVariant(QStringLiteral("UTF-8")));
        QCOMPARE(store().objectForKey("serverRunning"), QVariant(false));
        QVERIFY(!server()->isRunning());
    }

    void settingsSurviveANewProcess()
    {
        server()->setPassword(QStringLiteral("p\u00e4ssword"));
        const QList<QPair<const char *, QVariant>> changes = {
            {"listenOnCustomPort", true}, {"customPort", 9090}, {"remoteSupportEnabled", false}, {"portMappingEnabled", true},
            {"maximalWidth", 640}, {"maximalHeight", 200}, {"codec", "MPEG4"}, {"requiresPassword", true},
            {"defaultEncoding", QVariant::fromValue(Encoding(QStringLiteral("Western"), QStringLiteral("ISO-8859-1")))},
            {"fontFamilyName", "Monospaced"}, {"preferredLanguage1", "French"}, {"preferredLanguage2", "None"},
            {"preferredLanguage3", "English"}, {"preferredLanguage4", "None"}, {"fontSize", 150},
            {"disableEmbeddedSubtitlesIfNoLanguageMatches", false}, {"running", true},
        };
        for (const auto &[name, value] : changes)
            QVERIFY2(server()->setProperty(name, value), name);
        const QStringList written = describeSettings(server());

        QProcess reader;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment(); // the same home and store
        env.insert(QStringLiteral("QUILLON_RESOURCE_DIR"), QStringLiteral(QUILLON_READER_RESOURCES));
        reader.setProcessEnvironment(env);
        reader.start(QCoreApplication::applicationFilePath(), {QStringLiteral("read")});
        QVERIFY(reader.waitForFinished(60000));
        const QString errors = QString::fromUtf8(reader.readAllStandardError());
        QVERIFY2(reader.exitStatus() == QProcess::NormalExit && reader.exitCode() == 0, qPrintable(errors));

        // The settings as read, then the calls the new process made at start-up.
        const QStringList lines = QString::fromUtf8(reader.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
        QCOMPARE(lines.mid(0, written.size()), written);
        const QString digest = PasswordDigest::getSHA1(QStringLiteral("p\u00e4ssword"));
        for (const QString &call : QStringList{"RemoteManagerControl.init(false, true)", "setDefaultCharset(ISO-8859-1)",
                                               "setPreferredLanguages([French, English])", "setDefaultPort(9090)",
                                               "setPasswordDigest(" + digest + ")", "startServer()"})
            QVERIFY2(lines.mid(written.size()).contains(call), qPrintable(call));

        // The application's end frees the facade, then the bridge.
        const qsizetype facade = errors.indexOf(QLatin1String("Server Dealloc"));
        QVERIFY2(facade >= 0 && facade < errors.indexOf(QLatin1String("JNIServer dealloc")), qPrintable(errors));
    }
};

// "read": starts the facade and prints every setting it reads, then the calls
// Java received; then quits through the application's normal end.
int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (app.arguments().value(1) != QLatin1String("read")) {
        TestServerSaved test;
        return QTest::qExec(&test, argc, argv);
    }
    Server *server = Server::instance();
    if (!server)
        return 2;
    const QStringList calls = BridgeFixture::recordedCalls(); // before reading adds its own
    std::fputs(((describeSettings(server) + calls).join(QLatin1Char('\n')) + QLatin1Char('\n')).toUtf8().constData(), stdout);
    QTimer::singleShot(0, &app, &QCoreApplication::quit);
    return app.exec();
}

#include "tst_server_saved.moc"
