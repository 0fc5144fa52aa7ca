// Launches of the real program: one instance per user even when launches
// race, with or without the local socket; a crashed instance's lock and
// socket do not block the next start; SIGTERM at any moment of start-up and
// SIGHUP after it end the run cleanly.
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtTest>

#include <algorithm>
#include <array>
#include <csignal>
#include <memory>

namespace {

const QString kStarted = QStringLiteral("Server started on: ");
const QByteArray kShown = "Quillon Server is already running; its preferences window has been shown.\n";
const QByteArray kNotShown = "Quillon Server is already running; its preferences window could not be shown.\n";

// A home and a runtime folder (mode 0700, as a runtime folder is) of their own.
struct User {
    User()
    {
        environment.insert(QStringLiteral("HOME"), home.path());
        environment.insert(QStringLiteral("XDG_CONFIG_HOME"), home.filePath(QStringLiteral("config")));
        environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime.path());
        environment.insert(QStringLiteral("QUILLON_RESOURCE_DIR"), QStringLiteral(QUILLON_PROGRAM_RESOURCES));
        environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        environment.insert(QStringLiteral("QUILLON_QUIT_AFTER_MS"), QStringLiteral("0")); // no way to end the run
    }
    QString socket() const { return runtime.filePath(QStringLiteral("quillon-server.socket")); }
    QString lock() const { return runtime.filePath(QStringLiteral("quillon-server.lock")); }

    QTemporaryDir home;
    QTemporaryDir runtime;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
};

// The program run as `user`; QProcess kills what still runs when it goes.
struct Launch {
    explicit Launch(const User &user)
    {
        process.setProcessEnvironment(user.environment);
        process.start(QStringLiteral(QUILLON_PROGRAM), {});
    }

    bool endsCleanly()
    {
        process.waitForFinished(30000);
        return process.state() == QProcess::NotRunning && process.exitStatus() == QProcess::NormalExit
            && process.exitCode() == 0;
    }

    bool loggedShutdown()
    {
        const qsizetype controller = log().indexOf(QLatin1String("StartupController Dealloc"));
        const qsizetype server = text.indexOf(QLatin1String("Server Dealloc"));
        const qsizetype bridge = text.indexOf(QLatin1String("JNIServer dealloc"));
        return controller >= 0 && server > controller && bridge > server;
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

    qint64 m_startUpMs = 0; // how long a start takes here

private slots:
    void oneInstanceWhenLaunchesRace()
    {
        User user;
        QVERIFY(user.home.isValid() && user.runtime.isValid());

        {
            QElapsedTimer clock;
            clock.start();
            Launch crashed(user);
            QTRY_VERIFY2_WITH_TIMEOUT(crashed.log().contains(kStarted), qPrintable(crashed.text), 60000);
            m_startUpMs = clock.elapsed();
            QVERIFY(crashed.signal(SIGKILL));
        }
        QVERIFY(QFileInfo::exists(user.socket()) && QFileInfo::exists(user.lock()));

        // Ten at once: one runs, the others ask it for its window and end.
        std::vector<std::unique_ptr<Launch>> launches;
        for (int i = 0; i < 10; ++i)
            launches.push_back(std::make_unique<Launch>(user));
        QTRY_VERIFY_WITH_TIMEOUT(std::count_if(launches.begin(), launches.end(), [](auto &launch) {
                                     return launch->process.state() == QProcess::NotRunning;
                                 }) >= 9, 30000);
        Launch *running = nullptr;
        for (auto &launch : launches) {
            if (launch->process.state() == QProcess::NotRunning) {
                QVERIFY(launch->endsCleanly());
                QCOMPARE(launch->process.readAllStandardOutput(), kShown);
                QVERIFY2(!launch->log().contains(kStarted), qPrintable(launch->text));
            } else {
                QVERIFY2(!running, "two instances run");
                running = launch.get();
            }
        }
        QVERIFY(running);
        QTRY_VERIFY_WITH_TIMEOUT(running->log().contains(kStarted), 60000);
        QTRY_COMPARE_WITH_TIMEOUT(running->log().count(QLatin1String("Preferences window requested by another launch")),
                                  9, 30000);

        QVERIFY(running->signal(SIGHUP));
        QVERIFY2(running->endsCleanly() && running->loggedShutdown(), qPrintable(running->log()));
        QVERIFY(!QFileInfo::exists(user.socket()) && !QFileInfo::exists(user.lock()));
    }

    void lockHoldsWithoutSocket()
    {
        // A folder in the socket's place: nobody can listen there.
        User user;
        QVERIFY(QDir().mkpath(user.socket() + QStringLiteral("/in-the-way")));
        Launch first(user);
        QTRY_VERIFY2_WITH_TIMEOUT(first.log().contains(kStarted), qPrintable(first.text), 60000);
        QVERIFY(first.log().contains(QStringLiteral("Cannot listen for other launches on ") + user.socket()));

        Launch second(user);
        QVERIFY2(second.endsCleanly(), qPrintable(second.log()));
        QCOMPARE(second.process.readAllStandardOutput(), kNotShown);
        QVERIFY(!second.log().contains(kStarted));
        QVERIFY(first.signal(SIGTERM) && first.endsCleanly());
    }

    void quitSignalsDuringStartUp()
    {
        // SIGTERM at 20 moments from the process's start to past the server's
        // start, four launches at a time. A clean end logs the shutdown; only a
        // signal before the program ran at all may end it, silently.
        for (int batch = 0; batch < 5; ++batch) {
            std::array<User, 4> users;
            std::vector<std::unique_ptr<Launch>> launches;
            std::vector<int> moments;
            for (const User &user : users) {
                launches.push_back(std::make_unique<Launch>(user));
                moments.push_back(QRandomGenerator::global()->bounded(int(m_startUpMs * 3 / 2) + 1));
            }
            QElapsedTimer clock;
            clock.start();
            for (size_t i = 0; i < launches.size(); ++i) {
                QTest::qSleep(int(qMax<qint64>(0, moments[i] - clock.elapsed())));
                QVERIFY(launches[i]->signal(SIGTERM));
            }
            for (size_t i = 0; i < launches.size(); ++i) {
                Launch &launch = *launches[i];
                launch.process.waitForFinished(30000);
                const QString what = QStringLiteral("SIGTERM after %1 ms: %2").arg(moments[i]).arg(launch.log());
                if (launch.process.exitStatus() == QProcess::CrashExit)
                    QVERIFY2(launch.log().isEmpty(), qPrintable(what));
                else
                    QVERIFY2(launch.process.exitCode() == 0 && launch.loggedShutdown(), qPrintable(what));
            }
        }
    }
};

QTEST_GUILESS_MAIN(TestSingleInstance)
#include "tst_single_instance.moc"
