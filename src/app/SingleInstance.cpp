#include "SingleInstance.h"

#include "platform/SystemLog.h"

#include <QDir>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <QTimer>

#include <unistd.h>

namespace {

const QByteArray kShowRequest = "show\n";
const QByteArray kAcknowledge = "ok\n";
// Requests are one short line; anything longer is not ours.
const qint64 kMaxRequest = 64;
const int kIdleConnectionMs = 5000;

}

QString SingleInstance::defaultName()
{
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (!runtime.isEmpty() && QDir::isAbsolutePath(runtime) && QFileInfo(runtime).isDir())
        return QDir(runtime).filePath(QStringLiteral("quillon-server.socket"));
    return QStringLiteral("quillon-server-%1").arg(::getuid());
}

SingleInstance::SingleInstance(QObject *parent)
    : QObject(parent)
{
}

SingleInstance::~SingleInstance() = default;

bool SingleInstance::askRunningInstance(const QString &name, int timeoutMs)
{
    QLocalSocket socket;
    socket.connectToServer(name);
    if (!socket.waitForConnected(1000))
        return false; // nobody listens: no socket, or one left by a crash
    socket.write(kShowRequest);
    if (!socket.waitForBytesWritten(1000))
        return false;
    // The running instance may be busy starting its server; it answers once
    // its event loop runs. Its accepting the connection is what counts.
    QByteArray answer;
    while (!answer.contains('\n') && socket.waitForReadyRead(timeoutMs))
        answer += socket.readAll();
    if (answer != kAcknowledge)
        systemLog(QStringLiteral("The running Quillon Server did not confirm the request"));
    return true;
}

SingleInstance::Outcome SingleInstance::start(const QString &name)
{
    if (askRunningInstance(name))
        return AnotherInstance;

    m_server = new QLocalServer(this);
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    connect(m_server, &QLocalServer::newConnection, this, &SingleInstance::acceptConnections);
    if (m_server->listen(name))
        return Listening;
    if (m_server->serverError() == QAbstractSocket::AddressInUseError) {
        // Another launch may have won the race since we asked.
        if (askRunningInstance(name))
            return AnotherInstance;
        QLocalServer::removeServer(name); // left behind by a crash
        if (m_server->listen(name))
            return Listening;
    }
    systemLog(QStringLiteral("Cannot listen for other launches on %1: %2").arg(name, m_server->errorString()));
    return Failed;
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
