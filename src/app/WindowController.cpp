#include "WindowController.h"

#include "platform/WindowLayouts.h"
#include "platform/Defaults.h"

#include <QCloseEvent>
#include <QCoreApplication>
#include <QMetaMethod>
#include <QWidget>

WindowController::WindowController(const QString &layoutName)
    : m_layoutName(layoutName)
{
    // A window still open when the program ends keeps its frame too.
    if (QCoreApplication *app = QCoreApplication::instance()) {
        connect(app, &QCoreApplication::aboutToQuit, this, [this] {
            if (m_window && !m_closed)
                saveFrame();
        });
    }
}

WindowController::~WindowController()
{
    if (m_deallocTarget && m_deallocCall)
        m_deallocCall();
    if (m_window) {
        m_window->removeEventFilter(this);
        delete m_window;
    }
}

void WindowController::onDeallocCallTarget(QObject *target, std::function<void()> call)
{
    m_deallocTarget = target;
    m_deallocCall = std::move(call);
}

QWidget *WindowController::window()
{
    if (m_window || m_closed)
        return m_window;
    auto *window = new QWidget(nullptr, Qt::Window);
    if (!WindowLayouts::buildForm(m_layoutName, window)) {
        delete window;
        return nullptr;
    }
    m_window = window;
    m_mainController = WindowLayouts::createController(m_layoutName, window);
    windowDidLoad();
    return m_window;
}

QString WindowController::frameKey(const QString &autosaveName)
{
    return QStringLiteral("WindowFrame ") + autosaveName;
}

void WindowController::windowDidLoad()
{
    m_window->installEventFilter(this);
    m_autosaveName = m_window->property("frameAutosaveName").toString();
    if (m_autosaveName.isEmpty())
        return; // placement is left to the window manager
    const QVariant saved = Defaults::standard().objectForKey(frameKey(m_autosaveName));
    if (saved.typeId() == QMetaType::QByteArray)
        m_window->restoreGeometry(saved.toByteArray());
}

void WindowController::showWindow()
{
    QWidget *w = window();
    if (!w)
        return;
    if (w->windowState() & Qt::WindowMinimized)
        w->setWindowState(w->windowState() & ~Qt::WindowMinimized);
    w->show();
    w->raise();
    w->activateWindow();
}

void WindowController::saveFrame() const
{
    if (m_window && !m_autosaveName.isEmpty())
        Defaults::standard().setObject(m_window->saveGeometry(), frameKey(m_autosaveName));
}

bool WindowController::windowShouldClose()
{
    QObject *controller = m_mainController;
    if (!controller)
        return true;
    const QMetaObject *meta = controller->metaObject();
    const int index = meta->indexOfMethod("windowShouldClose(QWidget*)");
    if (index < 0 || meta->method(index).returnType() != QMetaType::Bool)
        return true;
    bool answer = true;
    meta->method(index).invoke(controller, Qt::DirectConnection, Q_RETURN_ARG(bool, answer),
                               Q_ARG(QWidget *, m_window));
    return answer;
}

void WindowController::windowWillClose()
{
    QObject *controller = m_mainController;
    if (!controller)
        return;
    const QMetaObject *meta = controller->metaObject();
    const int index = meta->indexOfMethod("windowWillClose(QWidget*)");
    if (index >= 0)
        meta->method(index).invoke(controller, Qt::DirectConnection, Q_ARG(QWidget *, m_window));
}

bool WindowController::eventFilter(QObject *watched, QEvent *event)
{
    if (watched != m_window || event->type() != QEvent::Close)
        return QObject::eventFilter(watched, event);
    if (m_closed)
        return false;
    if (!windowShouldClose()) {
        event->ignore();
        return true;
    }
    m_closed = true;
    saveFrame();
    windowWillClose();
    // Deleted once the close has been handled, never re-used.
    deleteLater();
    return false;
}
