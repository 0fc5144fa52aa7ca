#include "conversion/KRTranscode.h"

#include <QtTest>

// The snapshot as one line: "-" for a missing member, so that missing, null
// and empty read differently.
static QString text(const QString &s) { return s.isNull() ? QStringLiteral("-") : s; }
static QString item(const KRQueueItem &i) { return text(i.itemId()) + QLatin1Char('=') + text(i.name()); }
static QString describe(const std::optional<KRConversion> &c)
{
    if (!c)
        return QStringLiteral("nothing");
    QString out = QStringLiteral("idle");
    if (const auto converted = c->convertedItem()) {
        out = QStringLiteral("item:") + (converted->item() ? item(*converted->item()) : QStringLiteral("-"));
        if (const auto s = converted->conversionState())
            out += QStringLiteral(" state:%1,%2,%3")
                       .arg(s->percentDone() ? s->percentDone()->toString() : QStringLiteral("-"),
                            s->eta() ? s->eta()->toString() : s->etaIsNull() ? QStringLiteral("null") : QStringLiteral("-"),
                            s->paused() ? QStringLiteral("paused") : QStringLiteral("running"));
    }
    QStringList queue;
    for (const KRQueueItem &i : c->queue().value_or(QList<KRQueueItem>{}))
        queue << item(i);
    return out + QStringLiteral(" queue:") + (c->queue() ? u'[' + queue.join(u',') + u']' : QStringLiteral("-"));
}

class TestConversionRecords : public QObject
{
    Q_OBJECT

private slots:
    void fromDocument_data()
    {
        QTest::addColumn<QString>("document");
        QTest::addColumn<QString>("expected");
        const auto row = [](const char *name, const char *document, const char *expected) {
            QTest::newRow(name) << QString::fromUtf8(document) << QString::fromUtf8(expected);
        };
        // Queue order as sent, duplicates kept; unknown members ignored.
        row("full", R"({"other": 1, "conversion": {
            "convertedItem": {"item": {"id": "f7", "name": "Holiday ☀.avi"},
                              "conversionState": {"percentDone": 42.5, "eta": 3600, "paused": true, "x": []}},
            "queue": [{"id": "a", "name": "First"}, {"id": "b", "name": "Second"}, {"id": "a", "name": "First"}],
            "unknown": {"queue": []}}})",
            "item:f7=Holiday ☀.avi state:42.5,3600,paused queue:[a=First,b=Second,a=First]");
        // No queue is not the same as an empty one.
        row("idle", R"({"conversion": {}})", "idle queue:-");
        row("empty queue", R"({"conversion": {"queue": []}})", "idle queue:[]");
        row("bare objects", R"({"conversion": {"convertedItem": {}, "queue": [{}, {"id": "", "name": ""}]}})", "item:- queue:[-=-,=]");
        row("nulls", R"({"conversion": {"convertedItem": {"item": null,
            "conversionState": {"percentDone": null, "eta": null, "paused": null}}, "queue": null}})",
            "item:- state:-,null,running queue:-");
        row("null item, queue object", R"({"conversion": {"convertedItem": null, "queue": {"id": "a"}}})", "idle queue:-");
        // Elements that are no object are left out; a number as an id reads as its digits.
        row("foreign values", R"({"conversion": {
            "queue": [null, 3, "x", {"id": 17, "name": "n"}, [], {"id": true}],
            "convertedItem": {"item": "text", "conversionState": {"paused": 1, "eta": "soon", "percentDone": "50"}}}})",
            "item:- state:-,-,paused queue:[17=n,-=-]");
        for (const char *bad : {"", "[]", "{}", R"({"conversion": null})", R"({"conversion": [1]})", R"({"conversion": {"queue": [)"})
            QTest::addRow("refused %s", bad) << QString::fromUtf8(bad) << QStringLiteral("nothing");
    }

    void fromDocument()
    {
        QFETCH(QString, document);
        QFETCH(QString, expected);
        QCOMPARE(describe(KRConversion::conversionFromJSONString(document)), expected);
    }
};

QTEST_GUILESS_MAIN(TestConversionRecords)
#include "tst_conversion_records.moc"
