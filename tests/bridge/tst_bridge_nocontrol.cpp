// A server jar without the control classes: the JVM runs, nothing is bound,
// and every operation answers empty.
#include "LogCapture.h"
#include "bridge/JNIServer.h"
#include "bridge/JvmLoader.h"

#include <QtTest>

class TestBridgeNoControl : public QObject
{
    Q_OBJECT

    LogCapture m_log;

private slots:
    void initTestCase()
    {
        JNIServer::initWithRemoteEnabled(true, false);
        QVERIFY(JNIServer::instance());
    }

    void controllerClassMissing()
    {
        QVERIFY(JvmLoader::createdJavaVM());
        QCOMPARE(qgetenv("JAVA_JVM_VERSION"), QByteArray("1.7"));
        QCOMPARE(m_log.count(QStringLiteral("Couldn't load controller class")), 1);
        QVERIFY(!m_log.contains(QStringLiteral("Couldn't load list class")));
        QVERIFY(m_log.contains(QStringLiteral("Java exception in FindClass com/brookfen/quillon/common/control/ServerControl: "
                                              "java.lang.NoClassDefFoundError")));
        QVERIFY(!m_log.contains(QStringLiteral("Quillon needs Java")));
        QVERIFY(!JNIServer::instance()->isAvailable());
        QVERIFY(JNIServer::initializedFlag());
    }

    void everyOperationIsSafe()
    {
        m_log.clear();
        JNIServer *server = JNIServer::instance();
        QCOMPARE(server->start(), 0);
        QVERIFY(!server->isRunning());
        server->stop();
        server->quit();
        server->initialized();
        server->setDefaultPort(45631);
        server->setConverterMaxWidth(1);
        server->setConverterMaxHeight(1);
        server->converterResetQueue();
        server->setComputerName(QStringLiteral("x"));
        server->setPasswordDigest(QString());
        server->setConverterFFMpegPath(QString());
        server->setConverterFaacPath(QString());
        server->setConverterMuxerPath(QString());
        server->setFontSize(12);
        server->setDisableEmbeddedSubtitlesIfNoLanguageMatches(true);
        server->setDefaultCharset(QStringLiteral("UTF-8"));
        server->setFontFamilyName(QStringLiteral("Serif"));
        server->setPreferredLanguages({QStringLiteral("English")});
        server->clearLog(QStringLiteral("remote"));
        server->setEnableRemote(true);
        server->setEnablePortMapping(true);
        server->retry();
        server->testConnection();
        QVERIFY(server->getDefaultCharset().isNull());
        QVERIFY(server->getFontFamilyName().isNull());
        QVERIFY(server->getLog(QStringLiteral("remote")).isNull());
        QVERIFY(server->getLastConversionLog().isNull());
        QVERIFY(server->getConverterQueueAsJSON().isNull());
        QVERIFY(server->getAvailableEncodings().isEmpty());
        QVERIFY(server->getAvailableFontFamilyNames().isEmpty());
        QVERIFY(server->getAvailableLanguages().isEmpty());
        QVERIFY(!server->getRemoteManagerState().has_value());
        // Nothing reached Java, so nothing was thrown or logged.
        QVERIFY2(m_log.lines().isEmpty(), qPrintable(m_log.lines().join(QLatin1Char('\n'))));

        JNIServer::releaseInstance();
        QCOMPARE(m_log.lines(), QStringList{QStringLiteral("JNIServer dealloc")});
    }
};

QTEST_GUILESS_MAIN(TestBridgeNoControl)
#include "tst_bridge_nocontrol.moc"
