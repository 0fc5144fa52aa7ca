// The conversion tab against the fixture server jar: one JVM for the process.
#include "BridgeFixture.h"
#include "LogCapture.h"

#include "platform/WindowLayouts.h"
#include "conversion/ConversionController.h"
#include "platform/DelayedCall.h"

#include <QtTest>
#include <QtWidgets>

#include <memory>
#include <numeric>

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

// What the page shows: "file|bar in hundredths of a percent|time left|state|rows".
QString shown(const ConversionController &c)
{
    const auto label = [&](const char *name) { return c.page()->findChild<QLabel *>(name)->text(); };
    return QStringList({label("currentlyConvertingLabel"), QString::number(c.progressIndicator()->value()),
                        label("estimatedTimeLabel"), label("stateLabel"), shownRows(c).join(u',')})
        .join(u'|');
}

// The page in a placeholder that has a layout, as in the window.
struct Tab
{
    Tab() { controller->awakeFromNib(); }
    int pollCount() const { return int(polls.count()); }

    QWidget window;
    QVBoxLayout *layout = new QVBoxLayout(&window);
    ConversionController *controller = new ConversionController(&window);
    QSignalSpy polls{controller, &ConversionController::conversionInProgressChanged}; // one a poll
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

    void pollShowsTheSnapshot_data()
    {
        QTest::addColumn<QString>("document");
        QTest::addColumn<double>("progress");
        QTest::addColumn<QString>("page");
        const auto row = [](const char *name, const QString &document, double progress, const char *page) {
            QTest::newRow(name) << document << progress << QString::fromUtf8(page);
        };
        row("full", busy("Holiday.mkv", "\"percentDone\":42.5,\"eta\":7322,\"paused\":true",
                         "[{\"id\":\"2\",\"name\":\"b.avi\"},{\"id\":\"3\",\"name\":\"a.mp4\"},{\"id\":\"2\",\"name\":\"b.avi\"}]"),
            42.5, "Holiday.mkv|4250|02h 02m 02s|Paused|b.avi,a.mp4,b.avi");
        row("null eta, no queue", busy("x", "\"percentDone\":0,\"eta\":null", "null"), 0, "x|0|Unknown|Converting|");
        row("above 100, no eta", busy("y", "\"percentDone\":150"), 150, "y|10000|Unknown|Converting|");
        row("below 0", busy("z", "\"percentDone\":-3,\"eta\":-5"), -3, "z|0|00h 00m -5s|Converting|");
        // The time left as the server's seconds give it.
        row("eta zero", busy("e", "\"eta\":0"), 0, "e|0|00h 00m 00s|Converting|");
        row("eta fraction truncated", busy("e", "\"eta\":59.99"), 0, "e|0|00h 00m 59s|Converting|");
        row("eta negative", busy("e", "\"eta\":-3661"), 0, "e|0|-1h -1m -1s|Converting|");
        row("eta beyond 32 bits", busy("e", "\"eta\":1e12"), 0, "e|0|596523h 14m 07s|Converting|");
    }

    // One poll without the tab shown: the page shows it.
    void pollShowsTheSnapshot()
    {
        QFETCH(QString, document);
        QFETCH(double, progress);
        QFETCH(QString, page);
        Tab tab;
        ConversionController *c = tab.controller;
        c->setProgress(77); // the bar must move off a stale value, down to 0 too
        serve(document);
        c->reload();

        QCOMPARE(shown(*c), page);
        QCOMPARE(c->progress(), progress); // unclamped, unlike the bar
        QVERIFY(c->conversionInProgress() && c->progressIndicator()->isEnabled());
    }

    // Every setter notifies, changed or not; an idle converter keeps the last
    // file's details and rows on screen, greyed; bad answers count as idle.
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

        for (const QString &answer : {QStringLiteral("{\"conversion\":{\"queue\":[]}}"), QString(), QStringLiteral("{\"conv")}) {
            serve(answer);
            const int polls = tab.pollCount();
            c->reload();
            QCOMPARE(tab.pollCount(), polls + 1);
            QCOMPARE(shown(*c), QStringLiteral("Holiday.mkv|4250|00h 01m 01s|No conversion in progress|next.avi"));
            QCOMPARE(c->numberOfRowsInTableView(), 0);
        }
        for (const auto &spy : spies)
            QCOMPARE(spy->count(), 1);
        QVERIFY(!c->conversionInProgress() && c->paused() && c->progress() == 42.5);
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
        QList<int> ids(40);
        std::iota(ids.begin(), ids.end(), 1);
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
        QStringList selected{view->currentIndex().data().toString()};
        for (const QModelIndex &index : view->selectionModel()->selectedRows())
            selected << index.data().toString();
        QCOMPARE(selected, (QStringList{"f21.mkv", "f21.mkv"}));
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
        QCOMPARE(tab.pollCount(), 1);
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
        QCOMPARE(tab.pollCount(), 10);
        QTest::qWait(1300);
        QCOMPARE(tab.pollCount(), 10);
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
        QVERIFY(bare.layout() && bare.layout()->count() == 1);
        QCOMPARE(bare.layout()->itemAt(0)->widget(), own->page());

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

        LogCapture log;
        delete own;
        QCOMPARE(log.lines(), QStringList{"ConversionController dealloc"});
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
