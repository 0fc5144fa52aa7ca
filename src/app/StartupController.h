#pragma once

#include <QObject>
#include <QString>
#include <QUrl>

#include <functional>

class QAction;
class QMenu;
class QSystemTrayIcon;
class QTimer;
class Server;
class WindowController;

// The application controller: the tray icon with the status menu, the icon
// following the server's running state, the preferences window (at most one)
// and the About window. Exactly one lives for the whole run; it deletes
// itself when the application is about to quit.
class StartupController : public QObject
{
    Q_OBJECT
public:
    // Creates the tray icon with the saved wish's image; the Server is not
    // created yet.
    StartupController();
    ~StartupController() override;

    // Start-up once the menu exists: attaches it, creates the Server and
    // follows its running state, then handles the first start. Opens the
    // preferences window when there is no tray to reach the menu from.
    void awakeFromNib();

    void addStatusMenu();
    void updateIconRunning(bool running);
    void updateIcon();
    // "Quillon Server", and while the server is not running the reason it
    // could not start; while a file cannot be saved, "Settings cannot be
    // saved". Further reasons join as lines of their own.
    QString toolTipText() const;
    void updateToolTip();
    void checkFirstStart();
    void mainWindowDealloc();

    // The status menu's actions.
    void showPreferences();
    void showAbout();
    void startServerClicked();
    void stopServerClicked();
    // Opens the web player of the running server in the desktop's browser.
    void openWebPlayerClicked();
    void quitClicked();

    // Opens URLs in the user's browser; tests put their own opener here. An
    // empty function restores QDesktopServices::openUrl.
    using UrlOpener = std::function<bool(const QUrl &)>;
    static void setUrlOpener(UrlOpener opener);

    // The settings facade, created on first use; nullptr once the
    // application has ended.
    Server *server() const;

    QSystemTrayIcon *statusItem() const { return m_statusItem; }
    QMenu *statusMenu() const { return m_statusMenu; }
    WindowController *mainWindowController() const { return m_mainWindowController; }
    // "mac-menu-on" or "mac-menu-off": the image the icon shows.
    QString iconName() const { return m_iconName; }
    // Whether no tray was there at start and none has appeared since.
    bool isLookingForTray() const;

signals:
    // A tray notification was shown (title, message).
    void notified(const QString &title, const QString &message);

public:

    // Whether a tray can show the icon. Tests put their own answer here; an
    // empty function restores QSystemTrayIcon::isSystemTrayAvailable().
    using TrayProbe = std::function<bool()>;
    static void setTrayProbe(TrayProbe probe);
    static bool isTrayAvailable();
    // How often a missing tray is looked for again (milliseconds).
    static constexpr int kTrayCheckIntervalMs = 2000;

private:
    void buildMenu();
    void checkTray();
    void updateMenuState(bool running);
    void notifyStartFailure(const QString &reason);
    void release();

    QMenu *m_statusMenu = nullptr;
    QSystemTrayIcon *m_statusItem = nullptr;
    WindowController *m_mainWindowController = nullptr;
    QAction *m_startAction = nullptr;
    QAction *m_stopAction = nullptr;
    QAction *m_webPlayerAction = nullptr;
    QTimer *m_trayCheck = nullptr;
    QString m_iconName;
    bool m_trayWasAvailable = false;
    bool m_facadeCreated = false;
};
