#pragma once

#include <QObject>
#include <QPointer>
#include <QString>
#include <functional>

class QWidget;

// Opens one window of a named layout (see WindowLayouts) and owns itself once
// created: when its window closes it deletes itself, and when it is deleted it
// tells its opener through the dealloc callback, so that the opener forgets
// its pointer and builds a fresh controller next time.
//
// The window's own controller object (`mainController`) is asked before the
// window closes and told when it does, if it declares
//     Q_INVOKABLE bool windowShouldClose(QWidget *window);
//     Q_INVOKABLE void windowWillClose(QWidget *window);
// Either may be missing; closing is then allowed and nothing is told.
//
// A window whose form sets the property "frameAutosaveName" reopens with the
// geometry it had when it last closed, kept in the defaults store under
// "WindowFrame <name>".
class WindowController : public QObject
{
    Q_OBJECT
public:
    explicit WindowController(const QString &layoutName);
    ~WindowController() override;

    QString layoutName() const { return m_layoutName; }

    // Replaces any earlier registration. The target is not owned; if it is
    // destroyed first, nothing is called.
    void onDeallocCallTarget(QObject *target, std::function<void()> call);
    template<class T>
    void onDeallocCallTarget(T *target, void (T::*selector)())
    {
        onDeallocCallTarget(target, [target, selector] { (target->*selector)(); });
    }

    // The window, built from the layout on first use; nullptr for an unknown
    // layout.
    QWidget *window();
    bool isWindowLoaded() const { return m_window != nullptr; }

    // The window's controller object, present once the window is loaded and
    // a controller is bound to the layout.
    QObject *mainController() const { return m_mainController; }

    QString windowFrameAutosaveName() const { return m_autosaveName; }

    // Shows the window, restores it when minimised, raises it and gives it
    // the focus.
    void showWindow();

    static QString frameKey(const QString &autosaveName);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void windowDidLoad();
    bool windowShouldClose();
    void windowWillClose();
    void saveFrame() const;

    QString m_layoutName;
    QString m_autosaveName;
    QWidget *m_window = nullptr;
    QPointer<QObject> m_mainController;
    QPointer<QObject> m_deallocTarget;
    std::function<void()> m_deallocCall;
    bool m_closed = false;
};
