#include "remote/RemoteController.h"

#include "bridge/JNIServer.h"
#include "preferences/TabPage.h"
#include "platform/DelayedCall.h"
#include "ui_RemotePage.h"

#include <QMessageBox>
#include <QPushButton>

RemoteController::RemoteController(QWidget *content)
    : QObject(content)
    , m_ui(new Ui::RemotePage)
{
    m_page = new QWidget(content);
    m_ui->setupUi(m_page);
    addTabPage(content, m_page);

    connect(this, &RemoteController::stateChanged, m_page, [this] { showState(); });
    connect(this, &RemoteController::testConnectionEnabledChanged, m_ui->testConnectionButton, &QWidget::setEnabled);
    connect(m_ui->retryButton, &QPushButton::clicked, this, &RemoteController::retry);
    connect(m_ui->testConnectionButton, &QPushButton::clicked, this, &RemoteController::testConnection);
    m_ui->testConnectionButton->setEnabled(m_testConnectionEnabled);
    showState();
}

RemoteController::~RemoteController()
{
    // Only give up the bridge's callbacks if a newer page has not taken them.
    JNIServer *server = JNIServer::instance();
    if (server && server->target() == this) {
        server->setTarget(nullptr);
        server->setUpdateSelector({});
        server->setConnectionTestEndedSelector({});
    }
    DelayedCall::cancelAll(this);
    delete m_ui;
}

void RemoteController::awakeFromNib()
{
    update();
    if (JNIServer *server = JNIServer::instance()) {
        server->setTarget(this);
        server->setUpdateSelector([this] { update(); });
        server->setConnectionTestEndedSelector([this](bool passed) { connectionTestEnded(passed); });
    }
}

void RemoteController::setState(const std::optional<RemoteManagerState> &state)
{
    m_state = state;
    emit stateChanged();
}

void RemoteController::setTestConnectionEnabled(bool enabled)
{
    if (enabled == m_testConnectionEnabled)
        return;
    m_testConnectionEnabled = enabled;
    emit testConnectionEnabledChanged(enabled);
}

void RemoteController::setTestConnectionEnabled()
{
    setTestConnectionEnabled(true);
}

void RemoteController::update()
{
    JNIServer *server = JNIServer::instance();
    setState(server ? server->getRemoteManagerState() : std::nullopt);
    DelayedCall::cancelAll(this);
    if (m_state && m_state->testConnectionVisible())
        DelayedCall::perform(this, kTestConnectionDelayMs, [this] { setTestConnectionEnabled(); });
    else
        setTestConnectionEnabled(false);
}

void RemoteController::connectionTestEnded(bool passed)
{
    QWidget *parent = m_page ? m_page->window() : nullptr;
    // The alert may outlive its parent window while its event loop runs.
    QPointer<QMessageBox> alert = new QMessageBox(parent);
    alert->setIcon(passed ? QMessageBox::Information : QMessageBox::Warning);
    alert->setWindowTitle(QStringLiteral("Quillon Server"));
    alert->setText(passed ? QStringLiteral("Connection Test Passed") : QStringLiteral("Connection Test Failed"));
    alert->setInformativeText(passed ? QStringLiteral("Your Quillon Server instance is accessible from internet.")
                                     : QStringLiteral("Your Quillon Server instance is NOT accessible from internet."));
    alert->setTextFormat(Qt::PlainText);
    alert->addButton(QStringLiteral("Continue"), QMessageBox::AcceptRole);
    alert->exec();
    delete alert.data();
}

void RemoteController::retry()
{
    if (JNIServer *server = JNIServer::instance())
        server->retry();
}

void RemoteController::testConnection()
{
    if (JNIServer *server = JNIServer::instance())
        server->testConnection();
}

void RemoteController::showState()
{
    const RemoteManagerState shown = m_state.value_or(RemoteManagerState());
    m_ui->serverPinField->setText(shown.serverPin());
    m_ui->messageField->setText(shown.message());
    m_ui->portField->setText(m_state ? QString::number(shown.port()) : QString());
    m_ui->retryButton->setVisible(shown.retryVisible());
    m_ui->testConnectionButton->setVisible(shown.testConnectionVisible());
    m_ui->progressIndicator->setVisible(shown.inProgress());
}
