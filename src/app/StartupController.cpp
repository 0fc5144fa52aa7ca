#include "StartupController.h"

#include "AboutController.h"
#include "MainForm.h"
#include "WindowController.h"
#include "platform/Defaults.h"
#include "platform/Resources.h"
#include "platform/SaveFailures.h"
#include "platform/SystemLog.h"
#include "preferences/MainWindowController.h"
#include "server/Server.h"

#include <QAction>
#include <QApplication>
#include <QCursor>
#include <QDesktopServices>
#include <QIcon>
#include <QMenu>
#include <QSystemTrayIcon>
#include <QTimer>

namespace {

const QString kHasBeenRun = QStringLiteral("hasBeenRun");

StartupController::TrayProbe &trayProbe()
{
    static StartupController::TrayProbe probe;
    return probe;
}

StartupController::UrlOpener &urlOpener()
{
    static StartupController::UrlOpener opener;
    return opener;
}

// An image of the resource folder by name; a missing one adds nothing.
void addImage(QIcon &icon, const QString &name, QIcon::Mode mode)
{
    const QString path = Resources::pathForResource(name, QStringLiteral("png"));
    if (!path.isEmpty())
        icon.addFile(path, QSize(), mode); // "@2x" variants are picked up by QIcon
}

}

StartupController::StartupController()
{
    // Every preferences window gets its form and controller from here on.
    registerMainForm();
    MainWindowController::registerLayout();
    buildMenu();
    addStatusMenu();
}

StartupController::~StartupController()
{
    systemLog(QStringLiteral("StartupController Dealloc"));
    // The server keeps running: the process is ending.
    if (m_statusItem) {
        m_statusItem->hide();
        delete m_statusItem;
    }
    delete m_statusMenu;
}

void StartupController::setTrayProbe(TrayProbe probe)
{
    trayProbe() = std::move(probe);
}

bool StartupController::isTrayAvailable()
{
    if (trayProbe())
        return trayProbe()();
    return QSystemTrayIcon::isSystemTrayAvailable();
}

void StartupController::buildMenu()
{
    m_statusMenu = new QMenu;
    m_statusMenu->setObjectName(QStringLiteral("statusMenu"));
    QAction *preferences = m_statusMenu->addAction(tr("&Preferences…"));
    preferences->setObjectName(QStringLiteral("showPreferences"));
    connect(preferences, &QAction::triggered, this, &StartupController::showPreferences);
    QAction *about = m_statusMenu->addAction(tr("&About Quillon Server"));
    about->setObjectName(QStringLiteral("showAbout"));
    connect(about, &QAction::triggered, this, &StartupController::showAbout);
    m_statusMenu->addSeparator();
    m_startAction = m_statusMenu->addAction(tr("&Start Server"));
    m_startAction->setObjectName(QStringLiteral("startServer"));
    connect(m_startAction, &QAction::triggered, this, &StartupController::startServerClicked);
    m_stopAction = m_statusMenu->addAction(tr("S&top Server"));
    m_stopAction->setObjectName(QStringLiteral("stopServer"));
    connect(m_stopAction, &QAction::triggered, this, &StartupController::stopServerClicked);
    m_webPlayerAction = m_statusMenu->addAction(tr("Open &Web Player"));
    m_webPlayerAction->setObjectName(QStringLiteral("openWebPlayer"));
    connect(m_webPlayerAction, &QAction::triggered, this, &StartupController::openWebPlayerClicked);
    m_statusMenu->addSeparator();
    QAction *quit = m_statusMenu->addAction(tr("&Quit Quillon Server"));
    quit->setObjectName(QStringLiteral("quit"));
    connect(quit, &QAction::triggered, this, &StartupController::quitClicked);
}

void StartupController::addStatusMenu()
{
    if (m_statusItem)
        return;
    m_statusItem = new QSystemTrayIcon(this);
    m_statusItem->setToolTip(toolTipText());
    connect(&SaveFailures::instance(), &SaveFailures::changed, this, &StartupController::updateToolTip);
    // The saved wish: no Server exists yet, and none is created here.
    updateIconRunning(Server::preferencesIsRunning());
    // A left click opens the menu too, as a status menu does; a right click
    // gets the context menu from the tray itself.
    connect(m_statusItem, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger && m_statusMenu)
            m_statusMenu->popup(QCursor::pos());
    });
}

void StartupController::updateIconRunning(bool running)
{
    const QString name = running ? QStringLiteral("mac-menu-on") : QStringLiteral("mac-menu-off");
    m_iconName = name;
    QIcon icon;
    addImage(icon, name, QIcon::Normal);
    // Trays that highlight the icon while its menu is open use these.
    addImage(icon, name + QStringLiteral("-selected"), QIcon::Selected);
    addImage(icon, name + QStringLiteral("-selected"), QIcon::Active);
    if (m_statusItem)
        m_statusItem->setIcon(icon);
    updateMenuState(running);
}

void StartupController::updateMenuState(bool running)
{
    if (m_startAction)
        m_startAction->setEnabled(!running);
    if (m_stopAction)
        m_stopAction->setEnabled(running);
    if (m_webPlayerAction)
        m_webPlayerAction->setEnabled(running);
}

void StartupController::updateIcon()
{
    Server *facade = server();
    updateIconRunning(facade && facade->isRunning());
    updateToolTip();
}

QString StartupController::toolTipText() const
{
    QStringList lines{QStringLiteral("Quillon Server")};
    // Only once the facade exists: the constructor must not create it.
    if (Server *facade = m_facadeCreated ? server() : nullptr) {
        if (!facade->startFailure().isEmpty() && !facade->isRunning())
            lines << facade->startFailure();
    }
    if (SaveFailures::instance().any())
        lines << SaveFailures::instance().message();
    return lines.join(QLatin1Char('\n'));
}

void StartupController::updateToolTip()
{
    if (m_statusItem)
        m_statusItem->setToolTip(toolTipText());
}

void StartupController::notifyStartFailure(const QString &reason)
{
    const QString title = tr("Quillon Server could not start");
    if (m_statusItem)
        m_statusItem->showMessage(title, reason, QSystemTrayIcon::Warning);
    emit notified(title, reason);
}

void StartupController::awakeFromNib()
{
    if (m_statusItem)
        m_statusItem->setContextMenu(m_statusMenu);
    if (QCoreApplication *app = QCoreApplication::instance())
        connect(app, &QCoreApplication::aboutToQuit, this, &StartupController::release);

    // Creating the facade starts the Java server and its running-state poll.
    if (Server *facade = server()) {
        m_facadeCreated = true;
        connect(facade, &Server::runningChanged, this, &StartupController::updateIcon);
        connect(facade, &Server::startFailureChanged, this, &StartupController::updateToolTip);
        connect(facade, &Server::requestedStartFailed, this, &StartupController::notifyStartFailure);
        updateIcon();
    }

    m_trayWasAvailable = isTrayAvailable();
    if (m_statusItem)
        m_statusItem->show(); // Qt docks it by itself should a tray appear later
    checkFirstStart();
    if (!m_trayWasAvailable) {
        // Without a tray the menu cannot be reached: the window is the way in.
        showPreferences();
        m_trayCheck = new QTimer(this);
        m_trayCheck->setInterval(kTrayCheckIntervalMs);
        connect(m_trayCheck, &QTimer::timeout, this, &StartupController::checkTray);
        m_trayCheck->start();
    }
}

bool StartupController::isLookingForTray() const
{
    return m_trayCheck && m_trayCheck->isActive();
}

void StartupController::checkTray()
{
    if (!isTrayAvailable())
        return;
    m_trayWasAvailable = true;
    if (m_trayCheck)
        m_trayCheck->stop();
    if (m_statusItem) {
        // Shown again so that it docks into the tray that just appeared.
        m_statusItem->hide();
        m_statusItem->show();
    }
}

void StartupController::checkFirstStart()
{
    Defaults &defaults = Defaults::standard();
    if (defaults.objectForKey(kHasBeenRun).isValid())
        return;
    // Written before the window opens.
    defaults.setBool(true, kHasBeenRun);
    showPreferences();
}

void StartupController::showPreferences()
{
    if (!m_mainWindowController) {
        m_mainWindowController = new WindowController(QStringLiteral("Main"));
        m_mainWindowController->onDeallocCallTarget(this, &StartupController::mainWindowDealloc);
    }
    // showWindow raises the window and takes the focus from other programs.
    m_mainWindowController->showWindow();
}

void StartupController::mainWindowDealloc()
{
    m_mainWindowController = nullptr;
}

void StartupController::showAbout()
{
    AboutController::instance()->show();
}

void StartupController::startServerClicked()
{
    if (Server *facade = server())
        facade->setRunning(true);
}

void StartupController::stopServerClicked()
{
    if (Server *facade = server())
        facade->setRunning(false);
}

void StartupController::setUrlOpener(UrlOpener opener)
{
    urlOpener() = std::move(opener);
}

void StartupController::openWebPlayerClicked()
{
    Server *facade = server();
    if (!facade)
        return;
    // A browser that cannot be started is not reported.
    const QUrl url = facade->localWebPlayerUrl();
    if (urlOpener())
        urlOpener()(url);
    else
        QDesktopServices::openUrl(url);
}

void StartupController::quitClicked()
{
    QCoreApplication::quit();
}

Server *StartupController::server() const
{
    return Server::instance();
}

void StartupController::release()
{
    delete this;
}
