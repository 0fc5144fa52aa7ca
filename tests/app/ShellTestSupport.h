#pragma once

#include "WindowController.h"
#include "platform/Defaults.h"

#include <QApplication>
#include <QPointer>
#include <QTemporaryDir>
#include <QWidget>
#include <QtTest>

// Points HOME and XDG_CONFIG_HOME into `home`, so that neither the defaults
// nor the server's application folder touch the real ones. Called before
// anything reads the defaults or creates the JVM.
inline bool useTestHome(const QTemporaryDir &home)
{
    qputenv("HOME", QFile::encodeName(home.path()));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(home.filePath(QStringLiteral("config"))));
    Defaults::resetStandard();
    return home.isValid();
}

inline const QString kPreferencesTitle = QStringLiteral("Quillon Server Preferences");

// The visible top-level windows with this title.
inline QList<QWidget *> visibleWindows(const QString &title)
{
    QList<QWidget *> found;
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (widget->isVisible() && widget->windowTitle() == title)
            found << widget;
    }
    return found;
}

// Closes a preferences window past the close warning, leaving the stored
// wish as it was, and waits until its controller is gone.
inline bool closePreferences(WindowController *controller)
{
    if (!controller)
        return true;
    QPointer<WindowController> watch = controller;
    const QString skipKey = QStringLiteral("skipCloseWarning");
    const QVariant skip = Defaults::standard().objectForKey(skipKey);
    Defaults::standard().setBool(true, skipKey);
    controller->window()->close();
    const bool gone = QTest::qWaitFor([&] { return watch.isNull(); }, 3000);
    Defaults::standard().setObject(skip, skipKey);
    return gone;
}
