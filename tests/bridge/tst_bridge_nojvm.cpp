// Start-up paths that must never create a JVM: no Java runtime, missing
// resources, an agent HotSpot could not load. The process has to live on.
#include "LogCapture.h"
#include "bridge/JNIServer.h"
#include "bridge/JvmLoader.h"
#include "platform/Resources.h"

#include <QFile>
#include <QSet>
#include <QTemporaryDir>
#include <QtTest>

#include <cmath>
#include <dlfcn.h>

class TestBridgeNoJvm : public QObject
{
    Q_OBJECT

private:
    // A resource folder with the fixture's jar, jna.jar and Info.ini, and
    // no agent.
    static void fillResources(const QString &dir)
    {
        const QString from = QStringLiteral(QUILLON_FIXTURE_RESOURCES);
        QVERIFY(QFile::copy(from + QStringLiteral("/QuillonServer.jar"), dir + QStringLiteral("/QuillonServer.jar")));
        QVERIFY(QFile::link(QStringLiteral("/usr/share/java/jna.jar"), dir + QStringLiteral("/jna.jar")));
        QVERIFY(QFile::copy(from + QStringLiteral("/Info.ini"), dir + QStringLiteral("/Info.ini")));
    }

    // Start-up with what is there now: no JVM may come of it, and every
    // operation must answer empty.
    static void startAndExpectNoJvm(LogCapture &log)
    {
        JNIServer::initWithRemoteEnabled(true, true);
        QVERIFY(JNIServer::instance());
        QCOMPARE(log.count(QStringLiteral("Quillon needs Java version 1.5 or higher")), 1);
        QCOMPARE(qgetenv("JAVA_JVM_VERSION"), QByteArray("1.5"));
        QVERIFY(!JvmLoader::createdJavaVM());
        QVERIFY(!JNIServer::instance()->isAvailable());
    }

private slots:
    void instanceBeforeCreation()
    {
        LogCapture log;
        QVERIFY(!JNIServer::initializedFlag());
        QCOMPARE(JNIServer::instance(), nullptr);
        QCOMPARE(log.lines(), QStringList{QStringLiteral("Error: JNI Server instance has not been initialized")});
    }

    void noJavaRuntime()
    {
        LogCapture log;
        JNIServer::setJvmLibraryPath(QStringLiteral("/nonexistent/libjvm.so"));
        Resources::setFolder(QStringLiteral(QUILLON_FIXTURE_RESOURCES));
        startAndExpectNoJvm(log);
        QVERIFY(log.contains(QStringLiteral("No Java runtime found")));
        QVERIFY(JNIServer::initializedFlag());

        // Every operation is safe and empty.
        JNIServer *server = JNIServer::instance();
        QCOMPARE(server->start(), 0);
        QVERIFY(!server->isRunning());
        server->stop();
        server->quit();
        server->setDefaultPort(45631);
        server->setComputerName(QStringLiteral("Alice"));
        server->setPasswordDigest(QString());
        server->setPreferredLanguages({QStringLiteral("English")});
        QVERIFY(server->getLog(QStringLiteral("remote")).isNull());
        QVERIFY(server->getDefaultCharset().isNull());
        QVERIFY(server->getConverterQueueAsJSON().isNull());
        QVERIFY(server->getAvailableEncodings().isEmpty());
        QVERIFY(server->getAvailableFontFamilyNames().isEmpty());
        QVERIFY(server->getAvailableLanguages().isEmpty());
        QVERIFY(!server->getRemoteManagerState().has_value());
        server->testConnection();
        server->initialized();
        QVERIFY(!log.contains(QStringLiteral("Server started on")));

        // A second creation request while the singleton lives is ignored.
        log.clear();
        JNIServer::initWithRemoteEnabled(false, false);
        QCOMPARE(JNIServer::instance(), server);
        QVERIFY(log.lines().isEmpty());

        JNIServer::releaseInstance();
        QCOMPARE(log.lines(), QStringList{QStringLiteral("JNIServer dealloc")});
        // Freed after creation: none, silently.
        QCOMPARE(JNIServer::instance(), nullptr);
        QCOMPARE(log.lines().size(), 1);
        JNIServer::setJvmLibraryPath(QString());
    }

    void missingResources()
    {
        QTemporaryDir empty;
        QVERIFY(empty.isValid());
        Resources::setFolder(empty.path());
        LogCapture log;
        startAndExpectNoJvm(log);
        for (const char *file : {"QuillonServer.jar", "jna.jar", "libMiniAgent.so"})
            QVERIFY2(log.lines().contains(QStringLiteral("Missing file: %1/%2").arg(empty.path(), QLatin1String(file))), file);
        // The files are checked before any runtime is looked for.
        QVERIFY(!log.contains(QStringLiteral("No Java runtime")));
        JNIServer::releaseInstance();
    }

    void badAgent_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("expected");
        QTest::newRow("missing") << "missing" << "Missing file: %1/libMiniAgent.so";
        QTest::newRow("not a library") << "text" << "Can't load the JVM agent %1/libMiniAgent.so: ";
        QTest::newRow("no Agent_OnLoad") << "library" << "The JVM agent %1/libMiniAgent.so has no Agent_OnLoad";
    }

    void badAgent()
    {
        QFETCH(QString, kind);
        QFETCH(QString, expected);
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        fillResources(dir.path());
        const QString agent = dir.path() + QStringLiteral("/libMiniAgent.so");
        if (kind == QLatin1String("text")) {
            QFile file(agent);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write("not a shared object\n");
        } else if (kind == QLatin1String("library")) {
            // Any real shared library without the agent's entry point.
            Dl_info info;
            QVERIFY(dladdr(reinterpret_cast<void *>(static_cast<double (*)(double)>(&std::cos)), &info) && info.dli_fname);
            QVERIFY(QFile::link(QString::fromLocal8Bit(info.dli_fname), agent));
        }
        Resources::setFolder(dir.path());
        LogCapture log;
        startAndExpectNoJvm(log);
        QVERIFY2(log.contains(expected.arg(dir.path())), qPrintable(log.lines().join(QLatin1Char('\n'))));
        QVERIFY(!log.contains(QStringLiteral("Missing file: %1/QuillonServer.jar").arg(dir.path())));
        JNIServer::releaseInstance();
    }

    void encodingsCompareByCharset()
    {
        const Encoding a(QStringLiteral("Unicode"), QStringLiteral("UTF-8"));
        const Encoding b(QStringLiteral("UTF-8 (other name)"), QStringLiteral("UTF-8"));
        const Encoding c(QStringLiteral("Unicode"), QStringLiteral("UTF-16"));
        QVERIFY(a == b);
        QCOMPARE(qHash(a), qHash(b));
        QVERIFY(a != c);
        QCOMPARE(QSet<Encoding>({a, b, c}).size(), 2);
        QCOMPARE(b.description(), QStringLiteral("UTF-8 (other name)"));
    }

    void versionParsing()
    {
        int major = -1, minor = -1;
        QVERIFY(JvmLoader::parseVersion(QStringLiteral("17.0.9"), &major, &minor));
        QCOMPARE(major, 17);
        QCOMPARE(minor, 0);
        QVERIFY(JvmLoader::parseVersion(QStringLiteral("1.8.0_392"), &major, &minor));
        QCOMPARE(major, 1);
        QCOMPARE(minor, 8);
        QVERIFY(!JvmLoader::parseVersion(QStringLiteral("openjdk"), &major, &minor));
        // A forced library that does not exist is no library at all.
        JvmLoader::setLibraryPath(QStringLiteral("/nonexistent/libjvm.so"));
        QVERIFY(JvmLoader::findLibrary(QStringLiteral("1.5")).isEmpty());
        JvmLoader::setLibraryPath(QString());
    }
};

QTEST_GUILESS_MAIN(TestBridgeNoJvm)
#include "tst_bridge_nojvm.moc"
