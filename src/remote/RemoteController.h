#pragma once

#include "bridge/RemoteManagerState.h"

#include <QObject>
#include <QPointer>
#include <QWidget>

#include <optional>

namespace Ui {
class RemotePage;
}

// The remote-access page of the preferences window. Keeps the latest
// snapshot of the Java remote manager for the page, decides when the
// connection test may be used, forwards the page's two buttons to Java and
// tells the user how a connection test ended. Once awake it is the bridge's
// one receiver of Java's callbacks, until it is destroyed.
class RemoteController : public QObject
{
    Q_OBJECT
    Q_PROPERTY(std::optional<RemoteManagerState> state READ state WRITE setState NOTIFY stateChanged)
    Q_PROPERTY(bool testConnectionEnabled READ testConnectionEnabled WRITE setTestConnectionEnabled
                   NOTIFY testConnectionEnabledChanged)

public:
    // Builds the page into `content` and lives as its child.
    explicit RemoteController(QWidget *content);
    ~RemoteController() override;

    // Shows the current state, then registers with the bridge.
    void awakeFromNib();

    const std::optional<RemoteManagerState> &state() const { return m_state; }
    void setState(const std::optional<RemoteManagerState> &state);

    bool testConnectionEnabled() const { return m_testConnectionEnabled; }
    void setTestConnectionEnabled(bool enabled);
    // The delayed step of update(): the state has offered the test long enough.
    void setTestConnectionEnabled();

    QWidget *page() const { return m_page; }

    // How long the state must keep offering the test before it can be used.
    static constexpr int kTestConnectionDelayMs = 500;

public slots:
    // Re-reads the state and re-times the test button.
    void update();
    // Shows a modal alert with the outcome of a connection test.
    void connectionTestEnded(bool passed);
    void retry();
    void testConnection();

signals:
    void stateChanged();
    void testConnectionEnabledChanged(bool enabled);

private:
    void showState();

    Ui::RemotePage *m_ui = nullptr;
    QPointer<QWidget> m_page;
    std::optional<RemoteManagerState> m_state;
    bool m_testConnectionEnabled = false;
};
