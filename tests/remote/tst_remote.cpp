// The remote-access page against the fixture jar: what the page shows of a
// state, when the connection test may be used, and the test's alerts.
#include "BridgeFixture.h"
#include "bridge/JNIServer.h"
#include "platform/DelayedCall.h"
#include "remote/RemoteController.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>

using BridgeFixture::recordedCalls;

namespace {
// Answers every modal alert with its first button, noting its message,
// informative text and button titles, and whether Java's reporting thread
// was still waiting for it.
void answerAlerts(QList<QStringList> *seen, QObject *owner)
{
    auto *timer = new QTimer(owner);
    QObject::connect(timer, &QTimer::timeout, [seen] {
        auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        if (!box)
            return;
        QStringList alert{box->text(), box->informativeText()};
        for (QAbstractButton *button : box->buttons())
            alert << button->text();
        const bool waiting = recordedCalls().filter("connectionTestEnded returned").isEmpty();
        *seen << (alert << (waiting ? "Java waiting" : "Java went on"));
        box->buttons().value(0)->click();
    });
    timer->start(20);
}
}

class TestRemote : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;
    std::unique_ptr<QWidget> m_content;
    RemoteController *m_controller = nullptr;

    static JNIServer *bridge() { return JNIServer::instance(); }
    template<typename T>
    T *widget(const char *name) const { return m_content->findChild<T *>(QLatin1String(name)); }
    QPushButton *testButton() const { return widget<QPushButton>("testConnectionButton"); }
    static void scriptState(const QString &state) { BridgeFixture::script(QStringLiteral("state"), state); }

    void makeAwakePage()
    {
        m_content = std::make_unique<QWidget>();
        m_controller = new RemoteController(m_content.get());
        m_controller->awakeFromNib();
    }

private slots:
    void initTestCase()
    {
        const QString failure = BridgeFixture::startJvm(m_home.path(), true, true);
        QVERIFY2(failure.isEmpty(), qPrintable(failure));
    }

    void init() { BridgeFixture::resetScript(); }

    void cleanup() { m_content.reset(); }

    void pageShowsState_data()
    {
        QTest::addColumn<QString>("state");
        QTest::addColumn<QStringList>("shown"); // PIN, message, port, then retry, test, busy visible
        QTest::newRow("ready") << "9876|Ready|true|true|false|45631" << QStringList{"9876", "Ready", "45631", "1", "1", "0"};
        QTest::newRow("null texts") << "<null>|<null>|false|false|true|0" << QStringList{"", "", "0", "0", "0", "1"};
        QTest::newRow("no state") << "<null>" << QStringList{"", "", "", "0", "0", "0"};
    }

    // Waking reads the state once; the page shows the snapshot and the
    // buttons offered.
    void pageShowsState()
    {
        QFETCH(QString, state);
        QFETCH(QStringList, shown);
        scriptState(state);
        BridgeFixture::clearRecordedCalls();
        makeAwakePage();
        QCOMPARE(recordedCalls(), QStringList{"RemoteManagerControl.getState()"});
        auto visible = [this](const char *name) { return QString::number(!widget<QWidget>(name)->isHidden()); };
        QCOMPARE(QStringList({widget<QLineEdit>("serverPinField")->text(), widget<QLabel>("messageField")->text(),
                              widget<QLineEdit>("portField")->text(), visible("retryButton"),
                              visible("testConnectionButton"), visible("progressIndicator")}),
                 shown);
        BridgeFixture::clearRecordedCalls();
        widget<QPushButton>("retryButton")->click();
        QCOMPARE(recordedCalls(), QStringList{"RemoteManagerControl.retry()"});
    }

    // The test button is enabled only after the state has offered the test
    // for an unbroken half second, and disabled at once when it stops.
    void testButtonTiming()
    {
        scriptState("1234|Ready|false|true|false|45631");
        makeAwakePage();
        QTest::qSleep(300); // no events run: the first wait cannot end before the second update
        QElapsedTimer sinceSecond;
        sinceSecond.start();
        bridge()->performUpdate1();
        QTRY_VERIFY_WITH_TIMEOUT(testButton()->isEnabled(), 3000);
        // Coarse timers may fire up to 5 % early.
        QVERIFY2(sinceSecond.elapsed() >= RemoteController::kTestConnectionDelayMs - 30,
                 qPrintable(QString::number(sinceSecond.elapsed())));

        // Still offered: stays enabled while the wait restarts.
        bridge()->performUpdate1();
        QVERIFY(testButton()->isEnabled());
        QCOMPARE(DelayedCall::pendingCount(m_controller), 1);

        // No longer offered: disabled at once, the pending enable cancelled.
        scriptState("1234|Testing|false|false|true|45631");
        bridge()->performUpdate1();
        QVERIFY(!testButton()->isEnabled() && !m_controller->testConnectionEnabled());
        QCOMPARE(DelayedCall::pendingCount(m_controller), 0);
    }

    void connectionTestAlert_data()
    {
        QTest::addColumn<QString>("outcome");
        QTest::addColumn<QStringList>("texts");
        QTest::newRow("passed") << "true" << QStringList{"Connection Test Passed",
            "Your Quillon Server instance is accessible from internet.", "Continue", "Java waiting"};
        QTest::newRow("failed") << "false" << QStringList{"Connection Test Failed",
            "Your Quillon Server instance is NOT accessible from internet.", "Continue", "Java waiting"};
    }

    // The test button asks Java; the outcome comes back as a modal alert
    // while Java's reporting thread waits for the user.
    void connectionTestAlert()
    {
        QFETCH(QString, outcome);
        QFETCH(QStringList, texts);
        BridgeFixture::script(QStringLiteral("testConnection.result"), outcome);
        makeAwakePage();
        QList<QStringList> seen;
        answerAlerts(&seen, m_content.get());
        QTRY_VERIFY_WITH_TIMEOUT(testButton()->isEnabled(), 3000);
        BridgeFixture::clearRecordedCalls();
        testButton()->click();
        QTRY_VERIFY_WITH_TIMEOUT(recordedCalls().contains("connectionTestEnded returned(" + outcome + ")"), 5000);
        QCOMPARE(seen, QList<QStringList>{texts});
    }

    // A destroyed page gives up the callbacks unless a newer page has taken
    // them; a late result then shows nothing and Java is not kept waiting.
    void noAlertAfterThePageIsGone()
    {
        QObject answerer;
        QList<QStringList> seen;
        answerAlerts(&seen, &answerer);
        makeAwakePage();
        std::unique_ptr<QWidget> older = std::move(m_content);
        makeAwakePage();
        older.reset();
        QCOMPARE(bridge()->target(), m_controller);

        cleanup();
        QCOMPARE(bridge()->target(), nullptr);
        BridgeFixture::clearRecordedCalls();
        BridgeFixture::call(QStringLiteral("fireConnectionTestEnded"), QStringLiteral("true"));
        bridge()->performUpdate1();
        QTRY_VERIFY_WITH_TIMEOUT(recordedCalls().contains("connectionTestEnded returned(true)"), 5000);
        QCOMPARE(seen.size(), 0);
        QVERIFY(!recordedCalls().contains("RemoteManagerControl.getState()"));
    }
};

QTEST_MAIN(TestRemote)
#include "tst_remote.moc"
