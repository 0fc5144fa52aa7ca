// The conversion tab against the fixture server jar: one JVM for the process.
#include "BridgeFixture.h"
#include "LogCapture.h"

#include "platform/WindowLayouts.h"
#include "bridge/JNIServer.h"
#include "conversion/ConversionController.h"
#include "platform/DelayedCall.h"

#include <QElapsedTimer>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTableView>
#include <QTemporaryDir>
#include <QVBoxLayout>
#include <QtTest>

#include <memory>

namespace {

void serve(const QString &document) { BridgeFixture::script(QStringLiteral("return.getConverterQueueAsJSON"), document); }

QString busy(const QString &name, const QString &state = QStringLiteral("\"percentDone\":10,\"eta\":60"),
             const QString &queue = QStringLiteral("[]"))
{
    return QStringLiteral("{\"conversion\":{\"convertedItem\":{\"item\":{\"id\":\"1\",\"name\":\"%1\"},"
                          "\"conversionState\":{%2}},\"queue\":%3}}")
        .arg(name, state, queue);
}

QStringList shownRows(const ConversionController &controller)
{
    QStringList rows;
    const QAbstractItemModel *model = controller.queueTableView()->model();
    for (int row = 0; row < model->rowCount(); ++row)
        rows << model->index(row, 0).data().toString();
    return rows;
}

struct Tab
{
    Tab()
    {
        auto *layout = new QVBoxLayout(&window);
        content = new QWidget(&window);
        layout->addWidget(content);
        new QVBoxLayout(content);
        controller = new ConversionController(content);
        controller->awakeFromNib();
        polls = std::make_unique<QSignalSpy>(controller, &ConversionController::conversionInProgressChanged);
    }
    int pollCount() const { return int(polls->count()); }

    QWidget window;
    QWidget *content = nullptr;
    ConversionController *controller = nullptr;
    std::unique_ptr<QSignalSpy> polls; // every poll sets conversionInProgress once
};

}

class ConversionViewTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_home.path() + QStringLiteral("/config")));
        const QString failure = BridgeFixture::startJvm(m_home.path(), false, false);
        QVERIFY2(failure.isEmpty(), qPrintable(failure));
    }

    void init() { BridgeFixture::resetScript(); }

    void etaAsString_data()
    {
        QTest::addColumn<QString>("seconds"); // null: no estimate
        QTest::addColumn<QString>("text");
        QTest::newRow("missing") << QString() << "Unknown";
        QTest::newRow("zero") << "0" << "00h 00m 00s";
        QTest::newRow("3661") << "3661" << "01h 01m 01s";
        QTest::newRow("hundred hours") << "360000" << "100h 00m 00s";
        QTest::newRow("fraction truncated") << "59.99" << "00h 00m 59s";
        QTest::newRow("negative") << "-3661" << "-1h -1m -1s";
        QTest::newRow("beyond 32 bits") << "1e12" << "596523h 14m 07s";
    }

    void etaAsString()
    {
        QFETCH(QString, seconds);
        QFETCH(QString, text);
        std::optional<JsonDecimal> eta;
        if (!seconds.isNull()) {
            eta = JsonDecimal::fromString(seconds);
            QVERIFY(eta);
        }
        QCOMPARE(ConversionController::etaAsString(eta), text);
    }

    void pollShowsTheSnapshot_data()
    {
        QTest::addColumn<QString>("document");
        QTest::addColumn<QString>("name");
        QTest::addColumn<double>("progress");
        QTest::addColumn<int>("bar"); // hundredths of a percent
        QTest::addColumn<QString>("eta");
        QTest::addColumn<bool>("paused");
        QTest::addColumn<QStringList>("rows");
        QTest::newRow("full") << busy("Holiday.mkv", "\"percentDone\":42.5,\"eta\":7322,\"paused\":true",
                                      "[{\"id\":\"2\",\"name\":\"b.avi\"},{\"id\":\"3\",\"name\":\"a.mp4\"},"
                                      "{\"id\":\"2\",\"name\":\"b.avi\"}]")
                              << "Holiday.mkv" << 42.5 << 4250 << "02h 02m 02s" << true
                              << QStringList{"b.avi", "a.mp4", "b.avi"};
        QTest::newRow("null eta, no queue") << busy("x", "\"percentDone\":0,\"eta\":null", "null") << "x" << 0.0
                                            << 0 << "Unknown" << false << QStringList();
        QTest::newRow("above 100") << busy("y", "\"percentDone\":150") << "y" << 150.0 << 10000 << "Unknown" << false
                                   << QStringList();
        QTest::newRow("below 0") << busy("z", "\"percentDone\":-3,\"eta\":-5") << "z" << -3.0 << 0 << "00h 00m -5s"
                                 << false << QStringList();
    }

    // One poll without the tab shown: the properties, the widgets bound to
    // them, and no next poll.
    void pollShowsTheSnapshot()
    {
        QFETCH(QString, document);
        QFETCH(QString, name);
        QFETCH(double, progress);
        QFETCH(int, bar);
        QFETCH(QString, eta);
        QFETCH(bool, paused);
        QFETCH(QStringList, rows);
        Tab tab;
        ConversionController *c = tab.controller;
        c->setProgress(77); // the bar must move off a stale value, down to 0 too
        serve(document);
        c->reload();

        QCOMPARE(c->conversionInProgress(), true);
        QCOMPARE(c->currentlyConverting(), name);
        QCOMPARE(c->progress(), progress);
        QCOMPARE(c->progressIndicator()->value(), bar);
        QCOMPARE(c->estimatedTime(), eta);
        QCOMPARE(c->paused(), paused);
        QCOMPARE(shownRows(*c), rows);
        QCOMPARE(c->numberOfRowsInTableView(), rows.size());

        const auto label = [&](const char *objectName) { return c->page()->findChild<QLabel *>(objectName)->text(); };
        QCOMPARE(label("currentlyConvertingLabel"), name);
        QCOMPARE(label("estimatedTimeLabel"), eta);
        QCOMPARE(label("stateLabel"), paused ? QStringLiteral("Paused") : QStringLiteral("Converting"));
        QVERIFY(c->progressIndicator()->isEnabled());
        QCOMPARE(DelayedCall::pendingCount(c), 0);
    }

    // Every setter notifies, changed or not; an idle converter keeps the last
    // file's details and rows on screen; bad answers count as idle.
    void idleKeepsTheLastValues()
    {
        Tab tab;
        ConversionController *c = tab.controller;
        serve(busy("Holiday.mkv", "\"percentDone\":42.5,\"eta\":61,\"paused\":true", "[{\"name\":\"next.avi\"}]"));
        c->reload();
        std::vector<std::unique_ptr<QSignalSpy>> spies;
        for (const char *signal : {SIGNAL(currentlyConvertingChanged()), SIGNAL(progressChanged()),
                                   SIGNAL(estimatedTimeChanged()), SIGNAL(pausedChanged())})
            spies.push_back(std::make_unique<QSignalSpy>(c, signal));
        c->reload(); // the same answer again
        for (const auto &spy : spies)
            QCOMPARE(spy->count(), 1);

        const QStringList idle{QStringLiteral("{\"conversion\":{\"queue\":[]}}"), QString(), QStringLiteral("{\"conv")};
        for (const QString &answer : idle) {
            serve(answer);
            const int polls = tab.pollCount();
            c->reload();
            QCOMPARE(tab.pollCount(), polls + 1);
            QCOMPARE(c->conversionInProgress(), false);
            QCOMPARE(c->numberOfRowsInTableView(), 0);
        }
        for (const auto &spy : spies)
            QCOMPARE(spy->count(), 1);
        QCOMPARE(c->currentlyConverting(), QStringLiteral("Holiday.mkv"));
        QCOMPARE(c->progress(), 42.5);
        QCOMPARE(c->estimatedTime(), QStringLiteral("00h 01m 01s"));
        QCOMPARE(c->paused(), true);
        QCOMPARE(shownRows(*c), QStringList{"next.avi"});
        QCOMPARE(c->page()->findChild<QLabel *>("stateLabel")->text(), QStringLiteral("No conversion in progress"));
        QVERIFY(!c->progressIndicator()->isEnabled());
    }

    // A poll changes only the rows that changed: the file selected stays
    // selected (known by its id), and the table keeps its scroll position.
    void queueKeepsSelectionAndScroll()
    {
        const auto queue = [](const QList<int> &ids) {
            QStringList items;
            for (int id : ids)
                items << QStringLiteral("{\"id\":\"%1\",\"name\":\"f%2.mkv\"}").arg(id % 1000).arg(id);
            return busy("now.mkv", QStringLiteral("\"percentDone\":1"), '[' + items.join(',') + ']');
        };
        QList<int> ids;
        for (int id = 1; id <= 40; ++id)
            ids << id;
        Tab tab;
        ConversionController *c = tab.controller;
        tab.window.resize(300, 200);
        tab.window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&tab.window));
        serve(queue(ids));
        c->reload();
        QTableView *view = c->queueTableView();
        view->selectRow(20);
        view->verticalScrollBar()->setValue(10);
        const auto selected = [&] {
            QStringList names;
            for (const QModelIndex &index : view->selectionModel()->selectedRows())
                names << index.data().toString();
            return names + QStringList{view->currentIndex().data().toString()};
        };
        QSignalSpy resets(view->model(), &QAbstractItemModel::modelReset);
        QSignalSpy changes(view->model(), &QAbstractItemModel::dataChanged);

        c->reload(); // the same queue: no row is touched
        QCOMPARE(changes.count(), 0);
        // The first file goes to the converter, one moves up, one is renamed
        // (same id), two join at the end.
        ids.removeFirst();
        ids.move(ids.indexOf(30), 0);
        ids[ids.indexOf(35)] = 1035;
        ids << 41 << 42;
        serve(queue(ids));
        c->reload();
        QStringList expected;
        for (int id : ids)
            expected << QStringLiteral("f%1.mkv").arg(id);
        QCOMPARE(shownRows(*c), expected);
        QCOMPARE(selected(), (QStringList{"f21.mkv", "f21.mkv"}));
        QCOMPARE(view->verticalScrollBar()->value(), 10);
        QCOMPARE(resets.count(), 0);
        QCOMPARE(changes.count(), 1);
    }

    // Showing polls at once and then every second; hiding lets the poll
    // already scheduled run and stops there. Showing again within that second
    // starts a second schedule beside the first.
    void pollsWhileShown()
    {
        Tab tab;
        ConversionController *c = tab.controller;
        serve(busy("one"));
        QElapsedTimer clock;
        QList<qint64> times;
        connect(c, &ConversionController::conversionInProgressChanged, c, [&] { times << clock.elapsed(); });
        clock.start();
        c->onShow();
        QVERIFY(c->visible());
        QCOMPARE(tab.pollCount(), 1);
        QCOMPARE(c->currentlyConverting(), QStringLiteral("one"));
        serve(busy("two"));
        QTRY_COMPARE_WITH_TIMEOUT(tab.pollCount(), 3, 4000);
        QCOMPARE(c->currentlyConverting(), QStringLiteral("two"));
        QVERIFY2(times[1] - times[0] >= 900 && times[2] - times[1] >= 900, qPrintable(QString::number(times[2])));

        c->onHide();
        QCOMPARE(DelayedCall::pendingCount(c), 1);
        QTRY_COMPARE_WITH_TIMEOUT(tab.pollCount(), 4, 2000);
        QCOMPARE(DelayedCall::pendingCount(c), 0);
        QTest::qWait(1300);
        QCOMPARE(tab.pollCount(), 4);

        c->onShow();
        c->onHide();
        c->onShow();
        QCOMPARE(tab.pollCount(), 6);
        QCOMPARE(DelayedCall::pendingCount(c), 2);
        QTRY_COMPARE_WITH_TIMEOUT(tab.pollCount(), 8, 2000);
        QCOMPARE(DelayedCall::pendingCount(c), 2);
        c->onHide();
        QTRY_COMPARE_WITH_TIMEOUT(DelayedCall::pendingCount(c), 0, 2000);
        const int finalCount = tab.pollCount();
        QCOMPARE(finalCount, 10);
        QTest::qWait(1300);
        QCOMPARE(tab.pollCount(), finalCount);
    }

    // The sheet's texts and buttons; dismissing it sends nothing, confirming
    // resets the queue and polls at once, beside a schedule already running.
    // Closing the window then ends both schedules though the tab stays shown.
    void resetSheet()
    {
        Tab tab;
        ConversionController *c = tab.controller;
        tab.window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&tab.window));
        serve(busy("after reset"));
        BridgeFixture::clearRecordedCalls();

        const auto openSheet = [&]() -> QMessageBox * {
            c->page()->findChild<QPushButton *>("resetButton")->click();
            return c->resetSheet() && c->resetSheet()->isVisible() ? c->resetSheet() : nullptr;
        };
        QMessageBox *sheet = openSheet();
        QVERIFY(sheet && sheet->parentWidget() == &tab.window && sheet->windowModality() == Qt::WindowModal);
        QCOMPARE(QStringList({sheet->text(), sheet->informativeText(), sheet->buttons().at(0)->text(), sheet->buttons().at(1)->text()}),
                 (QStringList{"Are you sure?", "The file currently converted will be lost.", "Stop conversion and clear queue", "Cancel"}));
        QCOMPARE(openSheet(), sheet); // a second request brings back the same sheet

        sheet->buttons().at(1)->click();
        QTRY_VERIFY(!c->resetSheet());
        sheet = openSheet();
        QVERIFY(sheet);
        QTest::keyClick(sheet, Qt::Key_Escape);
        QTRY_VERIFY(!c->resetSheet());
        QCOMPARE(BridgeFixture::recordedCalls(), QStringList());
        QCOMPARE(tab.pollCount(), 0);

        c->onShow();
        QCOMPARE(tab.pollCount(), 1);
        sheet = openSheet();
        QVERIFY(sheet);
        sheet->buttons().at(0)->click();
        QCOMPARE(BridgeFixture::recordedCalls(), QStringList{"converterResetQueue()"});
        QCOMPARE(tab.pollCount(), 2);
        QCOMPARE(c->currentlyConverting(), QStringLiteral("after reset"));
        QCOMPARE(DelayedCall::pendingCount(c), 2);
        c->windowWillClose();
        QCOMPARE(DelayedCall::pendingCount(c), 0);
        QVERIFY(c->visible());
        QTest::qWait(1300);
        QCOMPARE(tab.pollCount(), 2);
    }

    // The page lands in the placeholder's layout, or in a new one; the
    // controller dies with it, logs once and lets go of the secondary window:
    // a shown one lives on by itself, one never shown goes away.
    void lifecycle()
    {
        QWidget bare;
        auto *own = new ConversionController(&bare);
        QVERIFY(bare.layout());
        QCOMPARE(bare.layout()->count(), 1);
        QCOMPARE(bare.layout()->itemAt(0)->widget(), own->page());
        QCOMPARE(own->parent(), &bare);

        WindowLayouts::registerForm(QStringLiteral("ConversionLogProbe"), [](QWidget *) {});
        auto *dropped = new WindowController(QStringLiteral("ConversionLogProbe"));
        own->setConversionLogWindowController(dropped);
        delete dropped;
        QCOMPARE(own->conversionLogWindowController(), nullptr);

        QPointer<WindowController> hidden = new WindowController(QStringLiteral("ConversionLogProbe"));
        QPointer<WindowController> shown = new WindowController(QStringLiteral("ConversionLogProbe"));
        shown->showWindow();
        own->setConversionLogWindowController(hidden);
        own->setConversionLogWindowController(shown);
        QTRY_VERIFY(!hidden);
        own->onShow();
        QCOMPARE(DelayedCall::pendingCount(own), 1);

        LogCapture log;
        delete own;
        QCOMPARE(log.lines(), QStringList{"ConversionController dealloc"});
        BridgeFixture::clearRecordedCalls();
        QTest::qWait(1200); // the pending poll went with the controller
        QCOMPARE(BridgeFixture::recordedCalls(), QStringList());
        QVERIFY(shown);
        shown->window()->close(); // and still frees itself on close
        QTRY_VERIFY(!shown);
        WindowLayouts::registerForm(QStringLiteral("ConversionLogProbe"), {});
    }

private:
    QTemporaryDir m_home;
};

QTEST_MAIN(ConversionViewTest)
#include "tst_conversion_view.moc"
