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

const QString kStarted = QStringLiteral("Server started on: ");

// The program run with `environment`; QProcess kills what still runs when it goes.
struct Launch {
    explicit Launch(const QProcessEnvironment &environment)
    {
        process.setProcessEnvironment(environment);
        process.start(QStringLiteral(QUILLON_PROGRAM), {});
    }

    bool waitFor(const QString &text)
    {
        QDeadlineTimer deadline(60000);
        while (!log().contains(text) && !deadline.hasExpired() && process.state() != QProcess::NotRunning)
            process.waitForReadyRead(100);
        return log().contains(text);
    }

    // Whether the program ended by itself with exit code 0.
    bool endsCleanly()
    {
        process.waitForFinished(30000);
        return process.state() == QProcess::NotRunning && process.exitStatus() == QProcess::NormalExit
            && process.exitCode() == 0;
    }

    bool signal(int number) { return ::kill(pid_t(process.processId()), number) == 0; }
    const QString &log() { return text += QString::fromUtf8(process.readAllStandardError()); }

    QProcess process;
    QString text;
};

}

class TestSingleInstance : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;
    QTemporaryDir m_runtime; // made with mode 0700, as a runtime folder is
    QProcessEnvironment m_environment = QProcessEnvironment::systemEnvironment();

private slots:
    void oneInstancePerUser()
    {
        QVERIFY(m_home.isValid() && m_runtime.isValid());
        m_environment.insert(QStringLiteral("HOME"), m_home.path());
        m_environment.insert(QStringLiteral("XDG_CONFIG_HOME"), m_home.filePath(QStringLiteral("config")));
        m_environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), m_runtime.path());
        m_environment.insert(QStringLiteral("QUILLON_RESOURCE_DIR"), QStringLiteral(QUILLON_PROGRAM_RESOURCES));
        m_environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        m_environment.insert(QStringLiteral("QUILLON_QUIT_AFTER_MS"), QStringLiteral("0")); // no way to end the run
        const QString socket = m_runtime.filePath(QStringLiteral("quillon-server.socket"));

        // An instance that crashes leaves its socket behind.
        {
            Launch crashed(m_environment);
            QVERIFY2(crashed.waitFor(kStarted), qPrintable(crashed.log()));
            QVERIFY(QFileInfo::exists(socket));
            QVERIFY(crashed.signal(SIGKILL));
            QVERIFY(!crashed.endsCleanly());
        }
        QVERIFY(QFileInfo::exists(socket));

        Launch first(m_environment);
        QVERIFY2(first.waitFor(kStarted), qPrintable(first.log()));

        // Further launches ask the first and end, without a server of their own.
        for (int launch = 1; launch <= 2; ++launch) {
            Launch next(m_environment);
            QVERIFY2(next.endsCleanly(), qPrintable(next.log()));
            QVERIFY2(!next.log().contains(kStarted), qPrintable(next.text));
            QTRY_COMPARE_WITH_TIMEOUT(first.log().count(QLatin1String("Preferences window requested by another launch")),
                                      launch, 10000);
        }

        // SIGTERM ends the event loop; the singletons go in order.
        QVERIFY(first.signal(SIGTERM));
        QVERIFY2(first.endsCleanly(), qPrintable(first.log()));
        const QString log = first.log();
        const qsizetype controller = log.indexOf(QLatin1String("StartupController Dealloc"));
        const qsizetype server = log.indexOf(QLatin1String("Server Dealloc"));
        const qsizetype bridge = log.indexOf(QLatin1String("JNIServer dealloc"));
        QVERIFY2(controller >= 0 && server > controller && bridge > server, qPrintable(log));
        QVERIFY(!QFileInfo::exists(socket)); // a clean end takes its socket along
    }
};

QTEST_GUILESS_MAIN(TestSingleInstance)
#include "tst_single_instance.moc"
