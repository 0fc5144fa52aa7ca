#include "WindowLayouts.h"

#include "StatusGlyph.h"
#include "ui_ChangePassword.h"
#include "ui_CloseWarning.h"
#include "ui_Main.h"

#include <QDialog>
#include <QHash>
#include <QLabel>
#include <QPixmap>

namespace {

struct Registry {
    QHash<QString, WindowLayouts::Form> forms;
    QHash<QString, WindowLayouts::ControllerFactory> controllers;
};

Registry &registry()
{
    static Registry r;
    return r;
}

// The preferences window with its two sheets. The sheets are window-modal
// dialogs owned by the window, found by their object names "closeSheet" and
// "changePasswordSheet".
void buildMain(QWidget *window)
{
    Ui::Main main;
    main.setupUi(window);
    window->setWindowIcon(QPixmap::fromImage(StatusGlyph::appIcon(64)));

    auto *closeSheet = new QDialog(window);
    Ui::CloseWarning closeWarning;
    closeWarning.setupUi(closeSheet);
    closeSheet->setWindowModality(Qt::WindowModal);
    closeWarning.closeWarningIcon->setPixmap(QPixmap::fromImage(StatusGlyph::appIcon(48)));

    auto *passwordSheet = new QDialog(window);
    Ui::ChangePassword changePassword;
    changePassword.setupUi(passwordSheet);
    passwordSheet->setWindowModality(Qt::WindowModal);
}

WindowLayouts::Form builtInForm(const QString &name)
{
    if (name == QLatin1String("Main"))
        return buildMain;
    return {};
}

}

void WindowLayouts::registerForm(const QString &name, Form form)
{
    if (form)
        registry().forms.insert(name, std::move(form));
    else
        registry().forms.remove(name);
}

void WindowLayouts::registerController(const QString &name, ControllerFactory factory)
{
    if (factory)
        registry().controllers.insert(name, std::move(factory));
    else
        registry().controllers.remove(name);
}

bool WindowLayouts::hasForm(const QString &name)
{
    return registry().forms.contains(name) || builtInForm(name);
}

bool WindowLayouts::buildForm(const QString &name, QWidget *window)
{
    if (!window)
        return false;
    Form form = registry().forms.value(name);
    if (!form)
        form = builtInForm(name);
    if (!form)
        return false;
    form(window);
    return true;
}

QObject *WindowLayouts::createController(const QString &name, QWidget *window)
{
    const ControllerFactory factory = registry().controllers.value(name);
    return factory && window ? factory(window) : nullptr;
}
