#pragma once

#include <QString>
#include <functional>

class QObject;
class QWidget;

// The window layouts by name ("Main", "Playlists", ...), the stand-in for
// loading a named layout. A layout is two things: a form that fills a fresh
// top-level widget with its children, and an optional factory for the
// window's own controller object. Both are registered at start-up by whoever
// owns them (the shell composes), so that this registry knows none of them.
namespace WindowLayouts {

// Fills `window` (an empty top-level QWidget) with the layout's widgets. A
// form that wants its frame remembered sets the dynamic property
// "frameAutosaveName" on the window.
using Form = std::function<void(QWidget *window)>;

// Creates the window's controller object once the form is built. The result
// should be a child of `window`, so that it goes away with the window.
using ControllerFactory = std::function<QObject *(QWidget *window)>;

// Adds or replaces a form. An empty function removes the registration.
void registerForm(const QString &name, Form form);

// Binds (or, with an empty function, unbinds) the controller of a layout.
void registerController(const QString &name, ControllerFactory factory);

bool hasForm(const QString &name);

// Builds the named form into `window`; false when no such layout exists.
bool buildForm(const QString &name, QWidget *window);

// The layout's controller for a built window, or nullptr when none is bound.
QObject *createController(const QString &name, QWidget *window);

}
