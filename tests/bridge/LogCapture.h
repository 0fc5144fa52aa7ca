#pragma once

#include "platform/SystemLog.h"

#include <QMutex>
#include <QStringList>

// Collects system log lines (from any thread) while it exists.
class LogCapture
{
public:
    LogCapture() { SystemLog::setSink([this](const QString &line) { QMutexLocker lock(&m_mutex); m_lines << line; }); }
    ~LogCapture() { SystemLog::setSink({}); }

    QStringList lines() const { QMutexLocker lock(&m_mutex); return m_lines; }
    QString text() const { return lines().join(QLatin1Char('\n')); }
    void clear() { QMutexLocker lock(&m_mutex); m_lines.clear(); }
    int count(const QString &line) const { return int(lines().count(line)); }
    bool contains(const QString &fragment) const { return !lines().filter(fragment).isEmpty(); }

private:
    mutable QMutex m_mutex;
    QStringList m_lines;
};
