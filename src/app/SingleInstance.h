#pragma once

#include <QObject>
#include <QString>

#include <memory>

class QLocalServer;
class QLockFile;

// One running program per user. The first launch takes a lock file that it
// holds for the life of the process, so that of two launches at the same
// moment only one goes on. It also listens on a local socket, through which
// a later launch asks it to bring its preferences window forward; the socket
// serves only that request: without it the lock still keeps others out.
class SingleInstance : public QObject
{
    Q_OBJECT
public:
    enum Outcome {
        Listening,       // this is the first instance
        AnotherInstance, // another instance runs (see windowShown)
        Failed           // the only instance, but nobody can reach its window
    };

    // $XDG_RUNTIME_DIR/quillon-server.socket, else "quillon-server-<uid>" in
    // the temporary folder.
    static QString defaultName();
    // The lock file beside the socket: $XDG_RUNTIME_DIR/quillon-server.lock,
    // else "quillon-server-<uid>.lock" in the temporary folder.
    static QString defaultLockName();

    explicit SingleInstance(QObject *parent = nullptr);
    ~SingleInstance() override;

    // Takes the lock and listens, or asks the instance that holds it to show
    // its window. A lock or socket left by a program that crashed is taken
    // over.
    Outcome start(const QString &name = defaultName(), const QString &lockName = defaultLockName());

    // After AnotherInstance: whether the running instance confirmed that it
    // shows its preferences window.
    bool windowShown() const { return m_windowShown; }

    // Sends the request to a running instance; true when it confirmed within
    // `timeoutMs`. A connection that cannot be made is tried again for
    // `connectMs`: the instance may be about to listen.
    static bool askRunningInstance(const QString &name, int timeoutMs = 20000, int connectMs = 0);

signals:
    // Another launch wants the preferences window.
    void showPreferencesRequested();

private:
    bool listen(const QString &name);
    void acceptConnections();
    QLocalServer *m_server = nullptr;
    std::unique_ptr<QLockFile> m_lock;
    bool m_windowShown = false;
};
