#include "platform/WindowLayouts.h"

#include <QHash>

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
    return registry().forms.contains(name);
}

bool WindowLayouts::buildForm(const QString &name, QWidget *window)
{
    if (!window)
        return false;
    const Form form = registry().forms.value(name);
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
