#include "conversion/KRTranscode.h"

#include <QtTest>

class TestConversionRecords : public QObject
{
    Q_OBJECT

private slots:
    void fullDocument();
    void missingMembers();
    void nullAndForeignValues();
    void constructorsGiveNothingForNothing();
};

static KRConversion snapshot(const char *text)
{
    const std::optional<KRConversion> conversion = KRConversion::conversionFromJSONString(QString::fromUtf8(text));
    if (!conversion)
        qFatal("no snapshot for %s", text);
    return *conversion;
}

void TestConversionRecords::fullDocument()
{
    const KRConversion c = snapshot(R"({"other": 1, "conversion": {
        "convertedItem": {"item": {"id": "f7", "name": "Holiday ☀.avi"},
                          "conversionState": {"percentDone": 42.5, "eta": 3600, "paused": true, "x": []}},
        "queue": [{"id": "a", "name": "First"}, {"id": "b", "name": "Second"}, {"id": "a", "name": "First"}],
        "unknown": {"queue": []}}})");

    QVERIFY(c.convertedItem() && c.convertedItem()->item() && c.convertedItem()->conversionState());
    QCOMPARE(c.convertedItem()->item()->itemId(), QStringLiteral("f7"));
    QCOMPARE(c.convertedItem()->item()->name(), QStringLiteral("Holiday ☀.avi"));
    const KRConversionState state = *c.convertedItem()->conversionState();
    QVERIFY(state.percentDone());
    QCOMPARE(state.percentDone()->toString(), QStringLiteral("42.5"));
    QVERIFY(state.eta() && !state.etaIsNull() && state.paused());
    QCOMPARE(state.eta()->toLongLong(), 3600);

    // Queue order as sent, duplicates kept.
    QVERIFY(c.queue());
    QStringList ids;
    for (const KRQueueItem &item : *c.queue())
        ids << item.itemId() + QLatin1Char('=') + item.name();
    QCOMPARE(ids, (QStringList{QStringLiteral("a=First"), QStringLiteral("b=Second"), QStringLiteral("a=First")}));
}

void TestConversionRecords::missingMembers()
{
    // Nothing converting and no queue: no list at all, unlike an empty one.
    const KRConversion idle = snapshot(R"({"conversion": {}})");
    QVERIFY(!idle.convertedItem());
    QVERIFY(!idle.queue());

    const KRConversion emptyQueue = snapshot(R"({"conversion": {"queue": []}})");
    QVERIFY(emptyQueue.queue());
    QVERIFY(emptyQueue.queue()->isEmpty());

    const KRConversion bare = snapshot(R"({"conversion": {"convertedItem": {}, "queue": [{}]}})");
    QVERIFY(bare.convertedItem() && !bare.convertedItem()->item() && !bare.convertedItem()->conversionState());
    QCOMPARE(bare.queue()->size(), 1);
    QVERIFY(bare.queue()->at(0).itemId().isNull() && bare.queue()->at(0).name().isNull());

    const KRConversion noState = snapshot(R"({"conversion": {"convertedItem": {"conversionState": {}}}})");
    const KRConversionState state = *noState.convertedItem()->conversionState();
    QVERIFY(!state.percentDone() && !state.eta() && !state.etaIsNull() && !state.paused());

    // An empty string is present, not missing.
    const KRConversion emptyName = snapshot(R"({"conversion": {"queue": [{"id": "", "name": ""}]}})");
    QVERIFY(!emptyName.queue()->at(0).itemId().isNull());
    QVERIFY(emptyName.queue()->at(0).name().isEmpty());
}

void TestConversionRecords::nullAndForeignValues()
{
    const KRConversion nulls = snapshot(R"({"conversion": {
        "convertedItem": {"item": null, "conversionState": {"percentDone": null, "eta": null, "paused": null}},
        "queue": null}})");
    QVERIFY(nulls.convertedItem() && !nulls.convertedItem()->item() && !nulls.queue());
    const KRConversionState state = *nulls.convertedItem()->conversionState();
    QVERIFY(!state.percentDone() && !state.eta() && !state.paused());
    QVERIFY(state.etaIsNull());

    QVERIFY(!snapshot(R"({"conversion": {"convertedItem": null}})").convertedItem());

    // Elements that are no object name no file and are left out; a number as
    // an id still reads as its digits.
    const KRConversion mixed = snapshot(R"({"conversion": {
        "queue": [null, 3, "x", {"id": 17, "name": "n"}, [], {"id": true}],
        "convertedItem": {"item": "text", "conversionState": {"paused": 1, "eta": "soon", "percentDone": "50"}}}})");
    QCOMPARE(mixed.queue()->size(), 2);
    QCOMPARE(mixed.queue()->at(0).itemId(), QStringLiteral("17"));
    QVERIFY(mixed.queue()->at(1).itemId().isNull());
    QVERIFY(!mixed.convertedItem()->item());
    const KRConversionState odd = *mixed.convertedItem()->conversionState();
    QVERIFY(odd.paused() && !odd.eta() && !odd.etaIsNull() && !odd.percentDone());
    QVERIFY(!snapshot(R"({"conversion": {"convertedItem": {"conversionState": {"paused": false}}}})")
                 .convertedItem()->conversionState()->paused());

    QVERIFY(!snapshot(R"({"conversion": {"queue": {"id": "a"}}})").queue());
}

void TestConversionRecords::constructorsGiveNothingForNothing()
{
    QVERIFY(!KRQueueItem::itemFromDictionary(nullptr));
    QVERIFY(!KRConversionState::stateFromDictionary(nullptr));
    QVERIFY(!KRConvertedItem::itemFromDictionary(nullptr));
    QVERIFY(!KRConversion::conversionFromDictionary(nullptr));

    for (const char *text : {"", "garbage", "[]", "{}", R"({"conversion": null})", R"({"conversion": [1]})",
                             R"({"conversion": "x"})", R"({"conversion": {"queue": [)"}) {
        QVERIFY2(!KRConversion::conversionFromJSONString(QString::fromUtf8(text)), text);
    }

    // Built straight from a dictionary, as the view does with "conversion".
    const JsonObject dictionary{{QStringLiteral("queue"), JsonArray{JsonObject{{QStringLiteral("id"), "q"}}}}};
    const std::optional<KRConversion> conversion = KRConversion::conversionFromDictionary(&dictionary);
    QVERIFY(conversion);
    QCOMPARE(conversion->queue()->at(0).itemId(), QStringLiteral("q"));
}

QTEST_GUILESS_MAIN(TestConversionRecords)
#include "tst_conversion_records.moc"
