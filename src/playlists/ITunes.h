#pragma once

#include "playlists/Playlist.h"

#include <QObject>
#include <QPointer>
#include <QProcess>
#include <functional>
#include <optional>

// Lists the user's iTunes playlists by running the server jar's
// "getPlaylists" command in a separate Java process. One load per loader:
// create it without a parent, set the callback, call loadPlaylists(). The
// loader lives until the answer has been delivered on the main thread, then
// deletes itself.
class ITunes : public QObject
{
    Q_OBJECT

public:
    // Receives the tree, or nothing when the process printed no playlist
    // document or could not be started.
    using Callback = std::function<void(const std::optional<QList<Playlist>> &playlists)>;

    explicit ITunes(QObject *parent = nullptr);
    ~ITunes() override;

    void setCallback(Callback callback) { m_callback = std::move(callback); }

    // Starts the process and returns at once. There is no time limit: a
    // process that never ends never answers.
    void loadPlaylists();

signals:
    // Emitted with the same value just before the callback runs.
    void playlistsLoaded(const std::optional<QList<Playlist>> &playlists);

private:
    void processFinished();
    void launchFailed(const QString &reason);
    void deliver(const std::optional<QList<Playlist>> &playlists);

    Callback m_callback;
    QPointer<QProcess> m_process;
    bool m_started = false;
    bool m_delivered = false;
};
