#pragma once

#include <QObject>
#include <QSet>
#include <QString>

// The files this run could not save (the settings file, the folder files).
// The first failure of each file is one line in the system log; while the
// last save of any of them failed, the tray tells the user that settings
// cannot be saved. Main thread only.
class SaveFailures : public QObject
{
    Q_OBJECT
public:
    static SaveFailures &instance();

    static void saved(const QString &fileName);
    // `reason` ends the log line when it is not empty.
    static void failed(const QString &fileName, const QString &reason = QString());

    // Files whose last save failed.
    QSet<QString> files() const { return m_failing; }
    bool any() const { return !m_failing.isEmpty(); }
    // "" when every save went through.
    QString message() const;

signals:
    void changed();

private:
    QSet<QString> m_failing;
    QSet<QString> m_logged;
};
