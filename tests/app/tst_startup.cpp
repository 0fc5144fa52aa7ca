// The application controller against the fixture server: the icon before and
// after the Server exists, first and second start, the status menu's
// actions, one preferences window and one About window at a time.
#include "AboutController.h"
#include "BridgeFixture.h"
#include "LogCapture.h"
#include "ShellTestSupport.h"
#include "StartupController.h"
#include "WindowController.h"
#include "bridge/JNIServer.h"
#include "platform/Defaults.h"
#include "server/Server.h"

#include <QAction>
#include <QMenu>
#include <QSystemTrayIcon>
#include <QtTest>

#include <memory>

namespace {
bool g_trayAvailable = true;

QAction *menuAction(StartupController *controller, const char *name)
{
    return controller->statusMenu()->findChild<QAction *>(QLatin1String(name));
}

// Closes the preferences window without the warning sheet and waits until
// its controller is gone.
bool closePreferences(StartupController *controller)
{
    if (!controller->mainWindowController())
        return true;
    Defaults::standard().setBool(true, QStringLiteral("skipCloseWarning"));
    controller->mainWindowController()->window()->close();
    QDeadlineTimer deadline(3000);
    while (controller->mainWindowController() && !deadline.hasExpired())
        QTest::qWait(10);
    Defaults::standard().removeObjectForKey(QStringLiteral("skipCloseWarning"));
    return controller->mainWindowController() == nullptr;
}
}

class TestStartup : public QObject
{
    Q_OBJECT

    TestHome m_home;
    LogCapture m_log;
    std::unique_ptr<StartupController> m_controller; // the awake one, from firstStart on

private slots:
    void initTestCase()
    {
        QVERIFY(m_home.setUp());
        StartupController::setTrayProbe([] { return g_trayAvailable; });
    }

    void cleanupTestCase()
    {
        if (m_controller)
            closePreferences(m_controller.get());
        m_controller.reset();
        StartupController::setTrayProbe({});
    }

    // Runs before anything creates the Server.
    void iconFromSavedWishBeforeTheServer()
    {
        Defaults &defaults = Defaults::standard();
        defaults.setBool(false, QStringLiteral("serverRunning"));
        {
            StartupController stopped;
            QCOMPARE(stopped.iconName(), QStringLiteral("mac-menu-off"));
            QVERIFY(!stopped.statusItem()->icon().isNull());
            QCOMPARE(stopped.statusItem()->toolTip(), QStringLiteral("Quillon Server"));
            QVERIFY(menuAction(&stopped, "startServer")->isEnabled());
            QVERIFY(!menuAction(&stopped, "stopServer")->isEnabled());
        }
        defaults.removeObjectForKey(QStringLiteral("serverRunning"));
        {
            StartupController fresh;
            QCOMPARE(fresh.iconName(), QStringLiteral("mac-menu-on"));
            QVERIFY(!fresh.statusItem()->icon().isNull());
        }
        // Neither made the Server (nor, through it, the JVM).
        QCOMPARE(JNIServer::instance(), nullptr);
        QCOMPARE(m_log.count(QStringLiteral("StartupController Dealloc")), 2);
        // Every entry of the menu is there, Quit included.
        StartupController menu;
        QStringList texts;
        for (QAction *action : menu.statusMenu()->actions())
            if (!action->isSeparator())
                texts << action->objectName();
        QCOMPARE(texts, QStringList({"showPreferences", "showAbout", "startServer", "stopServer", "quit"}));
    }

    void firstAndSecondStart()
    {
        QVERIFY(!Defaults::standard().contains(QStringLiteral("hasBeenRun")));
        g_trayAvailable = true;
        m_controller = std::make_unique<StartupController>();
        m_controller->awakeFromNib();
        QVERIFY2(JNIServer::instance() && JNIServer::instance()->isAvailable(),
                 qPrintable(m_log.lines().join(QLatin1Char('\n'))));
        QCOMPARE(Defaults::standard().objectForKey(QStringLiteral("hasBeenRun")), QVariant(true));
        QVERIFY(m_controller->mainWindowController());
        QCOMPARE(visibleWindows(kPreferencesTitle).size(), 1);
        // A fresh installation starts the server; the icon shows it.
        QVERIFY(Server::instance()->isRunning());
        QCOMPARE(m_controller->iconName(), QStringLiteral("mac-menu-on"));
        QVERIFY(!m_controller->isLookingForTray());
        QVERIFY(closePreferences(m_controller.get()));

        // The next start finds the key and opens nothing.
        StartupController second;
        second.awakeFromNib();
        QCOMPARE(second.mainWindowController(), nullptr);
        QVERIFY(visibleWindows(kPreferencesTitle).isEmpty());
        QCOMPARE(Defaults::standard().objectForKey(QStringLiteral("hasBeenRun")), QVariant(true));
    }

    void withoutTrayThePreferencesOpen()
    {
        g_trayAvailable = false;
        StartupController controller;
        controller.awakeFromNib();
        QVERIFY(controller.mainWindowController());
        QCOMPARE(visibleWindows(kPreferencesTitle).size(), 1);
        QVERIFY(controller.isLookingForTray());
        QVERIFY(closePreferences(&controller));

        // A tray that turns up later gets the icon.
        g_trayAvailable = true;
        QTRY_VERIFY_WITH_TIMEOUT(!controller.isLookingForTray(), StartupController::kTrayCheckIntervalMs * 3);
        QVERIFY(controller.statusItem()->isVisible());
        QCOMPARE(controller.mainWindowController(), nullptr);
    }

    void iconFollowsTheServer()
    {
        StartupController *controller = m_controller.get();
        QVERIFY(controller);
        Server *server = Server::instance();
        QVERIFY(server->isRunning());
        QCOMPARE(controller->iconName(), QStringLiteral("mac-menu-on"));
        QVERIFY(!menuAction(controller, "startServer")->isEnabled());

        // The server stops by itself: the poll notices within a second.
        QElapsedTimer clock;
        clock.start();
        JNIServer::instance()->stop();
        QTRY_COMPARE_WITH_TIMEOUT(controller->iconName(), QStringLiteral("mac-menu-off"), 1500);
        QVERIFY(clock.elapsed() <= 1500);
        QVERIFY(menuAction(controller, "startServer")->isEnabled());
        QVERIFY(!menuAction(controller, "stopServer")->isEnabled());
        // The wish was not touched: the next launch starts it again.
        QVERIFY(Server::preferencesIsRunning());

        // The menu's start and stop go through the facade.
        menuAction(controller, "startServer")->trigger();
        QCOMPARE(controller->iconName(), QStringLiteral("mac-menu-on"));
        QCOMPARE(Defaults::standard().objectForKey(QStringLiteral("serverRunning")), QVariant(true));
        menuAction(controller, "stopServer")->trigger();
        QCOMPARE(controller->iconName(), QStringLiteral("mac-menu-off"));
        QCOMPARE(Defaults::standard().objectForKey(QStringLiteral("serverRunning")), QVariant(false));

        // Stop while stopped changes nothing.
        BridgeFixture::clearRecordedCalls();
        controller->stopServerClicked();
        QVERIFY(!BridgeFixture::recordedCalls().contains(QStringLiteral("stopServer()")));
        QCOMPARE(Defaults::standard().objectForKey(QStringLiteral("serverRunning")), QVariant(false));

        // Started from outside the menu: the poll brings the icon back.
        JNIServer::instance()->start();
        QTRY_COMPARE_WITH_TIMEOUT(controller->iconName(), QStringLiteral("mac-menu-on"), 1500);
    }

    void onePreferencesWindowAtATime()
    {
        StartupController *controller = m_controller.get();
        m_log.clear();
        controller->showPreferences();
        WindowController *first = controller->mainWindowController();
        QVERIFY(first);
        QWidget *window = first->window();
        menuAction(controller, "showPreferences")->trigger();
        QCOMPARE(controller->mainWindowController(), first);
        QCOMPARE(visibleWindows(kPreferencesTitle), QList<QWidget *>{window});

        QVERIFY(closePreferences(controller));
        QCOMPARE(m_log.count(QStringLiteral("MainWindowController Dealloc")), 1);
        QVERIFY(visibleWindows(kPreferencesTitle).isEmpty());

        // A new controller and a new window from the layout.
        controller->showPreferences();
        QVERIFY(controller->mainWindowController());
        QCOMPARE(visibleWindows(kPreferencesTitle).size(), 1);
        QVERIFY(closePreferences(controller));
        QCOMPARE(m_log.count(QStringLiteral("MainWindowController Dealloc")), 2);
    }

    void oneAboutWindowAtATime()
    {
        StartupController *controller = m_controller.get();
        m_log.clear();
        QCOMPARE(AboutController::currentInstance(), nullptr);
        menuAction(controller, "showAbout")->trigger();
        AboutController *about = AboutController::currentInstance();
        QVERIFY(about);
        QVERIFY(about->window()->isVisible());
        controller->showAbout();
        QCOMPARE(AboutController::currentInstance(), about);
        const QString title = about->window()->windowTitle();
        QCOMPARE(visibleWindows(title).size(), 1);

        about->window()->close();
        QTRY_COMPARE(m_log.count(QStringLiteral("AboutController Dealloc")), 1);
        QCOMPARE(AboutController::currentInstance(), nullptr);
        controller->showAbout();
        QVERIFY(AboutController::currentInstance());
        QCOMPARE(visibleWindows(title).size(), 1);
        AboutController::currentInstance()->window()->close();
        QTRY_COMPARE(m_log.count(QStringLiteral("AboutController Dealloc")), 2);
    }
};

QTEST_MAIN(TestStartup)
#include "tst_startup.moc"
