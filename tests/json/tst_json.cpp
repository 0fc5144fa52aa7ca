#include "json/JsonValue.h"

#include <QThread>
#include <QtTest>

#include <limits>

namespace {

JsonDecimal dec(const char *text)
{
    return JsonDecimal::fromString(QString::fromLatin1(text)).value(); // throws for a mistyped case
}

// The reader's result in the writer's layout, so that both sides of a
// comparison show every detail; "<none>" when nothing was read.
QString readBack(QStringView text)
{
    const std::optional<JsonObject> object = dictionaryWithJSONString(text);
    return object ? jsonStringValue(*object) : QStringLiteral("<none>");
}

// Every kind of value, nesting and escapes, as in the folder and conversion files.
JsonObject sampleDocument()
{
    JsonObject state{{"percentDone", JsonValue(JsonDecimal::fromDouble(42.5))}, {"eta", JsonValue()}, {"paused", false}};
    JsonObject item{{"id", "a/b \"c\"\t\u00e9"}, {"name", JsonValue(QStringLiteral("Film 🎬 \u2028 x"))}};
    const JsonArray queue{JsonObject{{"id", "0"}, {"name", 0}}, JsonObject{{"id", "1"}, {"name", 1}},
                          JsonObject{{"id", "2"}, {"name", 2}}};
    return JsonObject{
        {"conversion", JsonObject{{"convertedItem", JsonObject{{"item", item}, {"conversionState", state}}},
                                  {"queue", queue}}},
        {"flags", JsonArray{true, false, JsonValue(), 0, JsonValue(-12), dec("0.000123"), JsonArray{}, JsonObject{}}},
        {"big", dec("12345678901234567890")},
        {"empty", ""},
    };
}

} // namespace

class TestJson : public QObject
{
    Q_OBJECT

private slots:
    void writer();
    void decimals();
    void valuesAndObjects();
    void readerLeniency();
    void readerStrings();
    void readerDepthLimit();
    void roundTripsAndTruncation();
};

void TestJson::writer()
{
    // Objects in arrays, empty strings and arrays: also pinned by the folder files' tests.
    // Booleans only for booleans; every number as a plain decimal.
    const JsonArray kinds{JsonObject{}, JsonArray{}, true, 1, false, 0};
    QCOMPARE(jsonStringValue({{"o", JsonObject{{"n", nullptr}, {"l", kinds}}}}),
             QStringLiteral(" { \"o\" :  { \"n\" : null, \"l\" : [ {\n}, [], true, 1, false, 0]\n}\n}"));
    QCOMPARE(jsonStringValue({{"n", JsonArray{0.1, -2.5, 1e21, 1.5e-7, JsonValue(qint64(-9007199254740993)), -12,
                                              dec("-0"), dec("1.50"), dec("7E2")}}}),
             QStringLiteral(" { \"n\" : [0.1, -2.5, 1000000000000000000000, 0.00000015, -9007199254740993, "
                            "-12, 0, 1.5, 700]\n}"));

    QCOMPARE(jsonStringValue({{"k", "a/b\\\"\n\b\t\f\r"}}), QStringLiteral(" { \"k\" : \"a/b\\n\\\"\\n\\b\\t\\f\\r\"\n}"));
    QCOMPARE(jsonStringValue({{"é", QStringLiteral("\u00e9\u0080\u00ff\uABCD\uffff🎬")}}), // keys alike
             QStringLiteral(" { \"\\u00e9\" : \"\\u00e9\\u0080\\u00ff\\uabcd\\uffff\\ud83c\\udfac\"\n}"));
    // U+007F and the controls without a short escape stay raw, U+0000 too.
    const QString raw = QString(QChar(0x7F)) + QChar(0x01) + QChar(0x0B) + QChar(0x0E) + QChar(0x1F) + QChar(0);
    QCOMPARE(jsonStringValue({{"k", raw}}), QStringLiteral(" { \"k\" : \"") + raw + QStringLiteral("\"\n}"));
}

void TestJson::decimals()
{
    const struct { const char *in; const char *out; } good[] = {
        {"0.1", "0.1"}, {"12345678901234567890", "12345678901234567890"}, {"-0.000", "0"}, {"00012.3400", "12.34"},
        {"1.5E-3", "0.0015"}, {"+1", "1"}, {"-.5", "-0.5"}, {"120e-1", "12"}, {"1e00000000000000000000002", "100"},
        // 38 significant digits are kept; further digits are cut off.
        {"1.23456789012345678901234567890123456789", "1.2345678901234567890123456789012345678"},
    };
    for (const auto &c : good)
        QCOMPARE(dec(c.in).toString(), QString::fromLatin1(c.out));
    QCOMPARE(dec("1e-128").toString(), QStringLiteral("0.") + QString(127, u'0') + u'1');
    QCOMPARE(dec("1e164").toString(), QStringLiteral("1") + QString(164, u'0'));
    for (const char *bad : {"", "-", "+", ".", "-.", "abc", "1e", "1e+", "1 ", " 1", "1.2.3", "--1", "0x10",
                            "1e999999999", "1e-999999999", "1e165", "1e-129", "١", "1,5"}) {
        QVERIFY2(!JsonDecimal::fromString(QString::fromUtf8(bad)).has_value(), bad);
    }
    // A long run of leading zeros is not significant.
    QCOMPARE(JsonDecimal::fromString(QString(100000, u'0') + u'7')->toString(), QStringLiteral("7"));

    // Numbers read inside a document take the same value as on their own,
    // whichever way the reader scans them; ".5" or "+1" is no value there.
    for (const char *sign : {"", "-"})
        for (const char *whole : {"", "0", "00", "7", "120", "123456789012345678", "1234567890123456789",
                                  "999999999999999999", "100000000000000000000"})
            for (const char *fraction : {"", ".", ".0", ".5", ".000123", ".1234567890123456789", ".10"})
                for (const char *exponent : {"", "e", "e5", "E-3", "e+0", "e-130", "e150", "e99999999999"}) {
                    const QString number = QLatin1String(sign) + QLatin1String(whole) + QLatin1String(fraction)
                        + QLatin1String(exponent);
                    const auto alone = JsonDecimal::fromString(number);
                    const auto read = dictionaryWithJSONString(QStringLiteral("{\"a\":") + number + u'}');
                    const bool starts = !number.isEmpty() && (number[0] == u'-' || number[0].isDigit());
                    const JsonValue *value = read ? read->find(u"a") : nullptr;
                    QVERIFY2(alone && starts ? value && *value == JsonValue(*alone) : !value, qPrintable(number));
                }

    QCOMPARE(dec("1.50"), dec("1.5"));
    QVERIFY(dec("1.5") != dec("-1.5") && dec("1.5") != dec("15"));
    QCOMPARE(JsonDecimal::fromInteger(std::numeric_limits<qint64>::min()).toString(),
             QStringLiteral("-9223372036854775808"));
    QCOMPARE(JsonDecimal::fromDouble(0.30000000000000004).toString(), QStringLiteral("0.30000000000000004"));
    QCOMPARE(JsonDecimal::fromDouble(5e-324).toString(), QStringLiteral("0.") + QString(323, u'0') + u'5');

    // Conversions truncate and saturate.
    const qint64 max = std::numeric_limits<qint64>::max(), min = std::numeric_limits<qint64>::min();
    const int imax = std::numeric_limits<int>::max(), imin = std::numeric_limits<int>::min();
    const struct { const char *in; qint64 whole; int narrow; } conversions[] = {
        {"12.9", 12, 12}, {"-45631.7", -45631, -45631}, {"0.9", 0, 0}, {"1200", 1200, 1200},
        {"3000000000", 3000000000, imax}, {"-3000000000", -3000000000, imin}, {"1e30", max, imax}, {"-1e30", min, imin},
        {"9223372036854775807", max, imax}, {"9223372036854775808", max, imax}, {"-9223372036854775809", min, imin},
    };
    for (const auto &c : conversions) {
        QCOMPARE(dec(c.in).toLongLong(), c.whole);
        QCOMPARE(dec(c.in).toInt(), c.narrow);
    }
    QCOMPARE(dec("-2.5e10").toDouble(), -2.5e10);
    QCOMPARE(dec("12345678901234567890").toDouble(), 12345678901234567890.0);
}

void TestJson::valuesAndObjects()
{
    QVERIFY(JsonValue(true) != JsonValue(1) && JsonValue(false) != JsonValue(0));
    QVERIFY(JsonValue(JsonArray{1, 2}) != JsonValue(JsonArray{2, 1}) && JsonValue(JsonArray{}) != JsonValue(JsonObject{}));
    QCOMPARE(JsonValue("é").toString(), QStringLiteral("é")); // char * is UTF-8
    QVERIFY(JsonValue(2).toBool() && !JsonValue(0).toBool() && !JsonValue("true").toBool());
    QCOMPARE(JsonValue(true).toDecimal(), JsonDecimal::fromInteger(1));
    QVERIFY(JsonValue("12").toDecimal().isZero() && JsonValue(12).toString().isEmpty());
    QVERIFY(JsonValue("x").toArray().empty() && JsonValue(JsonArray{1}).toObject().isEmpty());

    JsonObject small{{"b", 1}, {"a", 2}, {"b", 3}};
    QCOMPARE(small.begin()->first, QStringLiteral("b"));
    QVERIFY(small == (JsonObject{{"a", 2}, {"b", 3}}));
    QVERIFY(small != (JsonObject{{"a", 2}, {"b", 4}}) && small != (JsonObject{{"a", 2}, {"c", 3}}));

    // Large objects are indexed: every key found, replacement keeps the
    // position, and a copy taken before further inserts is not affected.
    JsonObject big;
    const int count = 20000;
    const auto key = [](int i) { return QStringLiteral("key%1").arg(i); };
    for (int i = 0; i < count; ++i)
        big.insert(key(i), i);
    const JsonObject before = big;
    for (int i = 0; i < count; i += 7)
        big.insert(key(i), -i);
    big.insert(QStringLiteral("extra"), true);
    QVERIFY(big.size() == count + 1 && before.size() == count && !before.contains(u"extra"));
    auto member = big.begin();
    for (int i = 0; i < count; ++i, ++member) {
        QCOMPARE(member->first, key(i));
        QCOMPARE(big.find(key(i))->toDecimal().toLongLong(), i % 7 ? i : -i);
        QCOMPARE(before.find(key(i))->toDecimal().toLongLong(), i);
    }
    QCOMPARE(member->first, QStringLiteral("extra"));
    QVERIFY(!big.contains(u"key20000") && big != before);
}

void TestJson::readerLeniency()
{
    const struct { const char16_t *in; const char16_t *out; } cases[] = {
        {u"{\"a\":1,}", u" { \"a\" : 1\n}"},
        {u"{\"a\":}", u" {\n}"},
        {u"{\"a\":1, \"b\"}", u" { \"a\" : 1\n}"},
        {u"{\"a\":[1 2,]}", u" { \"a\" : [1, 2]\n}"},
        {u"{\"a\":[1,2 }", u" {\n}"}, // the array fails, the object still closes
        {u"{\"a\":[truefalse null]}", u" { \"a\" : [true, false, null]\n}"},
        {u"{\"a\":true\"b\":\"1\"}", u" { \"a\" : true, \"b\" : \"1\"\n}"},
        {u"{\"a\":1,\"a\":2,\"b\":3,\"a\":4}", u" { \"a\" : 4, \"b\" : 3\n}"},
        {u"{\"a\":1}}garbage", u" { \"a\" : 1\n}"},
        // Every blank and line end of the platform set separates tokens; others do not.
        {u"\u0085{\u00a0\"a\"\u2028:\u3000\t1\u2029,\v\"b\"\f:\r\n[\u1680\"x\"\u202f]\u205f}",
         u" { \"a\" : 1, \"b\" : [\"x\"]\n}"},
    };
    for (const auto &c : cases)
        QCOMPARE(readBack(c.in), QString::fromUtf16(c.out));

    // Refused: no top-level object, a bad value. A non-ASCII digit starts a
    // number that does not read. (Texts cut short: roundTripsAndTruncation.)
    for (const char16_t *text : {u"x{\"a\":1}", u"{a:1}", u"{\"a\" 1}", u"{\"a\":1,,\"b\":2}", u"{\"a\":[,1]}", u"\u2028",
                                 u"{\"a\":1, \"b\":+1}", u"{\"a\":trueish}", u"{\"a\":\u200b1}", u"{\"a\":\u0663}"})
        QVERIFY2(readBack(text) == QStringLiteral("<none>"), qPrintable(QString::fromUtf16(text)));
}

void TestJson::readerStrings()
{
    auto valueOf = [](const QString &text) {
        const std::optional<JsonObject> object = dictionaryWithJSONString(text);
        const JsonValue *value = object ? object->find(u"a") : nullptr;
        return value ? value->toString() : QStringLiteral("<none>");
    };
    const struct { const char16_t *in; QString out; } cases[] = {
        {u"{\"a\":\"\\u00e9\\u00E9\\ud83c\\udfac\"}", QStringLiteral("éé🎬")},
        {u"{\"a\":\"\\\"\\\\\\b\\f\\n\\r\\t\\/\"}", QStringLiteral("\"\\\b\f\n\r\t\\/")},
        // The four characters after "\u" give their leading hex digits, after
        // optional blanks and "0x"; no digit at all gives U+0000.
        {u"{\"a\":\"\\u12zz\\u 0x1\\uzzzzX\"}", QString(QChar(0x12)) + QChar(0x1) + QChar(0) + u'X'},
        {u"{\"a\":\"\\u\"}\"x\"}", QString(QChar(0))},
        // The string loop stops where only blanks remain: such a string fails,
        // while blanks followed by the closing quote are ordinary content.
        {u"{\"a\":\"x   ", QStringLiteral("<none>")},
        {u"{\"a\":\"x\\u00e9  \n", QStringLiteral("<none>")},
        {u"{\"a\":\"x \n\"}", QStringLiteral("x \n")},
    };
    for (const auto &c : cases)
        QCOMPARE(valueOf(QString::fromUtf16(c.in)), c.out);
    // Interned keys do not leak into values.
    const auto keys = dictionaryWithJSONString(u"{\"o\":[{\"id\":\"id\"},{\"id\":\"x\"}]}");
    QVERIFY(keys);
    QCOMPARE(keys->find(u"o")->toArray()[1].toObject().find(u"id")->toString(), QStringLiteral("x"));
    // Long runs of blanks do not slow the reader to a crawl (a naive end
    // test rescans them for every character).
    const QString spaces(300000, u' ');
    QCOMPARE(valueOf(QStringLiteral("{\"a\":\"x") + spaces), QStringLiteral("<none>"));
}

void TestJson::readerDepthLimit()
{
    for (int depth : {kJsonMaxDepth, kJsonMaxDepth + 1, 100000}) { // the top-level object counts as one
        const QString objects = QStringLiteral("{\"a\":").repeated(depth - 1) + u'{' + QString(depth, u'}');
        const QString arrays = QStringLiteral("{\"a\":") + QString(depth - 1, u'[') + QString(depth - 1, u']') + u'}';
        QCOMPARE(dictionaryWithJSONString(objects).has_value(), depth == kJsonMaxDepth);
        QCOMPARE(dictionaryWithJSONString(arrays).has_value(), depth == kJsonMaxDepth);
    }
    // Too deep fails the whole text, even where a closing brace would
    // otherwise rescue the enclosing object.
    QVERIFY(!dictionaryWithJSONString(QStringLiteral("{\"a\":") + QString(kJsonMaxDepth, u'[') + u'}').has_value());

    // The deepest accepted text reads within a fraction of the main thread's
    // stack once the JVM exists (about 1 MB).
    const int pairs = kJsonMaxDepth / 2 - 1; // plus the two innermost objects
    const QString mixed = QStringLiteral("{\"a\":[").repeated(pairs) + QStringLiteral("{\"a\":{\"k\":\"\\u00e9\"}}")
        + QStringLiteral("]}").repeated(pairs);
    bool deepRead = false;
    std::unique_ptr<QThread> reader(QThread::create([&] { deepRead = dictionaryWithJSONString(mixed).has_value(); }));
    reader->setStackSize(256 * 1024);
    reader->start();
    QVERIFY(reader->wait(60000) && deepRead);
}

void TestJson::roundTripsAndTruncation()
{
    const JsonObject document = sampleDocument();
    const QString text = jsonStringValue(document);
    const std::optional<JsonObject> read = dictionaryWithJSONString(text);
    QVERIFY(read && *read == document);
    QCOMPARE(jsonStringValue(*read), text);

    // Every code unit survives as key and value.
    QString all;
    for (int unit = 0; unit <= 0xFFFF; ++unit)
        all += QChar(char16_t(unit));
    const QString allText = jsonStringValue({{all, all}});
    QString expected = all;
    expected[0x5C] = u'\n'; // a backslash comes back as a newline
    QCOMPARE(dictionaryWithJSONString(allText), std::optional<JsonObject>(JsonObject{{expected, expected}}));

    // Every proper prefix of a written document fails (it lacks the last
    // "}"); with closing tokens appended, whatever reads must survive its
    // own write-and-read unchanged.
    const QString closers[] = {QStringLiteral("\"}]}]}]}"), QStringLiteral("}}}}}"), QStringLiteral("\"]}]}\n}")};
    for (qsizetype length = 0; length < text.size(); ++length) {
        const QStringView prefix = QStringView(text).left(length);
        QVERIFY2(!dictionaryWithJSONString(prefix).has_value(), qPrintable(prefix.toString()));
        for (const QString &closer : closers) {
            if (const auto object = dictionaryWithJSONString(prefix.toString() + closer)) {
                const QString rewritten = jsonStringValue(*object);
                QCOMPARE(readBack(rewritten), rewritten);
            }
        }
    }
}

QTEST_APPLESS_MAIN(TestJson)
#include "tst_json.moc"
