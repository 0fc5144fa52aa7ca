#include "platform/SystemLog.h"

#include <QMutex>
#include <cstdio>

namespace {
QMutex &sinkMutex()
{
    static QMutex mutex;
    return mutex;
}
SystemLog::Sink &currentSink()
{
    static SystemLog::Sink sink;
    return sink;
}
}

void systemLog(const QString &line)
{
    QMutexLocker lock(&sinkMutex());
    if (currentSink()) {
        currentSink()(line);
        return;
    }
    const QByteArray bytes = line.toUtf8() + '\n';
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stderr);
    std::fflush(stderr);
}

void SystemLog::setSink(Sink sink)
{
    QMutexLocker lock(&sinkMutex());
    currentSink() = std::move(sink);
}
