#include "AboutController.h"
#include "WindowController.h"
#include "WindowLayouts.h"
#include "platform/Defaults.h"
#include "platform/Resources.h"
#include "platform/SystemLog.h"

#include <QAbstractButton>
#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QLabel>
#include <QLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QtTest>

namespace {

struct CloseLog {
    int created = 0;
    int asked = 0;
    int told = 0;
    bool allow = true;
    QWidget *window = nullptr;
};
CloseLog g_log;

class AskingController : public QObject
{
    Q_OBJECT
public:
    explicit AskingController(QWidget *window) : QObject(window) { ++g_log.created; }
    Q_INVOKABLE bool windowShouldClose(QWidget *window)
    {
        ++g_log.asked;
        g_log.window = window;
        return g_log.allow;
    }
    Q_INVOKABLE void windowWillClose(QWidget *window)
    {
        ++g_log.told;
        g_log.window = window;
    }
};

// A controller without the two window methods.
class QuietController : public QObject
{
    Q_OBJECT
public:
    explicit QuietController(QWidget *window) : QObject(window) {}
};

class Opener : public QObject
{
    Q_OBJECT
public:
    WindowController *controller = nullptr;
    int deallocs = 0;
    void open(const QString &layout)
    {
        if (!controller) {
            controller = new WindowController(layout);
            controller->onDeallocCallTarget(this, &Opener::windowDealloc);
        }
        controller->showWindow();
    }
    void windowDealloc()
    {
        ++deallocs;
        controller = nullptr;
    }
};

void flushDeletes()
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCoreApplication::processEvents();
}

}

class TestApp : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void windowBuildsLayoutAndController();
    void windowRemembersFrameUnderAutosaveName();
    void windowCloseIsAskedAndForwarded();
    void windowDeletesItselfAndTellsOpener();
    void windowWithoutControllerOrRegistration();
    void mainLayoutHasNamedTabsAndFields();

    void aboutIsOneAtATime();
    void aboutVersionNumber();
    void aboutOpensTheTwoPages();

private:
    QTemporaryDir m_config;
    QTemporaryDir m_resources;
    QStringList m_logLines;
};

void TestApp::initTestCase()
{
    QVERIFY(m_config.isValid());
    QVERIFY(m_resources.isValid());
    qputenv("XDG_CONFIG_HOME", m_config.path().toUtf8());
    Defaults::resetStandard();
    Resources::setFolder(m_resources.path());
    SystemLog::setSink([this](const QString &line) { m_logLines.append(line); });

    WindowLayouts::registerForm(QStringLiteral("Framed"), [](QWidget *window) {
        window->setObjectName(QStringLiteral("framedWindow"));
        window->setProperty("frameAutosaveName", QStringLiteral("TestFrame"));
        auto *label = new QLabel(QStringLiteral("framed"), window);
        label->setObjectName(QStringLiteral("framedLabel"));
    });
    WindowLayouts::registerController(QStringLiteral("Framed"),
                                      [](QWidget *window) { return new AskingController(window); });
    WindowLayouts::registerForm(QStringLiteral("Plain"), [](QWidget *window) {
        window->setObjectName(QStringLiteral("plainWindow"));
    });
    WindowLayouts::registerController(QStringLiteral("Plain"),
                                      [](QWidget *window) { return new QuietController(window); });
    WindowLayouts::registerForm(QStringLiteral("Bare"), [](QWidget *) {});
}

void TestApp::init()
{
    g_log = CloseLog();
    m_logLines.clear();
}

void TestApp::cleanupTestCase()
{
    SystemLog::setSink({});
    AboutController::setUrlOpener({});
    Resources::setFolder(QString());
}

void TestApp::windowBuildsLayoutAndController()
{
    WindowController unknown(QStringLiteral("NoSuchLayout"));
    QVERIFY(!unknown.window());
    QVERIFY(!unknown.mainController());
    unknown.showWindow(); // nothing to show, and no crash

    WindowController controller(QStringLiteral("Framed"));
    QCOMPARE(controller.layoutName(), QStringLiteral("Framed"));
    QVERIFY(!controller.isWindowLoaded());
    QVERIFY(!controller.mainController()); // filled by loading the layout

    QWidget *window = controller.window();
    QVERIFY(window);
    QCOMPARE(controller.window(), window);
    QVERIFY(window->isWindow());
    QVERIFY(!window->isVisible());
    QVERIFY(window->findChild<QLabel *>(QStringLiteral("framedLabel")));
    QCOMPARE(controller.windowFrameAutosaveName(), QStringLiteral("TestFrame"));
    auto *main = qobject_cast<AskingController *>(controller.mainController());
    QVERIFY(main);
    QCOMPARE(main->parent(), window);
    QCOMPARE(g_log.created, 1);

    controller.showWindow();
    QVERIFY(window->isVisible());
    window->showMinimized();
    controller.showWindow();
    QVERIFY(!(window->windowState() & Qt::WindowMinimized));
    QCOMPARE(g_log.created, 1); // shown again through the same controller and window
}

void TestApp::windowRemembersFrameUnderAutosaveName()
{
    const QString key = WindowController::frameKey(QStringLiteral("TestFrame"));
    Defaults::standard().removeObjectForKey(key);

    Opener opener;
    opener.open(QStringLiteral("Framed"));
    QWidget *window = opener.controller->window();
    const QRect wanted(40, 50, 321, 234);
    window->setGeometry(wanted);
    QCOMPARE(window->geometry(), wanted);
    QVERIFY(window->close());
    flushDeletes();
    QVERIFY(!opener.controller);
    const QVariant saved = Defaults::standard().objectForKey(key);
    QCOMPARE(saved.typeId(), int(QMetaType::QByteArray));
    QVERIFY(!saved.toByteArray().isEmpty());

    // A fresh controller and window, at the saved frame rather than the
    // layout's own size.
    opener.open(QStringLiteral("Framed"));
    QWidget *again = opener.controller->window();
    QCOMPARE(again->geometry(), wanted);
    QCOMPARE(g_log.created, 2);
    again->setGeometry(QRect(60, 70, 300, 200));
    QVERIFY(again->close());
    flushDeletes();

    // Reading the store afresh sees the newer frame.
    Defaults::resetStandard();
    opener.open(QStringLiteral("Framed"));
    QCOMPARE(opener.controller->window()->geometry(), QRect(60, 70, 300, 200));
    opener.controller->window()->close();
    flushDeletes();

    // A layout without an autosave name stores nothing.
    const QString storeFile = Defaults::standard().fileName();
    QFile before(storeFile);
    QVERIFY(before.open(QIODevice::ReadOnly));
    const QByteArray stored = before.readAll();
    opener.open(QStringLiteral("Plain"));
    QVERIFY(opener.controller->windowFrameAutosaveName().isEmpty());
    opener.controller->window()->setGeometry(QRect(10, 10, 200, 150));
    opener.controller->window()->close();
    flushDeletes();
    QFile after(storeFile);
    QVERIFY(after.open(QIODevice::ReadOnly));
    QCOMPARE(after.readAll(), stored);
}

void TestApp::windowCloseIsAskedAndForwarded()
{
    Opener opener;
    opener.open(QStringLiteral("Framed"));
    QPointer<WindowController> controller = opener.controller;
    QWidget *window = controller->window();
    QPointer<QObject> main = controller->mainController();

    g_log.allow = false;
    QVERIFY(!window->close());
    flushDeletes();
    QCOMPARE(g_log.asked, 1);
    QCOMPARE(g_log.window, window);
    QCOMPARE(g_log.told, 0);
    QVERIFY(controller);
    QVERIFY(main);
    QVERIFY(window->isVisible());
    QCOMPARE(opener.deallocs, 0);

    g_log.allow = true;
    g_log.window = nullptr;
    QVERIFY(window->close());
    QCOMPARE(g_log.asked, 2);
    QCOMPARE(g_log.told, 1);
    QCOMPARE(g_log.window, window);
    flushDeletes();
    QVERIFY(!controller);
    QVERIFY(!main); // the window's objects go with it
    QCOMPARE(g_log.told, 1);
}

void TestApp::windowDeletesItselfAndTellsOpener()
{
    Opener opener;
    opener.open(QStringLiteral("Framed"));
    WindowController *first = opener.controller;
    opener.open(QStringLiteral("Framed"));
    QCOMPARE(opener.controller, first); // one window while the controller lives
    QCOMPARE(g_log.created, 1);

    QPointer<WindowController> watch = first;
    QPointer<QWidget> window = first->window();
    QVERIFY(window->close());
    QVERIFY(watch); // only once the close has been handled
    QCOMPARE(opener.deallocs, 0);
    flushDeletes();
    QVERIFY(!watch);
    QVERIFY(!window);
    QCOMPARE(opener.deallocs, 1);
    QVERIFY(!opener.controller);

    opener.open(QStringLiteral("Framed"));
    QVERIFY(opener.controller);
    QCOMPARE(g_log.created, 2);
    QVERIFY(opener.controller->window()->isVisible());

    // A re-registration replaces the earlier target.
    Opener other;
    opener.controller->onDeallocCallTarget(&other, &Opener::windowDealloc);
    opener.controller->window()->close();
    flushDeletes();
    QCOMPARE(opener.deallocs, 1);
    QCOMPARE(other.deallocs, 1);
}

void TestApp::windowWithoutControllerOrRegistration()
{
    // A controller without the window methods: closing is allowed.
    QPointer<WindowController> plain = new WindowController(QStringLiteral("Plain"));
    plain->showWindow();
    QVERIFY(qobject_cast<QuietController *>(plain->mainController()));
    QVERIFY(plain->window()->close());
    flushDeletes();
    QVERIFY(!plain);

    // No controller bound at all.
    QPointer<WindowController> bare = new WindowController(QStringLiteral("Bare"));
    bare->showWindow();
    QVERIFY(!bare->mainController());
    QVERIFY(bare->window()->close());
    flushDeletes();
    QVERIFY(!bare);

    // A target that is gone before the controller is not called.
    auto *opener = new Opener;
    QPointer<WindowController> orphan = new WindowController(QStringLiteral("Bare"));
    int calls = 0;
    orphan->onDeallocCallTarget(opener, [&calls] { ++calls; });
    delete opener;
    orphan->showWindow();
    orphan->window()->close();
    flushDeletes();
    QVERIFY(!orphan);
    QCOMPARE(calls, 0);
}

void TestApp::mainLayoutHasNamedTabsAndFields()
{
    QWidget window(nullptr, Qt::Window);
    QVERIFY(WindowLayouts::hasForm(QStringLiteral("Main")));
    QVERIFY(WindowLayouts::buildForm(QStringLiteral("Main"), &window));
    QCOMPARE(window.property("frameAutosaveName").toString(), QStringLiteral("Preferences"));

    auto *tabs = window.findChild<QTabWidget *>(QStringLiteral("tabView"));
    QVERIFY(tabs);
    QStringList ids;
    for (int i = 0; i < tabs->count(); ++i)
        ids << tabs->widget(i)->objectName();
    QCOMPARE(ids, (QStringList{"server", "sharedFolders", "conversionFolders", "converter", "conversion",
                               "remote", "logs"}));

    // The areas that the tab controllers fill.
    for (const char *id : {"sharedFolders", "conversionFolders", "conversion", "remote", "logs"}) {
        auto *content = window.findChild<QWidget *>(QLatin1String(id) + QLatin1String("Content"));
        QVERIFY2(content && content->layout(), id);
        QCOMPARE(content->layout()->count(), 0);
    }

    const char *checkBoxes[] = {"listenOnCustomPortCheckBox", "requiresPasswordCheckBox", "remoteSupportCheckBox",
                                "portMappingCheckBox", "startOnLoginCheckBox", "disableEmbeddedSubtitlesCheckBox"};
    for (const char *name : checkBoxes)
        QVERIFY2(window.findChild<QCheckBox *>(QLatin1String(name)), name);
    const char *fields[] = {"customPortField", "passwordPlaceholderField", "maximalWidthField", "maximalHeightField"};
    for (const char *name : fields)
        QVERIFY2(window.findChild<QLineEdit *>(QLatin1String(name)), name);
    QVERIFY(window.findChild<QLineEdit *>(QStringLiteral("passwordPlaceholderField"))->isReadOnly());
    const char *errors[] = {"customPortError", "maximalWidthError", "maximalHeightError"};
    for (const char *name : errors) {
        auto *label = window.findChild<QLabel *>(QLatin1String(name));
        QVERIFY2(label && label->text().isEmpty(), name);
    }
    const char *combos[] = {"codecComboBox", "subtitleCharsetComboBox", "fontFamilyComboBox", "fontSizeComboBox",
                            "preferredLanguage1ComboBox", "preferredLanguage2ComboBox",
                            "preferredLanguage3ComboBox", "preferredLanguage4ComboBox"};
    for (const char *name : combos)
        QVERIFY2(window.findChild<QComboBox *>(QLatin1String(name)), name);
    QVERIFY(window.findChild<QPushButton *>(QStringLiteral("changePasswordButton")));

    // The two sheets are window-modal dialogs of the window.
    auto *closeSheet = window.findChild<QDialog *>(QStringLiteral("closeSheet"));
    QVERIFY(closeSheet);
    QCOMPARE(closeSheet->windowModality(), Qt::WindowModal);
    auto *skip = closeSheet->findChild<QCheckBox *>(QStringLiteral("skipCloseWarningCheckBox"));
    QVERIFY(skip);
    QCOMPARE(skip->text(), QStringLiteral("Don't show this again"));
    QVERIFY(closeSheet->findChild<QPushButton *>(QStringLiteral("closeSheetButton")));
    auto *passwordSheet = window.findChild<QDialog *>(QStringLiteral("changePasswordSheet"));
    QVERIFY(passwordSheet);
    QCOMPARE(passwordSheet->windowModality(), Qt::WindowModal);
    auto *field = passwordSheet->findChild<QLineEdit *>(QStringLiteral("changePasswordField"));
    QVERIFY(field);
    QCOMPARE(field->echoMode(), QLineEdit::Password);
    QVERIFY(passwordSheet->findChild<QPushButton *>(QStringLiteral("changePasswordConfirmButton")));
    QVERIFY(passwordSheet->findChild<QPushButton *>(QStringLiteral("changePasswordCancelButton")));
}

void TestApp::aboutIsOneAtATime()
{
    QVERIFY(!AboutController::currentInstance());
    AboutController *about = AboutController::instance();
    QVERIFY(about);
    QCOMPARE(AboutController::currentInstance(), about);
    QVERIFY(about->window());
    QVERIFY(!about->window()->isVisible()); // built hidden; the caller shows it

    about->show();
    QVERIFY(about->window()->isVisible());
    QCOMPARE(AboutController::instance(), about);
    AboutController::instance()->show();
    QCOMPARE(AboutController::instance(), about);
    const QWidgetList tops = QApplication::topLevelWidgets();
    QCOMPARE(std::count_if(tops.begin(), tops.end(),
                           [](QWidget *w) { return w->objectName() == QLatin1String("About"); }),
             1);

    QPointer<AboutController> first = about;
    QPointer<QWidget> window = about->window();
    QVERIFY(window->close());
    QVERIFY(!AboutController::currentInstance());
    QVERIFY(m_logLines.isEmpty());
    flushDeletes();
    QVERIFY(!first);
    QVERIFY(!window);
    QCOMPARE(m_logLines, QStringList{QStringLiteral("AboutController Dealloc")});

    AboutController *second = AboutController::instance();
    QVERIFY(second);
    QVERIFY(second->window());
    second->show();
    QVERIFY(second->window()->isVisible());
    second->window()->close();
    flushDeletes();
    QVERIFY(!AboutController::currentInstance());
    QCOMPARE(m_logLines.size(), 2);
}

void TestApp::aboutVersionNumber()
{
    const QString info = m_resources.filePath(QStringLiteral("Info.ini"));
    {
        QFile file(info);
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write("CFBundleVersion=240\nCFBundleShortVersionString=2.4\n");
    }
    QCOMPARE(AboutController::versionNumber(), QStringLiteral("240"));
    AboutController *about = AboutController::instance();
    auto *label = about->window()->findChild<QLabel *>(QStringLiteral("versionLabel"));
    QVERIFY(label);
    QVERIFY(label->text().contains(QStringLiteral("240")));
    QVERIFY(!label->text().contains(QStringLiteral("2.4")));
    about->window()->close();
    flushDeletes();

    {
        QFile file(info);
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write("CFBundleShortVersionString=2.4\n");
    }
    QCOMPARE(AboutController::versionNumber(), QString());
    about = AboutController::instance();
    QCOMPARE(about->window()->findChild<QLabel *>(QStringLiteral("versionLabel"))->text(), QString());
    about->window()->close();
    flushDeletes();
    QFile::remove(info);
}

void TestApp::aboutOpensTheTwoPages()
{
    QList<QUrl> opened;
    AboutController::setUrlOpener([&opened](const QUrl &url) {
        opened.append(url);
        return true;
    });
    AboutController *about = AboutController::instance();
    about->show();
    about->window()->findChild<QPushButton *>(QStringLiteral("homePageButton"))->click();
    about->window()->findChild<QPushButton *>(QStringLiteral("licensesButton"))->click();
    QCOMPARE(opened, (QList<QUrl>{QUrl(QStringLiteral("http://www.quillonserver.com/quillon")),
                                  QUrl(QStringLiteral("http://www.quillonserver.com/quillon/licenses.html"))}));
    QCOMPARE(AboutController::homePageUrl().path(), QStringLiteral("/quillon"));
    QCOMPARE(AboutController::licensesUrl().path(), QStringLiteral("/quillon/licenses.html"));
    QCOMPARE(AboutController::homePageUrl().scheme(), QStringLiteral("http"));

    // A browser that cannot be opened is not reported and changes nothing.
    AboutController::setUrlOpener([&opened](const QUrl &url) {
        opened.append(url);
        return false;
    });
    about->showHomePage();
    QCOMPARE(opened.size(), 3);
    QCOMPARE(AboutController::currentInstance(), about);
    about->window()->close();
    flushDeletes();
    AboutController::setUrlOpener({});
}

QTEST_MAIN(TestApp)
#include "tst_app.moc"
