#include "playlists/ITunes.h"

#include "platform/Resources.h"
#include "platform/SystemLog.h"

#include <QTimer>

namespace {
const QString kJava = QStringLiteral("/usr/bin/java");
}

ITunes::ITunes(QObject *parent)
    : QObject(parent)
{
}

ITunes::~ITunes() = default;

void ITunes::loadPlaylists()
{
    if (m_started)
        return;
    m_started = true;

    const QString jar = Resources::pathForResource(QStringLiteral("QuillonServer"), QStringLiteral("jar"));
    if (jar.isEmpty()) {
        launchFailed(QStringLiteral("Couldn't find QuillonServer.jar in %1").arg(Resources::folder()));
        return;
    }

    m_process = new QProcess(this);
    m_process->setProgram(kJava);
    m_process->setArguments({QStringLiteral("-jar"), jar, QStringLiteral("getPlaylists")});
    m_process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_process->setInputChannelMode(QProcess::ForwardedInputChannel);

    // The answer is whatever was printed; the exit status does not matter.
    // QProcess reports the end of the output together with the end of the
    // process, so that is when the answer comes.
    connect(m_process, &QProcess::finished, this, &ITunes::processFinished);
    connect(m_process, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart)
            launchFailed(QStringLiteral("Couldn't launch %1: %2").arg(kJava, m_process->errorString()));
    });
    m_process->start();
}

void ITunes::processFinished()
{
    if (m_delivered || !m_process)
        return;
    const QByteArray output = m_process->readAllStandardOutput();
    deliver(Playlist::fromJSONString(QString::fromUtf8(output)));
}

void ITunes::launchFailed(const QString &reason)
{
    systemLog(reason);
    // Answered later, never from inside loadPlaylists(): the caller may not
    // be ready for the answer before that call has returned.
    QTimer::singleShot(0, this, [this] { deliver(std::nullopt); });
}

void ITunes::deliver(const std::optional<QList<Playlist>> &playlists)
{
    if (m_delivered)
        return;
    m_delivered = true;
    emit playlistsLoaded(playlists);
    if (m_callback)
        m_callback(playlists);
    deleteLater();
}
