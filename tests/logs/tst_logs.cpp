// The logs page against the fixture jar: which log is fetched and cleared
// when, what an empty log looks like, and how the text is laid out.
#include "BridgeFixture.h"
#include "logs/LogsController.h"

#include <QComboBox>
#include <QLayout>
#include <QPushButton>
#include <QScrollBar>
#include <QTemporaryDir>
#include <QtTest>

class TestLogs : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;
    std::unique_ptr<QWidget> m_content; // a page lives until the next one is made
    LogsController *m_controller = nullptr;

    QComboBox *chooser() const { return m_content->findChild<QComboBox *>(QStringLiteral("logChooser")); }
    QString shown() const { return m_controller->textView()->toPlainText(); }
    static void scriptLog(const QString &id, const QString &text) { BridgeFixture::script("return.getLog." + id, text); }

    void makePage()
    {
        m_content = std::make_unique<QWidget>();
        m_controller = new LogsController(m_content.get());
        m_controller->awakeFromNib();
    }

    static QStringList callsDuring(const std::function<void()> &action)
    {
        BridgeFixture::clearRecordedCalls();
        action();
        return BridgeFixture::recordedCalls();
    }

private slots:
    void initTestCase()
    {
        const QString failure = BridgeFixture::startJvm(m_home.path(), false, false);
        QVERIFY2(failure.isEmpty(), qPrintable(failure));
    }

    void init() { BridgeFixture::resetScript(); }

    // Waking shows the first log; each choice fetches its own log by its
    // identifier, and an empty or null answer reads "(empty log)".
    void chooserFetchesEachLog()
    {
        const QStringList names = {"Live Conversion", "Offline Conversion", "Thumbnails Generation", "Remote Support", "Subtitles"};
        const QStringList ids = {"live-conversion", "conversion", "thumbnail", "remote", "subtitles"};
        const QStringList scripted = {"live text", "offline\ttext", "", QString(), "subs \u00e9\U0001F600"};
        const QStringList texts = {"live text", "offline\ttext", "(empty log)", "(empty log)", "subs \u00e9\U0001F600"};
        for (int index = 0; index < ids.size(); ++index)
            scriptLog(ids[index], scripted[index]);
        QCOMPARE(callsDuring([&] { makePage(); }), QStringList{"getLog(live-conversion)"});
        QVERIFY(m_content->layout()->indexOf(m_controller->page()) >= 0);
        QCOMPARE(shown(), QStringLiteral("live text"));

        // A user's choice, also of the log already shown, fetches it again.
        for (int index : {1, 2, 3, 4, 0, 0}) {
            QCOMPARE(chooser()->itemText(index), names[index]);
            QCOMPARE(callsDuring([&] { emit chooser()->activated(index); }), QStringList{"getLog(" + ids[index] + ")"});
            QCOMPARE(chooser()->currentIndex(), index);
            QCOMPARE(shown(), texts[index]);
        }
        QCOMPARE(chooser()->count(), names.size());

        // The property drives the chooser too; indexes outside the tables
        // (a cleared chooser reports -1) change nothing and ask nothing.
        m_controller->setCurrentIndex(3);
        QCOMPARE(chooser()->currentIndex(), 3);
        QCOMPARE(callsDuring([&] {
                     m_controller->setCurrentIndex(5);
                     m_controller->setCurrentIndex(-1);
                     chooser()->clear();
                 }),
                 QStringList());
        QCOMPARE(m_controller->currentIndex(), 3);
    }

    // Clear empties the current log on the server and shows it again;
    // reload and each showing of the page fetch it anew.
    void everyActionRefetches()
    {
        makePage();
        scriptLog("conversion", "before");
        m_controller->setCurrentIndex(1);
        scriptLog("conversion", "");
        QCOMPARE(callsDuring([&] { m_content->findChild<QPushButton *>("clearButton")->click(); }),
                 QStringList({"clearLog(conversion)", "getLog(conversion)"}));
        QCOMPARE(shown(), QStringLiteral("(empty log)"));

        scriptLog("conversion", "one");
        QCOMPARE(callsDuring([&] { m_content->findChild<QPushButton *>("reloadButton")->click(); }),
                 QStringList{"getLog(conversion)"});
        QCOMPARE(shown(), QStringLiteral("one"));

        scriptLog("conversion", "two\nlines");
        QCOMPARE(callsDuring([&] { m_controller->onShow(); m_controller->onShow(); }), QStringList(2, "getLog(conversion)"));
        QCOMPARE(shown(), QStringLiteral("two\nlines"));
    }

    // An 11-point font whose characters share one advance, tabs every eight
    // cells, and long lines that scroll sideways instead of wrapping.
    void textLayout()
    {
        scriptLog("live-conversion", "\tX\n12345678X\n" + QString(500, QLatin1Char('w')));
        makePage();
        m_content->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_content.get()));
        QPlainTextEdit *view = m_controller->textView();

        QVERIFY(view->isReadOnly());
        QCOMPARE(view->font().pointSizeF(), 11.0);
        const QFontMetricsF metrics(view->font());
        for (QChar c : QStringLiteral("i .0M")) // QFontInfo::fixedPitch() is false for "dual width" monospace families
            QCOMPARE(metrics.horizontalAdvance(c), metrics.horizontalAdvance(QLatin1Char('w')));

        QTextCursor cursor(view->document());
        auto xAt = [&](int position) {
            cursor.setPosition(position);
            return view->cursorRect(cursor).left();
        };
        QCOMPARE(xAt(1), xAt(3 + 8)); // the X after a tab and the X after eight characters
        QVERIFY(view->horizontalScrollBar()->maximum() > 0); // the long line runs on
    }
};

QTEST_MAIN(TestLogs)
#include "tst_logs.moc"
