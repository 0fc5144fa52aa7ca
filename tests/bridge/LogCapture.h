#pragma once

#include "platform/SystemLog.h"

#include <QMutex>
#include <QStringList>

// Collects system log lines (from any thread) while it exists.
class LogCapture
{
public:
    LogCapture()
    {
        SystemLog::setSink([this](const QString &line) {
            QMutexLocker lock(&m_mutex);
            m_lines << line;
        });
    }
    ~LogCapture() { SystemLog::setSink({}); }

    QStringList lines() const
    {
        QMutexLocker lock(&m_mutex);
        return m_lines;
    }
    void clear()
    {
        QMutexLocker lock(&m_mutex);
        m_lines.clear();
    }
    int count(const QString &line) const { return int(lines().count(line)); }
    bool contains(const QString &fragment) const
    {
        for (const QString &line : lines())
            if (line.contains(fragment))
                return true;
        return false;
    }

private:
    mutable QMutex m_mutex;
    QStringList m_lines;
};
