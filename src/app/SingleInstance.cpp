#include "SingleInstance.h"

#include "platform/SystemLog.h"

#include <QDir>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <QLockFile>
#include <QThread>
#include <QTimer>

#include <unistd.h>

namespace {

const QByteArray kShowRequest = "show\n";
const QByteArray kAcknowledge = "ok\n";
// Requests are one short line; anything longer is not ours.
const qint64 kMaxRequest = 64;
const int kIdleConnectionMs = 5000;

}

namespace {
QString runtimeFolder()
{
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (!runtime.isEmpty() && QDir::isAbsolutePath(runtime) && QFileInfo(runtime).isDir())
        return runtime;
    return QString();
}
}

QString SingleInstance::defaultName()
{
    const QString runtime = runtimeFolder();
    if (!runtime.isEmpty())
        return QDir(runtime).filePath(QStringLiteral("quillon-server.socket"));
    return QStringLiteral("quillon-server-%1").arg(::getuid());
}

QString SingleInstance::defaultLockName()
{
    const QString runtime = runtimeFolder();
    if (!runtime.isEmpty())
        return QDir(runtime).filePath(QStringLiteral("quillon-server.lock"));
    return QDir(QDir::tempPath()).filePath(QStringLiteral("quillon-server-%1.lock").arg(::getuid()));
}

SingleInstance::SingleInstance(QObject *parent)
    : QObject(parent)
{
}

SingleInstance::~SingleInstance() = default;

bool SingleInstance::askRunningInstance(const QString &name, int timeoutMs, int connectMs)
{
    QLocalSocket socket;
    QDeadlineTimer connectDeadline(connectMs);
    for (;;) {
        socket.connectToServer(name);
        if (socket.waitForConnected(1000))
            break;
        if (connectDeadline.hasExpired())
            return false; // nobody listens: no socket, or one left by a crash
        socket.abort();
        QThread::msleep(100);
    }
    socket.write(kShowRequest);
    if (!socket.waitForBytesWritten(1000))
        return false;
    // The running instance may be busy starting its server; it answers once
    // its event loop runs.
    QByteArray answer;
    QDeadlineTimer deadline(timeoutMs);
    while (!answer.contains('\n') && socket.waitForReadyRead(int(qMax<qint64>(1, deadline.remainingTime()))))
        answer += socket.readAll();
    return answer == kAcknowledge;
}

SingleInstance::Outcome SingleInstance::start(const QString &name, const QString &lockName)
{
    m_lock = std::make_unique<QLockFile>(lockName);
    m_lock->setStaleLockTime(0); // stale only when its process is gone, however old
    if (!m_lock->tryLock(0)) {
        if (m_lock->error() == QLockFile::LockFailedError) {
            // Held by a running instance, which listens from the moment it
            // has the lock: a few seconds to reach it, more to answer (it
            // answers once its start-up is over).
            m_windowShown = askRunningInstance(name, 20000, 3000);
            return AnotherInstance;
        }
        // No lock to be had (an unwritable folder): the socket alone guards.
        systemLog(QStringLiteral("Cannot take the lock file %1; only the socket keeps a second launch out")
                      .arg(lockName));
        m_lock.reset();
        if (askRunningInstance(name, 20000)) {
            m_windowShown = true;
            return AnotherInstance;
        }
    }
    return listen(name) ? Listening : Failed;
}

bool SingleInstance::listen(const QString &name)
{
    m_server = new QLocalServer(this);
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    connect(m_server, &QLocalServer::newConnection, this, &SingleInstance::acceptConnections);
    // With the lock held, a socket already there was left by a crash.
    if (m_lock)
        QLocalServer::removeServer(name);
    if (m_server->listen(name))
        return true;
    systemLog(QStringLiteral("Cannot listen for other launches on %1: %2").arg(name, m_server->errorString()));
    return false;
}

void SingleInstance::acceptConnections()
{
    while (QLocalSocket *socket = m_server->nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        QTimer::singleShot(kIdleConnectionMs, socket, [socket] { socket->abort(); socket->deleteLater(); });
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
            if (!socket->canReadLine()) {
                if (socket->bytesAvailable() > kMaxRequest)
                    socket->abort();
                return;
            }
            const QByteArray line = socket->readLine(kMaxRequest + 1);
            if (line == kShowRequest) {
                systemLog(QStringLiteral("Preferences window requested by another launch"));
                socket->write(kAcknowledge);
                socket->flush();
                emit showPreferencesRequested();
            }
            socket->disconnectFromServer();
        });
    }
}
