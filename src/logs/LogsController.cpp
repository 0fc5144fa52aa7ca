#include "logs/LogsController.h"

#include "bridge/JNIServer.h"
#include "preferences/TabPage.h"
#include "ui_LogsPage.h"

#include <QComboBox>
#include <QFontDatabase>
#include <QFontMetricsF>
#include <QPlainTextEdit>
#include <QPushButton>

namespace {
const qreal kFontSize = 11.0;
const int kCellsPerTab = 8;
}

LogsController::LogsController(QWidget *content)
    : QObject(content)
    , m_ui(new Ui::LogsPage)
{
    m_page = new QWidget(content);
    m_ui->setupUi(m_page);
    addTabPage(content, m_page);
    m_textView = m_ui->textView;

    m_ui->logChooser->addItems(logNames());
    m_ui->logChooser->setCurrentIndex(m_currentIndex);
    // Every choice fetches, also of the log already shown.
    connect(m_ui->logChooser, &QComboBox::activated, this, &LogsController::setCurrentIndex);
    connect(this, &LogsController::currentIndexChanged, m_ui->logChooser, &QComboBox::setCurrentIndex);
    connect(this, &LogsController::currentLogChanged, m_textView, &QPlainTextEdit::setPlainText);
    connect(m_ui->reloadButton, &QPushButton::clicked, this, &LogsController::refresh);
    connect(m_ui->clearButton, &QPushButton::clicked, this, &LogsController::clear);
}

LogsController::~LogsController()
{
    delete m_ui;
}

QStringList LogsController::logNames()
{
    return {QStringLiteral("Live Conversion"), QStringLiteral("Offline Conversion"),
            QStringLiteral("Thumbnails Generation"), QStringLiteral("Remote Support"), QStringLiteral("Subtitles")};
}

QStringList LogsController::logIDs()
{
    return {QStringLiteral("live-conversion"), QStringLiteral("conversion"), QStringLiteral("thumbnail"),
            QStringLiteral("remote"), QStringLiteral("subtitles")};
}

void LogsController::setCurrentLog(const QString &log)
{
    const QString shown = log.isEmpty() ? QStringLiteral("(empty log)") : log;
    // Re-setting the same text would throw the reader back to the top.
    if (shown == m_currentLog)
        return;
    m_currentLog = shown;
    emit currentLogChanged(m_currentLog);
}

void LogsController::setCurrentIndex(int index)
{
    const QStringList ids = logIDs();
    if (index < 0 || index >= ids.size())
        return;
    if (index != m_currentIndex) {
        m_currentIndex = index;
        emit currentIndexChanged(m_currentIndex);
    }
    JNIServer *server = JNIServer::instance();
    setCurrentLog(server ? server->getLog(ids.at(index)) : QString());
}

void LogsController::refresh()
{
    setCurrentIndex(m_currentIndex);
}

void LogsController::clear()
{
    if (JNIServer *server = JNIServer::instance())
        server->clearLog(logIDs().at(m_currentIndex));
    refresh();
}

void LogsController::onShow()
{
    refresh();
}

LogTextAttributes LogsController::defaultTextAttributes()
{
    LogTextAttributes attributes;
    attributes.font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    // Where the desktop names no fixed font, let the font matcher pick a
    // monospaced family rather than the proportional default.
    attributes.font.setStyleHint(QFont::TypeWriter);
    attributes.font.setFixedPitch(true);
    attributes.font.setPointSizeF(kFontSize);
    attributes.tabStopDistance = kCellsPerTab * QFontMetricsF(attributes.font).horizontalAdvance(QLatin1Char(' '));
    return attributes;
}

void LogsController::awakeFromNib()
{
    const LogTextAttributes attributes = defaultTextAttributes();
    m_textView->setFont(attributes.font);
    m_textView->setTabStopDistance(attributes.tabStopDistance);
    // Long lines run on to the right and scroll instead of wrapping.
    m_textView->setLineWrapMode(QPlainTextEdit::NoWrap);
    m_textView->setWordWrapMode(QTextOption::NoWrap);
    m_textView->setHorizontalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    refresh();
}
