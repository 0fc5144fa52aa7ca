// The JVM as it was really launched: options read back from Java.
#include "BridgeFixture.h"
#include "LogCapture.h"
#include "bridge/JNIServer.h"
#include "platform/ProductWebsite.h"
#include "platform/Resources.h"

#include <QDir>
#include <QtTest>

class TestBridgeOptions : public QObject
{
    Q_OBJECT

    LogCapture m_log;
    QString m_home;

private slots:
    void initTestCase()
    {
        // A home folder outside the Basic Multilingual Plane: the application
        // folder handed to Java must arrive intact.
        m_home = QStringLiteral(QUILLON_TEST_BINARY_DIR "/home-\U0001F600");
        QDir().mkpath(m_home);
        qputenv("HOME", m_home.toUtf8());
        qputenv("JAVA_JVM_VERSION", "9.9");
        qputenv("LC_CTYPE", "C");
        JNIServer::initWithRemoteEnabled(true, false);
        QVERIFY2(JNIServer::instance() && JNIServer::instance()->isAvailable(),
                 qPrintable(m_log.lines().join(QLatin1Char('\n'))));
    }

    void launchOptions()
    {
        const QString res = Resources::folder();
        const QString tmp = Resources::temporaryFolder();
        QVERIFY(tmp.endsWith(QLatin1String("tmp-options/")));
        const QString url = QLatin1String(kProductWebHost) + QStringLiteral("/JVM/v1/classes/");
        QVERIFY(url.startsWith(QLatin1String("http://")));
        const QStringList expected = {
            QStringLiteral("-Djava.class.path=%1/QuillonServer.jar:%1/jna.jar").arg(res),
            QStringLiteral("-Djna.library.path=%1").arg(res),
            QStringLiteral("-Djava.library.path=%1").arg(res),
            QStringLiteral("-Dfile.encoding=utf-8"),
            QStringLiteral("-Djava.awt.headless=true"),
            QStringLiteral("-Dsun.font.fontmanager=com.brookfen.font.osx.HeadlessFontManager"),
            // Info.ini of this test has no maxThumbnailWidth.
            QStringLiteral("-Dquillon-max-thumbnail-width=256"),
            QStringLiteral("-agentpath:%1/libMiniAgent.so=mode=fetch-absent-classes;"
                           "class-cache-folder=%2quillon-server/class-cache/2.4/;class-load-url-prefix=%3")
                .arg(res, tmp, url),
        };
        // HotSpot lists every option but the class path among its input
        // arguments; the class path is read back as the property it set
        // (the agent appends its class cache folder behind our two jars).
        QCOMPARE(BridgeFixture::inputArguments(), expected.mid(1));
        const QString classPath = BridgeFixture::property(QStringLiteral("java.class.path"));
        QCOMPARE(QStringLiteral("-Djava.class.path=") + classPath.section(QLatin1Char(':'), 0, 1), expected.first());
        QCOMPARE(BridgeFixture::property(QStringLiteral("quillon-max-thumbnail-width")), QStringLiteral("256"));
        QCOMPARE(BridgeFixture::property(QStringLiteral("java.awt.headless")), QStringLiteral("true"));
    }

    void environment()
    {
        // The first attempt succeeded: no fallback to 1.5.
        QCOMPARE(qgetenv("JAVA_JVM_VERSION"), QByteArray("1.7"));
        // "UTF-8" where the C library knows it, else glibc's "C.UTF-8": the
        // JVM must end up with UTF-8 file names either way.
        QVERIFY(qgetenv("LC_CTYPE") == "UTF-8" || qgetenv("LC_CTYPE") == "C.UTF-8");
        QCOMPARE(BridgeFixture::property(QStringLiteral("sun.jnu.encoding")), QStringLiteral("UTF-8"));
        QVERIFY(!m_log.contains(QStringLiteral("Quillon needs Java")));
    }

    void agentMadeItsCacheFolder()
    {
        QVERIFY(QDir(Resources::temporaryFolder() + QStringLiteral("quillon-server/class-cache/2.4")).exists());
    }

    void startUpSequence()
    {
        const QString folder = m_home + QStringLiteral("/Library/Application Support/QuillonServer");
        const QStringList expected = {
            QStringLiteral("init(%1)").arg(folder),
            QStringLiteral("RemoteManagerControl.init(true, false)"),
            QStringLiteral("getAvailableFontFamilyNames()"),
            QStringLiteral("getAvailableEncodings()"),
        };
        QCOMPARE(BridgeFixture::recordedCalls(), expected);
        QVERIFY(JNIServer::initializedFlag());
        QVERIFY(!m_log.contains(QStringLiteral("Couldn't load")));
        QVERIFY(!m_log.contains(QStringLiteral("Java exception")));
    }
};

QTEST_GUILESS_MAIN(TestBridgeOptions)
#include "tst_bridge_options.moc"
