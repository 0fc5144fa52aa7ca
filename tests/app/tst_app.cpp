#include "AboutController.h"
#include "WindowController.h"
#include "WindowLayouts.h"
#include "platform/Defaults.h"
#include "platform/Resources.h"
#include "platform/SystemLog.h"

#include <QLabel>
#include <QPushButton>
#include <QTemporaryDir>
#include <QtTest>

namespace {

QStringList g_events;
bool g_allowClose = true;

class AskingController : public QObject
{
    Q_OBJECT
public:
    explicit AskingController(QWidget *window) : QObject(window) { g_events << QStringLiteral("created"); }
    Q_INVOKABLE bool windowShouldClose(QWidget *window)
    {
        g_events << QStringLiteral("should ") + window->objectName();
        return g_allowClose;
    }
    Q_INVOKABLE void windowWillClose(QWidget *window) { g_events << QStringLiteral("will ") + window->objectName(); }
};

bool closeAndFlush(QWidget *window)
{
    const bool closed = window->close();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    return closed;
}

QByteArray fileBytes(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

}

class TestApp : public QObject
{
    Q_OBJECT

    QTemporaryDir m_config;
    QTemporaryDir m_resources;
    QStringList m_logLines;

    QWidget *open(const QString &layout, int *deallocs = nullptr)
    {
        auto *controller = new WindowController(layout);
        if (deallocs)
            controller->onDeallocCallTarget(this, [deallocs] { ++*deallocs; });
        controller->showWindow();
        return controller->window();
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_config.isValid() && m_resources.isValid());
        qputenv("XDG_CONFIG_HOME", m_config.path().toUtf8());
        Defaults::resetStandard();
        Resources::setFolder(m_resources.path());
        SystemLog::setSink([this](const QString &line) { m_logLines.append(line); });
        WindowLayouts::registerForm(QStringLiteral("Framed"), [](QWidget *window) {
            window->setObjectName(QStringLiteral("framed"));
            window->setProperty("frameAutosaveName", QStringLiteral("TestFrame"));
        });
        WindowLayouts::registerController(QStringLiteral("Framed"),
                                          [](QWidget *window) { return new AskingController(window); });
        // A controller without the two window methods.
        WindowLayouts::registerForm(QStringLiteral("Plain"), [](QWidget *) {});
        WindowLayouts::registerController(QStringLiteral("Plain"), [](QWidget *window) { return new QObject(window); });
    }

    void init()
    {
        g_events.clear();
        m_logLines.clear();
    }

    void cleanupTestCase()
    {
        SystemLog::setSink({});
        AboutController::setUrlOpener({});
    }

    void windowControllerLifecycle()
    {
        WindowController unknown(QStringLiteral("NoSuchLayout"));
        QVERIFY(!unknown.window());
        unknown.showWindow(); // nothing to show, and no crash

        int deallocs = 0;
        auto *controller = new WindowController(QStringLiteral("Framed"));
        controller->onDeallocCallTarget(this, [&deallocs] { ++deallocs; });
        QVERIFY(!controller->mainController()); // filled by loading the layout
        controller->showWindow();
        QPointer<QWidget> window = controller->window();
        QPointer<QObject> main = controller->mainController();
        QVERIFY(qobject_cast<AskingController *>(main) && main->parent() == window);
        window->showMinimized();
        controller->showWindow();
        QVERIFY(window->isVisible() && !(window->windowState() & Qt::WindowMinimized));

        // Refused: asked, not told, nothing goes. Allowed: told once, and
        // everything goes only after the close has been handled.
        g_allowClose = false;
        QVERIFY(!closeAndFlush(window));
        QVERIFY(main && window->isVisible());
        g_allowClose = true;
        QPointer<WindowController> watch = controller;
        QVERIFY(window->close());
        QVERIFY(watch && deallocs == 0);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(!watch && !main && !window);
        QCOMPARE(g_events, QStringList({"created", "should framed", "should framed", "will framed"}));
        QCOMPARE(deallocs, 1);

        // A re-registration replaces the target; a target gone first is not called.
        int first = 0, second = 0;
        controller = new WindowController(QStringLiteral("Framed"));
        controller->onDeallocCallTarget(this, [&first] { ++first; });
        auto *gone = new QObject;
        controller->onDeallocCallTarget(gone, [&second] { ++second; });
        delete gone;
        QVERIFY(closeAndFlush(open(QStringLiteral("Plain"), &deallocs))); // no window methods: allowed
        controller->showWindow();
        QVERIFY(closeAndFlush(controller->window()));
        QCOMPARE(deallocs, 2);
        QCOMPARE(first + second, 0);
    }

    void windowRemembersFrameUnderAutosaveName()
    {
        const QRect wanted(40, 50, 321, 234);
        QWidget *window = open(QStringLiteral("Framed"));
        window->setGeometry(wanted);
        QVERIFY(closeAndFlush(window));
        QCOMPARE(Defaults::standard().objectForKey(WindowController::frameKey(QStringLiteral("TestFrame"))).typeId(),
                 int(QMetaType::QByteArray));
        Defaults::resetStandard(); // read back from the file
        window = open(QStringLiteral("Framed"));
        QCOMPARE(window->geometry(), wanted);
        QVERIFY(closeAndFlush(window));

        // A layout without an autosave name stores nothing.
        const QString storeFile = Defaults::standard().fileName();
        const QByteArray stored = fileBytes(storeFile);
        window = open(QStringLiteral("Plain"));
        window->setGeometry(QRect(10, 10, 200, 150));
        QVERIFY(closeAndFlush(window));
        QCOMPARE(fileBytes(storeFile), stored);
    }

    void aboutIsOneAtATime()
    {
        for (int opening = 1; opening <= 2; ++opening) {
            QVERIFY(!AboutController::currentInstance());
            AboutController *about = AboutController::instance();
            QVERIFY(!about->window()->isVisible()); // built hidden; the caller shows it
            about->show();
            QCOMPARE(AboutController::instance(), about);
            QVERIFY(about->window()->isVisible());
            QPointer<AboutController> watch = about;
            QVERIFY(about->window()->close());
            QVERIFY(!AboutController::currentInstance());
            QCOMPARE(m_logLines.size(), opening - 1);
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
            QVERIFY(!watch);
            QCOMPARE(m_logLines.last(), QStringLiteral("AboutController Dealloc"));
        }
    }

    void aboutVersionAndPages()
    {
        QFile info(m_resources.filePath(QStringLiteral("Info.ini")));
        QVERIFY(info.open(QIODevice::WriteOnly));
        info.write("CFBundleVersion=240\nCFBundleShortVersionString=2.4\n");
        info.close();
        QCOMPARE(AboutController::versionNumber(), QStringLiteral("240"));
        QVERIFY(info.remove());
        QCOMPARE(AboutController::versionNumber(), QString());

        QList<QUrl> opened;
        bool opens = true;
        AboutController::setUrlOpener([&](const QUrl &url) {
            opened.append(url);
            return opens;
        });
        AboutController *about = AboutController::instance();
        about->window()->findChild<QPushButton *>(QStringLiteral("homePageButton"))->click();
        about->window()->findChild<QPushButton *>(QStringLiteral("licensesButton"))->click();
        opens = false; // a browser that cannot be opened is not reported
        about->showHomePage();
        QCOMPARE(opened, (QList<QUrl>{QUrl(QStringLiteral("http://www.quillonserver.com/quillon")),
                                      QUrl(QStringLiteral("http://www.quillonserver.com/quillon/licenses.html")),
                                      QUrl(QStringLiteral("http://www.quillonserver.com/quillon"))}));
        closeAndFlush(about->window());
    }
};

QTEST_MAIN(TestApp)
#include "tst_app.moc"
