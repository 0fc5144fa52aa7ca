#include "conversion/ConversionController.h"

#include "ui_ConversionPage.h"

#include "app/WindowController.h"
#include "bridge/JNIServer.h"
#include "platform/DelayedCall.h"
#include "platform/SystemLog.h"
#include "preferences/TabPage.h"

#include <QHash>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QTableView>

#include <algorithm>
#include <cmath>

namespace {
constexpr int kPollIntervalMs = 1000;
}

ConversionQueueModel::ConversionQueueModel(ConversionController *controller, QObject *parent)
    : QAbstractTableModel(parent)
    , m_controller(controller)
{
}

void ConversionQueueModel::reloadData()
{
    QList<Row> fresh;
    const int rows = m_controller->numberOfRowsInTableView();
    fresh.reserve(rows);
    QHash<QString, int> wanted;
    for (int row = 0; row < rows; ++row) {
        const QString name = m_controller->tableViewObjectValue(0, row);
        const QString id = m_controller->tableViewItemId(row);
        fresh.append({id.isNull() ? QLatin1Char('\n') + name : id, name});
        ++wanted[fresh.last().key];
    }
    // Rows whose item left the queue go first...
    QHash<QString, int> kept;
    for (int row = 0; row < m_rows.size();) {
        if (kept[m_rows[row].key]++ < wanted.value(m_rows[row].key)) {
            ++row;
            continue;
        }
        beginRemoveRows(QModelIndex(), row, row);
        m_rows.removeAt(row);
        endRemoveRows();
    }
    // ...then each place takes its item, moved up from further down or new.
    for (int row = 0; row < fresh.size(); ++row) {
        int from = row;
        while (from < m_rows.size() && m_rows[from].key != fresh[row].key)
            ++from;
        if (from == m_rows.size()) {
            beginInsertRows(QModelIndex(), row, row);
            m_rows.insert(row, fresh[row]);
            endInsertRows();
            continue;
        }
        if (from != row) {
            beginMoveRows(QModelIndex(), from, from, QModelIndex(), row);
            m_rows.move(from, row);
            endMoveRows();
        }
        if (m_rows[row].name != fresh[row].name) {
            m_rows[row].name = fresh[row].name;
            emit dataChanged(index(row, 0), index(row, 0));
        }
    }
}

int ConversionQueueModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_rows.size());
}

int ConversionQueueModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : 1;
}

QVariant ConversionQueueModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= m_rows.size() || (role != Qt::DisplayRole && role != Qt::ToolTipRole))
        return QVariant();
    return m_rows.at(index.row()).name;
}

QVariant ConversionQueueModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation == Qt::Horizontal && section == 0 && role == Qt::DisplayRole)
        return tr("Name");
    return QAbstractTableModel::headerData(section, orientation, role);
}

Qt::ItemFlags ConversionQueueModel::flags(const QModelIndex &index) const
{
    return index.isValid() ? Qt::ItemIsEnabled | Qt::ItemIsSelectable : Qt::NoItemFlags;
}

ConversionController::ConversionController(QWidget *content)
    : QObject(content)
    , m_ui(new Ui::ConversionPage)
{
    m_page = new QWidget(content);
    m_ui->setupUi(m_page);
    if (content) {
        addTabPage(content, m_page);
    } else {
        m_ownsPage = true;
    }
    m_queueModel = new ConversionQueueModel(this, m_ui->queueTableView);
    m_ui->queueTableView->setModel(m_queueModel);
}

ConversionController::~ConversionController()
{
    systemLog(QStringLiteral("ConversionController dealloc"));
    DelayedCall::cancelAll(this);
    releaseConversionLogWindowController();
    if (m_ownsPage)
        delete m_page.data();
    delete m_ui;
}

void ConversionController::awakeFromNib()
{
    if (m_awake || !m_page)
        return;
    m_awake = true;
    connect(this, &ConversionController::currentlyConvertingChanged, m_ui->currentlyConvertingLabel,
            [this] { m_ui->currentlyConvertingLabel->setText(m_currentlyConverting); });
    connect(this, &ConversionController::estimatedTimeChanged, m_ui->estimatedTimeLabel,
            [this] { m_ui->estimatedTimeLabel->setText(m_estimatedTime); });
    connect(this, &ConversionController::conversionInProgressChanged, m_page, [this] { updateStateLabel(); });
    connect(this, &ConversionController::pausedChanged, m_page, [this] { updateStateLabel(); });
    connect(m_ui->resetButton, &QPushButton::clicked, this, &ConversionController::resetConverterQueue);

    m_ui->currentlyConvertingLabel->setText(m_currentlyConverting);
    m_ui->estimatedTimeLabel->setText(m_estimatedTime);
    updateStateLabel();
}

void ConversionController::updateStateLabel()
{
    if (!m_page)
        return;
    // The last file's details stay readable, greyed, once the converter is idle.
    for (QWidget *detail : {static_cast<QWidget *>(m_ui->currentlyConvertingLabel),
                            static_cast<QWidget *>(m_ui->progressIndicator),
                            static_cast<QWidget *>(m_ui->estimatedTimeLabel)})
        detail->setEnabled(m_conversionInProgress);
    m_ui->stateLabel->setText(!m_conversionInProgress ? tr("No conversion in progress")
                              : m_paused              ? tr("Paused")
                                                      : tr("Converting"));
}

void ConversionController::onShow()
{
    m_visible = true;
    reload();
}

void ConversionController::onHide()
{
    // The poll already scheduled still runs and, finding the tab hidden, ends
    // the polling.
    m_visible = false;
}

void ConversionController::windowWillClose()
{
    DelayedCall::cancelAll(this);
}

std::optional<KRConversion> ConversionController::loadConversion()
{
    JNIServer *server = JNIServer::instance();
    if (!server)
        return std::nullopt;
    return KRConversion::conversionFromJSONString(server->getConverterQueueAsJSON());
}

void ConversionController::reload()
{
    m_currentConversion = loadConversion();
    const std::optional<KRConvertedItem> converted =
        m_currentConversion ? m_currentConversion->convertedItem() : std::nullopt;
    if (converted) {
        const std::optional<KRQueueItem> item = converted->item();
        const std::optional<KRConversionState> state = converted->conversionState();
        const std::optional<JsonDecimal> percentDone = state ? state->percentDone() : std::nullopt;
        setCurrentlyConverting(item ? item->name() : QString());
        setProgress(percentDone ? percentDone->toDouble() : 0.0);
        setEstimatedTime(etaAsString(state ? state->eta() : std::nullopt));
        setConversionInProgress(true);
        setPaused(state && state->paused());
        m_queueModel->reloadData();
    } else {
        // The rest keeps what the last busy poll showed, the table included.
        setConversionInProgress(false);
    }
    // Each pass arms the next one; a pass that was already pending is never
    // cancelled here, so showing the tab again quickly runs two schedules side
    // by side until the next hide or window close.
    if (m_visible)
        DelayedCall::perform(this, kPollIntervalMs, [this] { reload(); });
}

QString ConversionController::etaAsString(const std::optional<JsonDecimal> &eta)
{
    if (!eta)
        return QStringLiteral("Unknown");
    const int seconds = eta->toInt();
    return QString::asprintf("%02dh %02dm %02ds", seconds / 3600, (seconds / 60) % 60, seconds % 60);
}

int ConversionController::numberOfRowsInTableView() const
{
    if (!m_currentConversion || !m_currentConversion->queue())
        return 0;
    return int(m_currentConversion->queue()->size());
}

QString ConversionController::tableViewObjectValue(int column, int row) const
{
    Q_UNUSED(column) // every column shows the file's name
    if (row < 0 || row >= numberOfRowsInTableView())
        return QString();
    return m_currentConversion->queue()->at(row).name();
}

QString ConversionController::tableViewItemId(int row) const
{
    if (row < 0 || row >= numberOfRowsInTableView())
        return QString();
    return m_currentConversion->queue()->at(row).itemId();
}

void ConversionController::resetConverterQueue()
{
    if (m_resetSheet) {
        m_resetSheet->raise();
        m_resetSheet->activateWindow();
        return;
    }
    auto *alert = new QMessageBox(window());
    alert->setAttribute(Qt::WA_DeleteOnClose);
    alert->setWindowModality(Qt::WindowModal);
    alert->setIcon(QMessageBox::Warning);
    QPushButton *stop = alert->addButton(QStringLiteral("Stop conversion and clear queue"), QMessageBox::AcceptRole);
    QPushButton *cancel = alert->addButton(QStringLiteral("Cancel"), QMessageBox::RejectRole);
    alert->setDefaultButton(stop);
    alert->setEscapeButton(cancel);
    alert->setText(QStringLiteral("Are you sure?"));
    alert->setInformativeText(QStringLiteral("The file currently converted will be lost."));
    connect(alert, &QMessageBox::finished, this, [this, alert, stop] {
        alertDidEnd(alert->clickedButton() == stop ? kAlertFirstButtonReturn : kAlertSecondButtonReturn);
    });
    m_resetSheet = alert;
    alert->open();
}

void ConversionController::alertDidEnd(int returnCode)
{
    if (returnCode != kAlertFirstButtonReturn)
        return;
    if (JNIServer *server = JNIServer::instance())
        server->converterResetQueue();
    reload();
}

void ConversionController::setCurrentlyConverting(const QString &name)
{
    m_currentlyConverting = name;
    emit currentlyConvertingChanged();
}

void ConversionController::setProgress(double progress)
{
    if (QProgressBar *bar = progressIndicator()) {
        // The bar counts hundredths of a percent; out-of-range values pin it
        // to an end instead of being ignored by the bar.
        const double percent = std::isfinite(progress) ? std::clamp(progress, 0.0, 100.0) : 0.0;
        bar->setValue(bar->minimum() + int(std::lround(percent / 100.0 * (bar->maximum() - bar->minimum()))));
    }
    m_progress = progress;
    emit progressChanged();
}

void ConversionController::setEstimatedTime(const QString &text)
{
    m_estimatedTime = text;
    emit estimatedTimeChanged();
}

void ConversionController::setConversionInProgress(bool inProgress)
{
    m_conversionInProgress = inProgress;
    emit conversionInProgressChanged();
}

void ConversionController::setPaused(bool paused)
{
    m_paused = paused;
    emit pausedChanged();
}

void ConversionController::setConversionLogWindowController(WindowController *controller)
{
    if (controller == m_conversionLogWindowController)
        return;
    releaseConversionLogWindowController();
    m_conversionLogWindowController = controller;
    if (controller)
        controller->onDeallocCallTarget(this, &ConversionController::conversionLogWindowControllerDealloc);
}

void ConversionController::conversionLogWindowControllerDealloc()
{
    m_conversionLogWindowController = nullptr;
}

void ConversionController::releaseConversionLogWindowController()
{
    WindowController *controller = m_conversionLogWindowController;
    m_conversionLogWindowController = nullptr;
    if (!controller)
        return;
    controller->onDeallocCallTarget(nullptr, std::function<void()>());
    // A shown window owns its controller and frees it on close; one that
    // never showed has no other owner.
    if (!controller->isWindowLoaded() || !controller->window()->isVisible())
        controller->deleteLater();
}

QProgressBar *ConversionController::progressIndicator() const
{
    return m_page ? m_ui->progressIndicator : nullptr;
}

QTableView *ConversionController::queueTableView() const
{
    return m_page ? m_ui->queueTableView : nullptr;
}

QWidget *ConversionController::window() const
{
    return m_page ? m_page->window() : nullptr;
}
