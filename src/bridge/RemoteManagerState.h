#pragma once

#include <QString>

// Snapshot of the Java remote-access manager. The texts are null when Java
// returned null.
class RemoteManagerState
{
public:
    QString serverPin() const { return m_serverPin; }
    void setServerPin(const QString &pin) { m_serverPin = pin; }
    QString message() const { return m_message; }
    void setMessage(const QString &message) { m_message = message; }
    bool retryVisible() const { return m_retryVisible; }
    void setRetryVisible(bool visible) { m_retryVisible = visible; }
    bool testConnectionVisible() const { return m_testConnectionVisible; }
    void setTestConnectionVisible(bool visible) { m_testConnectionVisible = visible; }
    bool inProgress() const { return m_inProgress; }
    void setInProgress(bool inProgress) { m_inProgress = inProgress; }
    int port() const { return m_port; }
    void setPort(int port) { m_port = port; }

private:
    QString m_serverPin;
    QString m_message;
    bool m_retryVisible = false;
    bool m_testConnectionVisible = false;
    bool m_inProgress = false;
    int m_port = 0;
};
