// Launches of the real program: a crashed instance's socket does not block
// the next start, a second launch asks the running one for its window and
// ends without starting a server, SIGTERM ends the run cleanly.
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <memory>

namespace {

class Launch
{
public:
    explicit Launch(const QProcessEnvironment &environment)
    {
        m_process.setProcessEnvironment(environment);
        m_process.setProgram(QStringLiteral(QUILLON_PROGRAM));
    }
    ~Launch()
    {
        if (m_process.state() != QProcess::NotRunning) {
            m_process.kill();
            m_process.waitForFinished(5000);
        }
    }

    bool start()
    {
        m_process.start();
        return m_process.waitForStarted(10000);
    }

    // Waits until standard error holds `text`.
    bool waitFor(const QString &text, int timeoutMs = 60000)
    {
        QDeadlineTimer deadline(timeoutMs);
        while (!log().contains(text)) {
            if (deadline.hasExpired() || m_process.state() == QProcess::NotRunning)
                return log().contains(text);
            m_process.waitForReadyRead(100);
        }
        return true;
    }

    bool finish(int timeoutMs = 30000)
    {
        const bool done = m_process.waitForFinished(timeoutMs);
        log();
        return done;
    }

    QString log()
    {
        m_log += QString::fromUtf8(m_process.readAllStandardError());
        return m_log;
    }

    QProcess &process() { return m_process; }
    pid_t pid() const { return pid_t(m_process.processId()); }

private:
    QProcess m_process;
    QString m_log;
};

const QString kStarted = QStringLiteral("Server started on: ");
const QString kRequested = QStringLiteral("Preferences window requested by another launch");

}

class TestSingleInstance : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;
    QTemporaryDir m_runtime; // made with mode 0700, as a runtime folder is
    QProcessEnvironment m_environment;

    QString socketPath() const { return QDir(m_runtime.path()).filePath(QStringLiteral("quillon-server.socket")); }

private slots:
    void initTestCase()
    {
        QVERIFY(m_home.isValid() && m_runtime.isValid());
        m_environment = QProcessEnvironment::systemEnvironment();
        m_environment.insert(QStringLiteral("HOME"), m_home.path());
        m_environment.insert(QStringLiteral("XDG_CONFIG_HOME"), m_home.filePath(QStringLiteral("config")));
        m_environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), m_runtime.path());
        m_environment.insert(QStringLiteral("QUILLON_RESOURCE_DIR"), QStringLiteral(QUILLON_PROGRAM_RESOURCES));
        m_environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    }

    void oneInstancePerUser()
    {
        // An instance that crashes leaves its socket behind.
        {
            Launch crashed(m_environment);
            QVERIFY(crashed.start());
            QVERIFY2(crashed.waitFor(kStarted), qPrintable(crashed.log()));
            QVERIFY(QFileInfo::exists(socketPath()));
            QCOMPARE(::kill(crashed.pid(), SIGKILL), 0);
            QVERIFY(crashed.finish());
        }
        QVERIFY(QFileInfo::exists(socketPath()));

        Launch first(m_environment);
        QVERIFY(first.start());
        QVERIFY2(first.waitFor(kStarted), qPrintable(first.log()));

        // The second launch asks the first and ends, without a JVM of its own.
        Launch second(m_environment);
        QVERIFY(second.start());
        QVERIFY2(second.finish(), "the second launch does not end");
        QCOMPARE(second.process().exitStatus(), QProcess::NormalExit);
        QVERIFY2(second.process().exitCode() == 0, qPrintable(second.log()));
        QVERIFY2(!second.log().contains(kStarted), qPrintable(second.log()));
        QVERIFY2(first.waitFor(kRequested, 10000), qPrintable(first.log()));
        QCOMPARE(first.log().count(kRequested), 1);

        // A third one does the same.
        Launch third(m_environment);
        QVERIFY(third.start());
        QVERIFY(third.finish());
        QCOMPARE(third.process().exitCode(), 0);
        QTRY_COMPARE_WITH_TIMEOUT(first.log().count(kRequested), 2, 10000);

        // SIGTERM ends the event loop; the singletons go in order.
        QCOMPARE(::kill(first.pid(), SIGTERM), 0);
        QVERIFY2(first.finish(), "SIGTERM did not end the program");
        QCOMPARE(first.process().exitStatus(), QProcess::NormalExit);
        const QString log = first.log();
        QVERIFY2(first.process().exitCode() == 0, qPrintable(log));
        const qsizetype controller = log.indexOf(QLatin1String("StartupController Dealloc"));
        const qsizetype server = log.indexOf(QLatin1String("Server Dealloc"));
        const qsizetype bridge = log.indexOf(QLatin1String("JNIServer dealloc"));
        QVERIFY2(controller >= 0 && server > controller && bridge > server, qPrintable(log));
        QVERIFY(!QFileInfo::exists(socketPath())); // a clean end takes its socket along
    }
};

QTEST_GUILESS_MAIN(TestSingleInstance)
#include "tst_single_instance.moc"
