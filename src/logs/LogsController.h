#pragma once

#include "preferences/TabController.h"

#include <QFont>
#include <QObject>
#include <QPlainTextEdit>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QWidget>

namespace Ui {
class LogsPage;
}

// The look of a log: a fixed-pitch font, with tabs every eight character cells.
struct LogTextAttributes
{
    QFont font;
    qreal tabStopDistance = 0;
};

// The logs page of the preferences window: the user picks one of the server's
// logs, reads it as plain text that never wraps, and reloads or clears it.
// The texts live in the Java server and are fetched anew on every refresh;
// nothing polls in between.
class LogsController : public QObject, public TabController
{
    Q_OBJECT
    Q_PROPERTY(QString currentLog READ currentLog WRITE setCurrentLog NOTIFY currentLogChanged)
    Q_PROPERTY(int currentIndex READ currentIndex WRITE setCurrentIndex NOTIFY currentIndexChanged)

public:
    // Builds the page into `content` and lives as its child.
    explicit LogsController(QWidget *content);
    ~LogsController() override;

    // Sets up the text view and shows the first log.
    void awakeFromNib();

    // The names shown in the chooser and the identifiers the server knows,
    // index for index.
    static QStringList logNames();
    static QStringList logIDs();

    QString currentLog() const { return m_currentLog; }
    // An empty or null text is shown as "(empty log)".
    void setCurrentLog(const QString &log);

    int currentIndex() const { return m_currentIndex; }
    // Fetches and shows the log at `index`; an index outside the tables is
    // ignored.
    void setCurrentIndex(int index);

    static LogTextAttributes defaultTextAttributes();

    QPlainTextEdit *textView() const { return m_textView; }
    QWidget *page() const { return m_page; }

    void onShow() override;

public slots:
    void refresh();
    void clear();

signals:
    void currentLogChanged(const QString &log);
    void currentIndexChanged(int index);

private:
    Ui::LogsPage *m_ui = nullptr;
    QPointer<QWidget> m_page;
    QPointer<QPlainTextEdit> m_textView;
    QString m_currentLog;
    int m_currentIndex = 0;
};
