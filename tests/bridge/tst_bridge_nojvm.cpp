// Start-up paths that must never create a JVM (no Java runtime, missing
// resources, an agent HotSpot could not load): the process has to live on.
// Last, the process's one JVM, from a jar without the control classes.
#include "BridgeFixture.h"
#include "LogCapture.h"
#include "bridge/JNIServer.h"
#include "bridge/JvmLoader.h"
#include "platform/Resources.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QtTest>

#include <cmath>
#include <dlfcn.h>

class TestBridgeNoJvm : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { JNIServer::releaseInstance(); } // a failed case leaves no bridge to the next

    void instanceBeforeCreation()
    {
        LogCapture log;
        QVERIFY(!JNIServer::initializedFlag());
        QCOMPARE(JNIServer::instance(), nullptr);
        QCOMPARE(log.lines(), QStringList{QStringLiteral("Error: JNI Server instance has not been initialized")});
    }

    void startUpFails_data()
    {
        QTest::addColumn<QString>("agent"); // the resource folder: the fixture's, none, or one whose agent is broken
        QTest::addColumn<QStringList>("expected");
        QTest::addColumn<QString>("unexpected");
        // There is no runtime to find: a file check made too late would log "No Java runtime".
        QTest::newRow("no runtime") << "fixture" << QStringList{"No Java runtime found: libjvm.so of Java 1.5 or later at /nonexistent/libjvm.so"} << "Missing file";
        // A runtime that cannot be loaded is refused once for both versions tried (so is a jar, below).
        QTest::newRow("broken runtime") << "broken runtime" << QStringList{"Can't load the Java runtime %1/libjvm.so: "} << "Missing file";
        QTest::newRow("no files") << "no files"
            << QStringList{"Missing file: %1/QuillonServer.jar", "Missing file: %1/jna.jar", "Missing file: %1/libMiniAgent.so"} << "No Java runtime";
        QTest::newRow("not a library") << "empty" << QStringList{"Can't load the JVM agent %1/libMiniAgent.so: "} << "No Java runtime";
        QTest::newRow("no Agent_OnLoad") << "library" << QStringList{"The JVM agent %1/libMiniAgent.so has no Agent_OnLoad"} << "No Java runtime";
        // A jar cut short is named.
        QTest::newRow("truncated jar") << "truncated jar"
            << QStringList{"The server jar %1/QuillonServer.jar is not a zip archive or has been cut short", "No Java runtime found"} << "Missing file";
    }

    void startUpFails()
    {
        QFETCH(QString, agent);
        QFETCH(QStringList, expected);
        QFETCH(QString, unexpected);
        QTemporaryDir dir;
        const QString from = QStringLiteral(QUILLON_FIXTURE_RESOURCES);
        const bool fixture = agent == QLatin1String("fixture") || agent == QLatin1String("broken runtime");
        Resources::setFolder(fixture ? from : dir.path());
        if (!fixture && agent != QLatin1String("no files")) {
            QVERIFY(QFile::copy(from + QStringLiteral("/QuillonServer.jar"), dir.filePath(QStringLiteral("QuillonServer.jar"))));
            QVERIFY(QFile::link(QStringLiteral("/usr/share/java/jna.jar"), dir.filePath(QStringLiteral("jna.jar"))));
            QVERIFY(QFile::copy(from + QStringLiteral("/Info.ini"), dir.filePath(QStringLiteral("Info.ini"))));
        }
        const QString agentPath = dir.filePath(QStringLiteral("libMiniAgent.so"));
        const QString runtime = agent == QLatin1String("broken runtime") ? dir.filePath(QStringLiteral("libjvm.so"))
                                                                        : QStringLiteral("/nonexistent/libjvm.so");
        if (agent == QLatin1String("empty") || agent == QLatin1String("broken runtime")) {
            QVERIFY(QFile(agent == QLatin1String("empty") ? agentPath : runtime).open(QIODevice::WriteOnly));
        } else if (agent == QLatin1String("truncated jar")) {
            QFile jar(dir.filePath(QStringLiteral("QuillonServer.jar")));
            QVERIFY(jar.resize(jar.size() / 2));
            QVERIFY(QFile::link(from + QStringLiteral("/libMiniAgent.so"), agentPath));
        } else if (agent == QLatin1String("library")) { // any real shared library without the entry point
            Dl_info info;
            QVERIFY(dladdr(reinterpret_cast<void *>(static_cast<double (*)(double)>(&std::cos)), &info) && info.dli_fname);
            QVERIFY(QFile::link(QString::fromLocal8Bit(info.dli_fname), agentPath));
        }
        JNIServer::setJvmLibraryPath(runtime);
        LogCapture log;
        JNIServer::initWithRemoteEnabled(true, true);
        JNIServer *server = JNIServer::instance();
        QVERIFY(server && JNIServer::initializedFlag());
        QVERIFY(!JvmLoader::createdJavaVM() && !server->isAvailable());
        QCOMPARE(qgetenv("JAVA_JVM_VERSION"), QByteArray("1.5"));
        QCOMPARE(log.count(QStringLiteral("Quillon needs Java version 1.5 or higher")), 1);
        for (const QString &line : std::as_const(expected))
            QVERIFY2(log.contains(QString(line).replace(QLatin1String("%1"), dir.path())), qPrintable(log.text()));
        for (const char *once : {"The server jar", "Can't load the Java runtime"})
            QVERIFY2(log.lines().filter(QLatin1String(once)).size() <= 1, qPrintable(log.text()));
        QVERIFY2(!log.contains(unexpected), qPrintable(log.text()));
        QCOMPARE(BridgeFixture::nonEmptyAnswers(server), QStringList());

        // A second creation request while the singleton lives is ignored;
        // once released, the instance is gone silently.
        log.clear();
        JNIServer::initWithRemoteEnabled(false, false);
        QCOMPARE(JNIServer::instance(), server);
        JNIServer::releaseInstance();
        QCOMPARE(JNIServer::instance(), nullptr);
        QCOMPARE(log.lines(), QStringList{QStringLiteral("JNIServer dealloc")});
    }

    void controllerClassMissing()
    {
        // A stale JAVA_HOME whose libjvm.so is an empty file: refused once,
        // and the system's runtime is taken instead.
        QTemporaryDir staleHome;
        const QString stale = staleHome.filePath(QStringLiteral("lib/server/libjvm.so"));
        QVERIFY(QDir().mkpath(QFileInfo(stale).path()) && QFile(stale).open(QIODevice::WriteOnly));
        const QByteArray javaHome = qgetenv("JAVA_HOME");
        qputenv("JAVA_HOME", QFile::encodeName(staleHome.path()));
        JNIServer::setJvmLibraryPath(QString());
        Resources::setFolder(QStringLiteral(QUILLON_NOCONTROL_RESOURCES));
        LogCapture log;
        JNIServer::initWithRemoteEnabled(true, false);
        qputenv("JAVA_HOME", javaHome);
        JNIServer *server = JNIServer::instance();
        QVERIFY2(server && JvmLoader::createdJavaVM() && !server->isAvailable(), qPrintable(log.text()));
        QCOMPARE(log.lines().filter(QStringLiteral("Can't load the Java runtime %1: ").arg(stale)).size(), 1);
        // A jar without the control classes is named too.
        QCOMPARE(log.count(QStringLiteral("The server jar %1/QuillonServer.jar holds no "
                                          "com/brookfen/quillon/common/control/ServerControl.class")
                               .arg(QStringLiteral(QUILLON_NOCONTROL_RESOURCES))), 1);
        QCOMPARE(qgetenv("JAVA_JVM_VERSION"), QByteArray("1.7"));
        QCOMPARE(log.count(QStringLiteral("Couldn't load controller class")), 1);
        QVERIFY(log.contains(QStringLiteral("Java exception in FindClass com/brookfen/quillon/common/control/ServerControl: "
                                            "java.lang.NoClassDefFoundError")));
        QVERIFY(!log.contains(QStringLiteral("Couldn't load list class")));
        QVERIFY(!log.contains(QStringLiteral("Quillon needs Java")));

        log.clear();
        QCOMPARE(BridgeFixture::nonEmptyAnswers(server), QStringList());
        QVERIFY2(log.lines().isEmpty(), qPrintable(log.text())); // nothing reached Java, nothing was thrown
        JNIServer::releaseInstance();
        QCOMPARE(log.lines(), QStringList{QStringLiteral("JNIServer dealloc")});
    }
};

QTEST_GUILESS_MAIN(TestBridgeNoJvm)
#include "tst_bridge_nojvm.moc"
