#pragma once

#include <QObject>
#include <QString>

class QLocalServer;

// One running program per user. The first launch listens on a local socket;
// a later launch finds it there, asks it to bring its preferences window
// forward and ends, so that no second server is started.
class SingleInstance : public QObject
{
    Q_OBJECT
public:
    enum Outcome {
        Listening,       // this is the first instance
        AnotherInstance, // a running instance was asked to show itself
        Failed           // could not listen; the program runs unguarded
    };

    // $XDG_RUNTIME_DIR/quillon-server.socket, else "quillon-server-<uid>" in
    // the temporary folder.
    static QString defaultName();

    explicit SingleInstance(QObject *parent = nullptr);
    ~SingleInstance() override;

    // Asks a running instance, else listens. A socket left behind by a
    // program that crashed answers nobody and is replaced.
    Outcome start(const QString &name = defaultName());

    // Sends the request to a running instance; true when one accepted the
    // connection. Waits up to `timeoutMs` for it to confirm.
    static bool askRunningInstance(const QString &name, int timeoutMs = 5000);

signals:
    // Another launch wants the preferences window.
    void showPreferencesRequested();

private:
    void acceptConnections();
    QLocalServer *m_server = nullptr;
};
