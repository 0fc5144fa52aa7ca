// The window controller, the About window, the application controller and the
// preferences window, against the fixture server in one JVM.
#include "AboutController.h"
#include "BridgeFixture.h"
#include "LogCapture.h"
#include "MainForm.h"
#include "PreferencesTabs.h"
#include "StartupController.h"
#include "WindowController.h"
#include "platform/WindowLayouts.h"
#include "bridge/JNIServer.h"
#include "conversion/ConversionController.h"
#include "logs/LogsController.h"
#include "platform/Defaults.h"
#include "preferences/MainWindowController.h"
#include "preferences/StartAtLogin.h"
#include "preferences/TabController.h"
#include "server/LocalIP.h"
#include "server/PasswordDigest.h"
#include "server/Server.h"

#include <QtTest>
#include <QtWidgets>

#include <memory>

namespace {

QByteArray fileBytes(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

Defaults &defaults() { return Defaults::standard(); }
const QString kSkip = QStringLiteral("skipCloseWarning");

const QString kPreferencesTitle = QStringLiteral("Quillon Server Preferences");

QList<QWidget *> visibleWindows(const QString &title)
{
    QList<QWidget *> found = QApplication::topLevelWidgets();
    found.removeIf([&](QWidget *widget) { return !widget->isVisible() || widget->windowTitle() != title; });
    return found;
}

// Closes a preferences window past the close warning and waits until its
// controller is gone.
bool closePreferences(WindowController *controller)
{
    QPointer<WindowController> watch = controller;
    defaults().setBool(true, kSkip);
    if (controller)
        controller->window()->close();
    return QTest::qWaitFor([&] { return watch.isNull(); }, 3000);
}

bool g_trayAvailable = true;

QAction *menuAction(StartupController *c, const char *name) { return c->statusMenu()->findChild<QAction *>(name); }

// The icon and the server entries that can be chosen: "mac-menu-on stopServer openWebPlayer".
QString trayState(StartupController *controller)
{
    QString state = controller->iconName();
    for (const char *entry : {"startServer", "stopServer", "openWebPlayer"})
        state += menuAction(controller, entry)->isEnabled() ? QLatin1Char(' ') + QLatin1String(entry) : QString();
    return state;
}

QStringList g_tabEvents;

struct FakeTab : QObject, TabController {
    FakeTab(const QString &name, QObject *parent) : QObject(parent), name(name) {}
    void onShow() override { g_tabEvents << name + ".onShow"; }
    void onHide() override { g_tabEvents << name + ".onHide"; }
    void windowWillClose() override { g_tabEvents << name + ".windowWillClose"; }
    const QString name;
};

const QString kPortMessage = QStringLiteral("Port must be an integer value in range from 1000 to 55000");

Server *server() { return Server::instance(); }

struct Window {
    QPointer<WindowController> controller = new WindowController(QStringLiteral("Main"));
    QWidget *window = (controller->showWindow(), controller->window());
    MainWindowController *main = qobject_cast<MainWindowController *>(controller->mainController());

    template<class T>
    T *find(const char *name) const { return window->findChild<T *>(QLatin1String(name)); }
    void press(const char *button) const { QTest::mouseClick(find<QPushButton>(button), Qt::LeftButton); }
    bool close() { return closePreferences(controller); }
};

void enter(QLineEdit *field, const QString &text)
{
    field->selectAll();
    QTest::keyClicks(field, text);
    QTest::keyClick(field, Qt::Key_Return);
}

// On the box itself: a check box reacts only where its box and text are.
void click(QCheckBox *box) { QTest::mouseClick(box, Qt::LeftButton, {}, QPoint(6, box->height() / 2)); }

}

class TestShell : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;
    LogCapture m_log;
    std::unique_ptr<StartupController> m_controller; // the awake one, from firstAndLaterStarts on

private slots:
    void initTestCase()
    {
        QVERIFY(m_home.isValid());
        // Neither the defaults nor the server's application folder may touch the real ones.
        qputenv("HOME", QFile::encodeName(m_home.path()));
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_home.filePath(QStringLiteral("config"))));
        Defaults::resetStandard();
        StartupController::setTrayProbe([] { return g_trayAvailable; });
        registerMainForm();
        WindowLayouts::registerForm(QStringLiteral("Plain"), [](QWidget *) {});
    }

    // Runs before anything creates the Server.
    void iconFromSavedWishBeforeTheServer()
    {
        defaults().setBool(false, QStringLiteral("serverRunning"));
        {
            StartupController stopped;
            QCOMPARE(trayState(&stopped), QStringLiteral("mac-menu-off startServer"));
            QVERIFY(!stopped.statusItem()->icon().isNull());
            QCOMPARE(stopped.statusItem()->toolTip(), QStringLiteral("Quillon Server"));
        }
        defaults().removeObjectForKey(QStringLiteral("serverRunning"));
        StartupController fresh;
        QCOMPARE(fresh.iconName(), QStringLiteral("mac-menu-on"));
        QCOMPARE(JNIServer::instance(), nullptr); // no Server, hence no JVM
    }

    void firstAndLaterStarts()
    {
        QVERIFY(!defaults().contains(QStringLiteral("hasBeenRun")));
        m_controller = std::make_unique<StartupController>();
        m_controller->awakeFromNib();
        QVERIFY2(JNIServer::instance() && JNIServer::instance()->isAvailable(), qPrintable(m_log.text()));
        QCOMPARE(defaults().objectForKey("hasBeenRun"), QVariant(true));
        QCOMPARE(visibleWindows(kPreferencesTitle).size(), 1);
        QCOMPARE(trayState(m_controller.get()), QStringLiteral("mac-menu-on stopServer openWebPlayer"));
        QVERIFY(closePreferences(m_controller->mainWindowController()));

        {
            StartupController second;
            second.awakeFromNib();
            QVERIFY(!second.mainWindowController() && visibleWindows(kPreferencesTitle).isEmpty());
        }

        // Without a tray the preferences open; a tray that turns up later gets the icon.
        g_trayAvailable = false;
        StartupController trayless;
        trayless.awakeFromNib();
        QVERIFY(visibleWindows(kPreferencesTitle).size() == 1 && trayless.isLookingForTray());
        QVERIFY(closePreferences(trayless.mainWindowController()));
        g_trayAvailable = true;
        QTRY_VERIFY_WITH_TIMEOUT(!trayless.isLookingForTray(), StartupController::kTrayCheckIntervalMs * 3);
        QVERIFY(trayless.statusItem()->isVisible() && !trayless.mainWindowController());
    }

    // Shown again, a window leaves the dock; closed, it keeps its frame for
    // the next opening and goes, controller and all, once the close has been
    // handled.
    void windowControllerLifecycle()
    {
        WindowController unknown(QStringLiteral("NoSuchLayout"));
        unknown.showWindow(); // nothing to show, and no crash
        QVERIFY(!unknown.window());

        Window w;
        w.window->showMinimized();
        w.controller->showWindow();
        QVERIFY(w.window->isVisible() && !(w.window->windowState() & Qt::WindowMinimized));
        const QRect frame(40, 50, 761, 563);
        w.window->setGeometry(frame);
        QPointer<QWidget> window = w.window;
        defaults().setBool(true, kSkip);
        QVERIFY(window->close() && w.controller && window);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(!w.controller && !window);
        Defaults::resetStandard();
        w = Window();
        QCOMPARE(w.window->geometry(), frame);
        QVERIFY(w.close());

        // Without an autosave name nothing is stored. A re-registration
        // replaces the target; a target gone first is not called.
        const QByteArray stored = fileBytes(defaults().fileName());
        int replaced = 0, gone = 0;
        auto *controller = new WindowController(QStringLiteral("Plain"));
        controller->onDeallocCallTarget(this, [&replaced] { ++replaced; });
        auto *target = new QObject;
        controller->onDeallocCallTarget(target, [&gone] { ++gone; });
        delete target;
        controller->showWindow();
        controller->window()->setGeometry(QRect(10, 10, 200, 150));
        QVERIFY(controller->window()->close());
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCOMPARE(replaced + gone, 0);
        QCOMPARE(fileBytes(defaults().fileName()), stored);
    }

    void iconFollowsTheServer()
    {
        StartupController *controller = m_controller.get();
        QVERIFY(controller);
        JNIServer::instance()->stop(); // by itself: the poll notices within a second
        QTRY_COMPARE_WITH_TIMEOUT(trayState(controller), QStringLiteral("mac-menu-off startServer"), 1500);

        menuAction(controller, "startServer")->trigger();
        QCOMPARE(trayState(controller), QStringLiteral("mac-menu-on stopServer openWebPlayer"));
        menuAction(controller, "stopServer")->trigger();
        QCOMPARE(controller->iconName(), QStringLiteral("mac-menu-off"));

        // A start refused for its port: the tool tip says why while the
        // server is stopped, and one notification tells the user at once.
        QSignalSpy notified(controller, &StartupController::notified);
        BridgeFixture::script(QStringLiteral("return.startServer"), QStringLiteral("-1"));
        menuAction(controller, "startServer")->trigger();
        const QString taken = QStringLiteral("Port 45631 is in use by another program.");
        QCOMPARE(controller->statusItem()->toolTip(), "Quillon Server\n" + taken);
        QVERIFY(notified.count() == 1 && notified.at(0) == (QVariantList{"Quillon Server could not start", taken}));
        QCOMPARE(trayState(controller), QStringLiteral("mac-menu-off startServer"));
        BridgeFixture::resetScript();
        menuAction(controller, "startServer")->trigger();
        QVERIFY(controller->statusItem()->toolTip() == QStringLiteral("Quillon Server") && notified.count() == 1);
        menuAction(controller, "stopServer")->trigger();

        // A settings file that cannot be saved says so too, until it can.
        QTemporaryDir dir;
        QFile blocker(dir.filePath(QStringLiteral("Quillon")));
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        Defaults store(blocker.fileName() + QStringLiteral("/QuillonServer.conf"));
        store.setBool(true, QStringLiteral("k"));
        QCOMPARE(controller->statusItem()->toolTip(), QStringLiteral("Quillon Server\nSettings cannot be saved"));
        QVERIFY(blocker.remove());
        store.setBool(false, QStringLiteral("k"));
        QCOMPARE(controller->statusItem()->toolTip(), QStringLiteral("Quillon Server"));

        // The web player at the port in use.
        QList<QUrl> opened;
        StartupController::setUrlOpener([&](const QUrl &url) {
            opened.append(url);
            return true;
        });
        menuAction(controller, "startServer")->trigger();
        menuAction(controller, "openWebPlayer")->trigger();
        server()->setCustomPort(50123);
        server()->setListenOnCustomPort(true);
        menuAction(controller, "openWebPlayer")->trigger();
        StartupController::setUrlOpener({});
        QCOMPARE(opened, (QList<QUrl>{QUrl("http://localhost:45631/"), QUrl("http://localhost:50123/")}));
    }

    void oneWindowOfEachAtATime()
    {
        StartupController *controller = m_controller.get();
        m_log.clear();
        for (int opening = 1; opening <= 2; ++opening) {
            menuAction(controller, "showPreferences")->trigger();
            WindowController *window = controller->mainWindowController();
            controller->showPreferences();
            QVERIFY(window && controller->mainWindowController() == window);
            QCOMPARE(visibleWindows(kPreferencesTitle), QList<QWidget *>{window->window()});
            QVERIFY(closePreferences(window));
            QCOMPARE(controller->mainWindowController(), nullptr);
            QCOMPARE(m_log.count(QStringLiteral("MainWindowController Dealloc")), opening);
        }

        QList<QUrl> opened;
        AboutController::setUrlOpener([&](const QUrl &url) {
            opened.append(url);
            return false; // a browser that cannot be opened is not reported
        });
        for (int opening = 1; opening <= 2; ++opening) {
            m_log.clear();
            QVERIFY(!AboutController::currentInstance());
            menuAction(controller, "showAbout")->trigger();
            controller->showAbout();
            QWidget *about = AboutController::currentInstance()->window();
            QCOMPARE(visibleWindows(about->windowTitle()), QList<QWidget *>{about});
            about->findChild<QPushButton *>(QStringLiteral("homePageButton"))->click();
            about->findChild<QPushButton *>(QStringLiteral("licensesButton"))->click();
            QPointer<AboutController> watch = AboutController::currentInstance();
            QVERIFY(about->close());
            QVERIFY(!AboutController::currentInstance() && watch && m_log.lines().isEmpty());
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
            QVERIFY(!watch);
            QCOMPARE(m_log.lines(), QStringList{"AboutController Dealloc"});
        }
        AboutController::setUrlOpener({});
        const QUrl home(QStringLiteral("http://www.quillonserver.com/quillon"));
        const QUrl licenses(QStringLiteral("http://www.quillonserver.com/quillon/licenses.html"));
        QCOMPARE(opened, (QList<QUrl>{home, licenses, home, licenses}));
    }

    void tabProtocol()
    {
        MainWindowController::addTabSetup([](MainWindowController *controller, QWidget *window) {
            controller->setConversionController(new FakeTab(QStringLiteral("conversion"), window));
            controller->setLogsController(new FakeTab(QStringLiteral("logs"), window));
        });
        g_tabEvents.clear();
        Window w;
        QTabWidget *tabs = w.main->tabView();
        QStringList ids;
        for (int i = 0; i < tabs->count(); ++i)
            ids << tabs->widget(i)->objectName();
        QCOMPARE(ids, QStringList({"server", "sharedFolders", "conversionFolders", "converter", "conversion",
                                   "remote", "logs"}));
        QCOMPARE(w.main->selectedTabId(), QStringLiteral("server"));

        for (const char *tab : {"conversion", "logs", "converter", "logs", "conversion"}) {
            tabs->setCurrentWidget(w.find<QWidget>(tab));
            w.main->setSelectedTabId(QLatin1String(tab)); // the same again: nothing
        }
        w.main->setSelectedTabId(QStringLiteral("remote")); // from outside: the view follows
        QCOMPARE(tabs->currentWidget(), w.find<QWidget>("remote"));
        // Logs are never told of hiding.
        QCOMPARE(g_tabEvents, QStringList({"conversion.onShow", "conversion.onHide", "logs.onShow", "logs.onShow",
                                           "conversion.onShow", "conversion.onHide"}));
        // Closing asks first: nothing is told while the warning is up, and a
        // second close brings no second sheet.
        g_tabEvents.clear();
        defaults().removeObjectForKey(kSkip);
        w.window->close();
        w.window->close();
        QVERIFY(g_tabEvents.isEmpty() && w.window->isVisible() && w.main->closeSheet()->isVisible());
        QCOMPARE(w.window->findChildren<QDialog *>().count(), 2); // the two sheets, built once
        w.press("closeSheetButton");
        QTRY_VERIFY(!w.controller); // closed, without a second sheet
        QVERIFY(!defaults().contains(kSkip));
        QCOMPARE(g_tabEvents, QStringList({"conversion.windowWillClose"}));

        // The warning comes once per opening, a stored NO included; Escape ends
        // the sheet like its button, and its check box turns it off for good.
        defaults().setBool(false, kSkip);
        w = Window();
        w.window->close();
        auto *skip = w.find<QCheckBox>("skipCloseWarningCheckBox");
        QVERIFY(skip->isVisible());
        QCOMPARE(skip->text(), QStringLiteral("Don't show this again"));
        skip->setChecked(true);
        QTest::keyClick(w.main->closeSheet(), Qt::Key_Escape);
        QTRY_VERIFY(!w.controller);
        QCOMPARE(defaults().objectForKey(kSkip), QVariant(true));
        w = Window();
        w.window->close();
        QTRY_VERIFY(!w.controller); // at once
        MainWindowController::clearTabSetups();
    }

    // The real tabs: each placeholder gets its page, the window tells the
    // conversion and logs pages of their tab, and the picker's layout is bound.
    void realTabsAreWired()
    {
        installPreferencesTabs();
        QVERIFY(WindowLayouts::hasForm(QStringLiteral("Playlists")));
        m_log.clear();
        Window w;
        for (const char *content : {"sharedFoldersContent", "conversionFoldersContent", "conversionContent",
                                    "remoteContent", "logsContent"}) {
            const auto pages = w.find<QWidget>(content)->findChildren<QWidget *>(QString(), Qt::FindDirectChildrenOnly);
            QVERIFY2(pages.size() == 1 && !pages.first()->isHidden(), content);
        }
        QVERIFY(dynamic_cast<ConversionController *>(w.main->conversionController()));
        QVERIFY(dynamic_cast<LogsController *>(w.main->logsController()));
        QCOMPARE(m_log.count(QStringLiteral("Shared Folder Controller awakeFromNib")), 2);
        QVERIFY(w.close());
        MainWindowController::clearTabSetups();
    }

    void passwordSheet()
    {
        defaults().removeObjectForKey(QStringLiteral("passwordDigest"));
        server()->setRequiresPassword(false);
        Window w;
        QDialog *sheet = w.main->changePasswordSheet();
        auto *placeholder = w.find<QLineEdit>("passwordPlaceholderField");
        auto *field = w.find<QLineEdit>("changePasswordField");
        click(w.find<QCheckBox>("requiresPasswordCheckBox"));
        QVERIFY(server()->requiresPassword() && placeholder->text().isEmpty() && placeholder->isReadOnly());
        QCOMPARE(field->echoMode(), QLineEdit::Password);
        w.press("changePasswordButton");
        QTest::keyClicks(field, QStringLiteral("abc"));
        w.press("changePasswordCancelButton");
        QVERIFY(!sheet->isVisible() && !defaults().contains(QStringLiteral("passwordDigest")));

        w.press("changePasswordButton");
        QCOMPARE(field->text(), QStringLiteral("abc"));
        w.press("changePasswordConfirmButton");
        QVERIFY(!sheet->isVisible() && placeholder->text() == QStringLiteral("***"));
        QCOMPARE(server()->passwordDigest(), PasswordDigest::getSHA1(QStringLiteral("abc")));

        // Emptied and confirmed: the empty password, not "no password".
        w.press("changePasswordButton");
        QTest::keyClick(field, Qt::Key_Backspace); // the sheet opens with the text selected
        w.press("changePasswordConfirmButton");
        QCOMPARE(server()->passwordDigest(), PasswordDigest::getSHA1(QString()));
        QVERIFY(placeholder->text().isEmpty());
        QVERIFY(w.close());
    }

    void settingsBoundBothWays()
    {
        // Read like a number field's text: the leading integer, else 0.
        const QList<QPair<QVariant, bool>> proposals = {{1023, false}, {55000, true}, {55001, false}, {"  8080abc", true},
                                                        {"abc8080", false}, {"99999999999999999999", false}};
        for (const auto &[proposed, accepted] : proposals) {
            ValidationError error;
            QVERIFY2(MainWindowController::validateCustomPort(proposed, &error) == accepted
                         && MainWindowController::validateCustomPort(proposed, nullptr) == accepted,
                     qPrintable(proposed.toString()));
            QCOMPARE(error.description, accepted ? QString() : kPortMessage);
        }

        server()->setListenOnCustomPort(false);
        const QStringList keys = {"CustomPort", "ConverterMaximalWidth", "ConverterMaximalHeight"};
        for (const QString &key : keys)
            defaults().removeObjectForKey(key);
        Window w;
        auto *listen = w.find<QCheckBox>("listenOnCustomPortCheckBox");
        auto *port = w.find<QLineEdit>("customPortField");
        auto *width = w.find<QLineEdit>("maximalWidthField");
        auto *height = w.find<QLineEdit>("maximalHeightField");
        const QList<QLabel *> errors = {w.find<QLabel>("customPortError"), w.find<QLabel>("maximalWidthError"),
                                        w.find<QLabel>("maximalHeightError")};
        const auto errorTexts = [&] { return QStringList({errors[0]->text(), errors[1]->text(), errors[2]->text()}); };
        QCOMPARE(QStringList({port->text(), width->text(), height->text()}), QStringList({"45631", "480", "320"}));
        QVERIFY(!port->isEnabled());
        click(listen);
        QVERIFY(server()->listenOnCustomPort() && port->isEnabled());

        enter(port, QStringLiteral("80"));
        enter(width, QStringLiteral("wide"));
        enter(height, QStringLiteral("199"));
        QCOMPARE(errorTexts(), QStringList({kPortMessage, "Value must be between 300 and 640",
                                            "Value must be between 200 and 480"}));
        for (const QString &key : keys)
            QVERIFY2(!defaults().contains(key), qPrintable(key));
        BridgeFixture::clearRecordedCalls();
        enter(port, QStringLiteral("8080abc"));
        enter(width, QStringLiteral("640"));
        enter(height, QStringLiteral("200"));
        QCOMPARE(port->text(), QStringLiteral("8080"));
        QCOMPARE(errorTexts(), QStringList({"", "", ""}));
        QCOMPARE(BridgeFixture::recordedCalls(),
                 QStringList({"setDefaultPort(8080)", "setConverterMaxWidth(640)", "setConverterMaxHeight(200)"}));

        enter(height, QStringLiteral("1000"));
        server()->setCustomPort(5000);
        server()->setListenOnCustomPort(false);
        server()->setMaximalHeight(250);
        QCOMPARE(QStringList({port->text(), height->text()}), QStringList({"5000", "250"}));
        QVERIFY(!listen->isChecked() && !port->isEnabled() && errors[2]->text().isEmpty());

        auto *size = w.find<QComboBox>("fontSizeComboBox");
        QStringList sizes;
        for (int i = 0; i < size->count(); ++i)
            sizes << size->itemText(i);
        QCOMPARE(sizes, QStringList({"90%", "100%", "110%", "120%", "130%", "140%", "150%"}));

        // The second entry of each list reaches the server, once and without echo.
        const QList<QPair<const char *, QStringList>> lists = {
            {"codecComboBox", {}},
            {"fontSizeComboBox", {"setFontSize(100)"}},
            {"preferredLanguage2ComboBox", {"setPreferredLanguages([English])"}},
            {"subtitleCharsetComboBox", {"setDefaultCharset(ISO-8859-1)"}},
            {"fontFamilyComboBox", {"setFontFamilyName(Monospaced)"}},
        };
        for (const auto &[box, calls] : lists) {
            w.find<QComboBox>(box)->setCurrentIndex(0);
            BridgeFixture::clearRecordedCalls();
            QTest::keyClick(w.find<QComboBox>(box), Qt::Key_Down);
            QCOMPARE(BridgeFixture::recordedCalls().filter("set"), calls);
        }
        QCOMPARE(server()->codec(), QStringLiteral("MPEG4"));
        server()->setFontSize(130); // and back from the server
        server()->setPreferredLanguage4(QStringLiteral("German"));
        QCOMPARE(size->currentText(), QStringLiteral("130%"));
        QCOMPARE(w.find<QComboBox>("preferredLanguage4ComboBox")->currentText(), QStringLiteral("German"));

        auto *remote = w.find<QCheckBox>("remoteSupportCheckBox");
        auto *mapping = w.find<QCheckBox>("portMappingCheckBox");
        QVERIFY(!mapping->isEnabled());
        click(remote);
        QVERIFY(server()->remoteSupportEnabled() && mapping->isEnabled() && mapping->isChecked()); // mapping on by default
        click(mapping);
        QVERIFY(!server()->portMappingEnabled());
        server()->setRemoteSupportEnabled(false);
        QVERIFY(!remote->isChecked() && !mapping->isEnabled());

        auto *status = w.find<QLabel>("serverStatusLabel");
        server()->setRunning(false);
        QCOMPARE(status->text(), QStringLiteral("The server is stopped."));
        w.press("startStopServerButton");
        QVERIFY(server()->isRunning());
        QCOMPARE(status->text(), QStringLiteral("The server is running."));
        QCOMPARE(w.find<QPushButton>("startStopServerButton")->text(), QStringLiteral("Stop Server"));

        // The address other devices use: the first local address, else the
        // computer name, or the host name where that name cannot be a host.
        QTemporaryDir etc;
        const QString machineInfo = etc.filePath(QStringLiteral("machine-info"));
        const auto setPrettyName = [&](const QByteArray &name) {
            QFile file(machineInfo);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write("PRETTY_HOSTNAME=\"" + name + "\"\n");
        };
        Server::setMachineInfoPath(machineInfo);
        const QString local = LocalIP::localIPs().value(0);
        auto *address = w.find<QLabel>("webPlayerAddressLabel");
        const auto link = [](const QString &host, int port) {
            return QStringLiteral("<a href=\"http://%1:%2/\">http://%1:%2/</a>").arg(host).arg(port);
        };
        setPrettyName("media-box");
        server()->setCustomPort(50123);
        server()->setListenOnCustomPort(true);
        QCOMPARE(address->text(), "Other devices in your home can watch at " + link(local.isEmpty() ? "media-box" : local, 50123));
        QVERIFY(address->isEnabled() && address->openExternalLinks());
        setPrettyName("Anna's Laptop");
        server()->setRunning(false);
        QCOMPARE(address->text(), "Once the server runs, other devices in your home can watch at "
                 + link(local.isEmpty() ? QSysInfo::machineHostName() : local, 50123));
        QVERIFY(!address->isEnabled());
        server()->setListenOnCustomPort(false);
        QVERIFY(address->text().endsWith(":45631/</a>"));
        Server::setMachineInfoPath(QString());

        const QString folder = m_home.filePath(QStringLiteral("autostart"));
        StartAtLogin::setAutostartFolder(folder);
        StartAtLogin::setProgramPath(QStringLiteral("/opt/quillon/bin/quillon-server"));
        auto *box = w.find<QCheckBox>("startOnLoginCheckBox");
        click(box); // no autostart folder: the box reads unchecked
        QVERIFY(!box->isChecked());
        QVERIFY(QDir().mkpath(folder));
        click(box);
        QVERIFY(box->isChecked() && StartAtLogin::startOnLogin());
        click(box);
        QVERIFY(!box->isChecked() && !StartAtLogin::startOnLogin());
        StartAtLogin::setAutostartFolder(QString());
        StartAtLogin::setProgramPath(QString());
        QVERIFY(w.close());
    }
};

QTEST_MAIN(TestShell)
#include "tst_shell.moc"
