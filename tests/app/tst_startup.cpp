// The application controller against the fixture server.
#include "AboutController.h"
#include "LogCapture.h"
#include "ShellTestSupport.h"
#include "StartupController.h"
#include "bridge/JNIServer.h"
#include "server/Server.h"

#include <QAction>
#include <QMenu>
#include <QSystemTrayIcon>

#include <memory>

namespace {
bool g_trayAvailable = true;

QAction *menuAction(StartupController *controller, const char *name)
{
    return controller->statusMenu()->findChild<QAction *>(QLatin1String(name));
}

QVariant stored(const char *key)
{
    return Defaults::standard().objectForKey(QLatin1String(key));
}
}

class TestStartup : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;
    LogCapture m_log;
    std::unique_ptr<StartupController> m_controller; // the awake one, from firstAndSecondStart on

private slots:
    void initTestCase()
    {
        QVERIFY(useTestHome(m_home));
        StartupController::setTrayProbe([] { return g_trayAvailable; });
    }

    void cleanupTestCase()
    {
        if (m_controller)
            closePreferences(m_controller->mainWindowController());
        m_controller.reset();
        StartupController::setTrayProbe({});
    }

    // Runs before anything creates the Server.
    void iconFromSavedWishBeforeTheServer()
    {
        Defaults::standard().setBool(false, QStringLiteral("serverRunning"));
        {
            StartupController stopped;
            QCOMPARE(stopped.iconName(), QStringLiteral("mac-menu-off"));
            QVERIFY(!stopped.statusItem()->icon().isNull());
            QCOMPARE(stopped.statusItem()->toolTip(), QStringLiteral("Quillon Server"));
            QVERIFY(menuAction(&stopped, "startServer")->isEnabled());
            QVERIFY(!menuAction(&stopped, "stopServer")->isEnabled());
        }
        Defaults::standard().removeObjectForKey(QStringLiteral("serverRunning"));
        StartupController fresh;
        QCOMPARE(fresh.iconName(), QStringLiteral("mac-menu-on"));
        QStringList names;
        for (QAction *action : fresh.statusMenu()->actions())
            if (!action->isSeparator())
                names << action->objectName();
        QCOMPARE(names, QStringList({"showPreferences", "showAbout", "startServer", "stopServer", "quit"}));
        QCOMPARE(JNIServer::instance(), nullptr); // no Server, hence no JVM
        QCOMPARE(m_log.count(QStringLiteral("StartupController Dealloc")), 1);
    }

    void firstAndSecondStart()
    {
        QVERIFY(!Defaults::standard().contains(QStringLiteral("hasBeenRun")));
        m_controller = std::make_unique<StartupController>();
        m_controller->awakeFromNib();
        QVERIFY2(JNIServer::instance() && JNIServer::instance()->isAvailable(),
                 qPrintable(m_log.lines().join(QLatin1Char('\n'))));
        QCOMPARE(stored("hasBeenRun"), QVariant(true));
        QVERIFY(m_controller->mainWindowController());
        QCOMPARE(visibleWindows(kPreferencesTitle).size(), 1);
        QVERIFY(Server::instance()->isRunning()); // a fresh installation starts the server
        QCOMPARE(m_controller->iconName(), QStringLiteral("mac-menu-on"));
        QVERIFY(!m_controller->isLookingForTray());
        QVERIFY(closePreferences(m_controller->mainWindowController()));

        StartupController second;
        second.awakeFromNib();
        QCOMPARE(second.mainWindowController(), nullptr);
        QVERIFY(visibleWindows(kPreferencesTitle).isEmpty());
    }

    void withoutTrayThePreferencesOpen()
    {
        g_trayAvailable = false;
        StartupController controller;
        controller.awakeFromNib();
        QCOMPARE(visibleWindows(kPreferencesTitle).size(), 1);
        QVERIFY(controller.isLookingForTray());
        QVERIFY(closePreferences(controller.mainWindowController()));

        // A tray that turns up later gets the icon.
        g_trayAvailable = true;
        QTRY_VERIFY_WITH_TIMEOUT(!controller.isLookingForTray(), StartupController::kTrayCheckIntervalMs * 3);
        QVERIFY(controller.statusItem()->isVisible());
        QCOMPARE(controller.mainWindowController(), nullptr);
    }

    void iconFollowsTheServer()
    {
        StartupController *controller = m_controller.get();
        QVERIFY(controller && Server::instance()->isRunning());
        QVERIFY(!menuAction(controller, "startServer")->isEnabled());

        // The server stops by itself: the poll notices within a second, and
        // the wish is untouched so that the next launch starts it again.
        JNIServer::instance()->stop();
        QTRY_COMPARE_WITH_TIMEOUT(controller->iconName(), QStringLiteral("mac-menu-off"), 1500);
        QVERIFY(menuAction(controller, "startServer")->isEnabled());
        QVERIFY(!menuAction(controller, "stopServer")->isEnabled());
        QVERIFY(Server::preferencesIsRunning());

        menuAction(controller, "startServer")->trigger();
        QCOMPARE(controller->iconName(), QStringLiteral("mac-menu-on"));
        QCOMPARE(stored("serverRunning"), QVariant(true));
        menuAction(controller, "stopServer")->trigger();
        QCOMPARE(controller->iconName(), QStringLiteral("mac-menu-off"));
        QCOMPARE(stored("serverRunning"), QVariant(false));

        // Started from outside the menu: the poll brings the icon back.
        JNIServer::instance()->start();
        QTRY_COMPARE_WITH_TIMEOUT(controller->iconName(), QStringLiteral("mac-menu-on"), 1500);
    }

    void oneWindowOfEachAtATime()
    {
        StartupController *controller = m_controller.get();
        m_log.clear();
        for (int opening = 1; opening <= 2; ++opening) {
            menuAction(controller, "showPreferences")->trigger();
            WindowController *window = controller->mainWindowController();
            QVERIFY(window);
            controller->showPreferences();
            QCOMPARE(controller->mainWindowController(), window);
            QCOMPARE(visibleWindows(kPreferencesTitle), QList<QWidget *>{window->window()});
            QVERIFY(closePreferences(window));
            QCOMPARE(controller->mainWindowController(), nullptr);
            QCOMPARE(m_log.count(QStringLiteral("MainWindowController Dealloc")), opening);
        }

        menuAction(controller, "showAbout")->trigger();
        controller->showAbout();
        AboutController *about = AboutController::currentInstance();
        QCOMPARE(visibleWindows(about->window()->windowTitle()), QList<QWidget *>{about->window()});
        about->window()->close();
    }
};

QTEST_MAIN(TestStartup)
#include "tst_startup.moc"
