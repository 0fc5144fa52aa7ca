// Launches of the real program: a crashed instance's socket does not block
// the next start, a second launch asks the running one for its window and
// ends without starting a server, SIGTERM ends the run cleanly.
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>

namespace {

class Launch
{
public:
    explicit Launch(const QProcessEnvironment &environment)
    {
        m_process.setProcessEnvironment(environment);
        m_process.start(QStringLiteral(QUILLON_PROGRAM), {});
    } // QProcess kills what is still running when it goes

    // Waits until standard error holds `text`.
    bool waitFor(const QString &text, int timeoutMs = 60000)
    {
        QDeadlineTimer deadline(timeoutMs);
        while (!log().contains(text) && !deadline.hasExpired() && m_process.state() != QProcess::NotRunning)
            m_process.waitForReadyRead(100);
        return log().contains(text);
    }

    // Whether the program ended by itself with exit code 0.
    bool endsCleanly()
    {
        m_process.waitForFinished(30000);
        log();
        return m_process.state() == QProcess::NotRunning && m_process.exitStatus() == QProcess::NormalExit
            && m_process.exitCode() == 0;
    }

    bool signal(int number) { return ::kill(pid_t(m_process.processId()), number) == 0; }

    QString log()
    {
        m_log += QString::fromUtf8(m_process.readAllStandardError());
        return m_log;
    }

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
            QVERIFY2(crashed.waitFor(kStarted), qPrintable(crashed.log()));
            QVERIFY(QFileInfo::exists(socketPath()));
            QVERIFY(crashed.signal(SIGKILL));
            QVERIFY(!crashed.endsCleanly());
        }
        QVERIFY(QFileInfo::exists(socketPath()));

        Launch first(m_environment);
        QVERIFY2(first.waitFor(kStarted), qPrintable(first.log()));

        // Further launches ask the first and end, without a server of their own.
        for (int launch = 1; launch <= 2; ++launch) {
            Launch next(m_environment);
            QVERIFY2(next.endsCleanly(), qPrintable(next.log()));
            QVERIFY2(!next.log().contains(kStarted), qPrintable(next.log()));
            QTRY_COMPARE_WITH_TIMEOUT(first.log().count(kRequested), launch, 10000);
        }

        // SIGTERM ends the event loop; the singletons go in order.
        QVERIFY(first.signal(SIGTERM));
        QVERIFY2(first.endsCleanly(), qPrintable(first.log()));
        const QString log = first.log();
        const qsizetype controller = log.indexOf(QLatin1String("StartupController Dealloc"));
        const qsizetype server = log.indexOf(QLatin1String("Server Dealloc"));
        const qsizetype bridge = log.indexOf(QLatin1String("JNIServer dealloc"));
        QVERIFY2(controller >= 0 && server > controller && bridge > server, qPrintable(log));
        QVERIFY(!QFileInfo::exists(socketPath())); // a clean end takes its socket along
    }
};

QTEST_GUILESS_MAIN(TestSingleInstance)
#include "tst_single_instance.moc"
