#include "platform/SaveFailures.h"

#include "platform/SystemLog.h"

SaveFailures &SaveFailures::instance()
{
    static SaveFailures failures;
    return failures;
}

void SaveFailures::saved(const QString &fileName)
{
    SaveFailures &self = instance();
    if (self.m_failing.remove(fileName))
        emit self.changed();
}

void SaveFailures::failed(const QString &fileName, const QString &reason)
{
    SaveFailures &self = instance();
    if (!self.m_logged.contains(fileName)) {
        self.m_logged.insert(fileName);
        // Once per file: a failing folder would otherwise log on every change.
        systemLog(QStringLiteral("Can't save %1%2")
                      .arg(fileName, reason.isEmpty() ? QString() : QStringLiteral(": ") + reason));
    }
    if (!self.m_failing.contains(fileName)) {
        self.m_failing.insert(fileName);
        emit self.changed();
    }
}

QString SaveFailures::message() const
{
    return any() ? tr("Settings cannot be saved") : QString();
}
