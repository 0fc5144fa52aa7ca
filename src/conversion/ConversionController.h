#pragma once

#include "app/WindowController.h"
#include "conversion/KRTranscode.h"
#include "preferences/TabController.h"

#include <QAbstractTableModel>
#include <QMessageBox>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QWidget>

#include <optional>

class QProgressBar;
class QTableView;
class ConversionController;

namespace Ui {
class ConversionPage;
}

// The queue table's model. It copies the rows from the controller's data
// source operations only when told to reload, so that the table keeps what it
// last showed while the controller's snapshot moves on. A reload changes
// only the rows that changed (items known by their id), so the selection
// and the scroll position survive the poll.
class ConversionQueueModel : public QAbstractTableModel
{
    Q_OBJECT
public:
    explicit ConversionQueueModel(ConversionController *controller, QObject *parent = nullptr);

    void reloadData();

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;

private:
    struct Row {
        QString key; // the item's id, or its name when it has none
        QString name;
    };
    ConversionController *m_controller;
    QList<Row> m_rows;
};

// The conversion tab: while it is shown, asks the server once a second for
// its conversion queue and publishes what it finds; offers to stop the
// conversion and clear the queue after a confirmation sheet.
class ConversionController : public QObject, public TabController
{
    Q_OBJECT
    Q_PROPERTY(QString currentlyConverting READ currentlyConverting WRITE setCurrentlyConverting NOTIFY currentlyConvertingChanged)
    Q_PROPERTY(double progress READ progress WRITE setProgress NOTIFY progressChanged)
    Q_PROPERTY(QString estimatedTime READ estimatedTime WRITE setEstimatedTime NOTIFY estimatedTimeChanged)
    Q_PROPERTY(bool conversionInProgress READ conversionInProgress WRITE setConversionInProgress NOTIFY conversionInProgressChanged)
    Q_PROPERTY(bool paused READ paused WRITE setPaused NOTIFY pausedChanged)

public:
    // Return code of the sheet's first button ("Stop conversion and clear queue").
    static constexpr int kAlertFirstButtonReturn = 1000;
    static constexpr int kAlertSecondButtonReturn = 1001;

    // Builds the page into `content` and becomes its child. Nothing is polled
    // until the tab is shown.
    explicit ConversionController(QWidget *content);
    ~ConversionController() override;

    // Connects the observable properties to the page's widgets.
    void awakeFromNib();

    // TabController
    void onShow() override;
    void onHide() override;
    void windowWillClose() override; // cancels every pending poll

    // One poll: the snapshot, the properties, and the next poll while visible.
    void reload();
    // The server's current snapshot, or nothing when it gave none.
    std::optional<KRConversion> loadConversion();
    static QString etaAsString(const std::optional<JsonDecimal> &eta);

    // The queue table's data source, read from the latest snapshot.
    int numberOfRowsInTableView() const;
    QString tableViewObjectValue(int column, int row) const;
    // The id of the waiting file at `row`; null when it has none.
    QString tableViewItemId(int row) const;

    // The button's action and the end of its sheet.
    void resetConverterQueue();
    void alertDidEnd(int returnCode);

    QString currentlyConverting() const { return m_currentlyConverting; }
    void setCurrentlyConverting(const QString &name);
    double progress() const { return m_progress; }
    void setProgress(double progress);
    QString estimatedTime() const { return m_estimatedTime; }
    void setEstimatedTime(const QString &text);
    bool conversionInProgress() const { return m_conversionInProgress; }
    void setConversionInProgress(bool inProgress);
    bool paused() const { return m_paused; }
    void setPaused(bool paused);

    bool visible() const { return m_visible; }
    const std::optional<KRConversion> &currentConversion() const { return m_currentConversion; }

    // A secondary window's controller, kept until its window goes away.
    WindowController *conversionLogWindowController() const { return m_conversionLogWindowController; }
    void setConversionLogWindowController(WindowController *controller);
    void conversionLogWindowControllerDealloc();

    QWidget *page() const { return m_page.data(); }
    QProgressBar *progressIndicator() const;
    QTableView *queueTableView() const;
    ConversionQueueModel *queueModel() const { return m_queueModel; }
    QWidget *window() const;
    // The confirmation sheet while it is open.
    QMessageBox *resetSheet() const { return m_resetSheet; }

signals:
    void currentlyConvertingChanged();
    void progressChanged();
    void estimatedTimeChanged();
    void conversionInProgressChanged();
    void pausedChanged();

private:
    void updateStateLabel();
    void releaseConversionLogWindowController();

    std::optional<KRConversion> m_currentConversion;
    QString m_currentlyConverting;
    double m_progress = 0;
    QString m_estimatedTime;
    bool m_conversionInProgress = false;
    bool m_visible = false;
    bool m_paused = false;
    QPointer<WindowController> m_conversionLogWindowController;

    Ui::ConversionPage *m_ui = nullptr;
    QPointer<QWidget> m_page;
    bool m_ownsPage = false;
    ConversionQueueModel *m_queueModel = nullptr;
    QPointer<QMessageBox> m_resetSheet;
    bool m_awake = false;
};
