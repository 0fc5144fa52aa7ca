#pragma once

#include "platform/Defaults.h"

#include <QApplication>
#include <QDir>
#include <QTemporaryDir>
#include <QWidget>

// A home and configuration folder of the test's own, so that neither the
// defaults nor the server's application folder touch the real ones. Set up
// before anything reads the defaults or creates the JVM.
class TestHome
{
public:
    bool setUp()
    {
        if (!m_dir.isValid())
            return false;
        qputenv("HOME", QFile::encodeName(m_dir.path()));
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_dir.filePath(QStringLiteral("config"))));
        Defaults::resetStandard();
        return true;
    }
    QString filePath(const QString &name) const { return m_dir.filePath(name); }

private:
    QTemporaryDir m_dir;
};

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
