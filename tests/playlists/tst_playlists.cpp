#include "platform/Resources.h"
#include "platform/SystemLog.h"
#include "playlists/ITunes.h"
#include "playlists/Playlist.h"

#include <QFile>
#include <QPointer>
#include <QSet>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

Q_DECLARE_METATYPE(std::optional<QList<Playlist>>)

// The whole tree as text, absent strings and absent children included, so
// that two trees compare field by field.
static QString describe(const QList<Playlist> &playlists);
static QString describe(const Playlist &p)
{
    QString text = (p.itemId().isNull() ? QStringLiteral("<null>") : p.itemId()) + QLatin1Char(':')
        + (p.name().isNull() ? QStringLiteral("<null>") : p.name());
    if (p.children())
        text += describe(*p.children());
    return text;
}
static QString describe(const QList<Playlist> &playlists)
{
    QStringList parts;
    for (const Playlist &p : playlists)
        parts << describe(p);
    return QLatin1Char('[') + parts.join(QLatin1Char(',')) + QLatin1Char(']');
}
static QString describe(const std::optional<QList<Playlist>> &playlists)
{
    return playlists ? describe(*playlists) : QStringLiteral("nothing");
}

static Playlist playlist(const QString &id, const QString &name, std::optional<QList<Playlist>> children = std::nullopt)
{
    Playlist p;
    p.setItemId(id);
    p.setName(name);
    p.setChildren(std::move(children));
    return p;
}

class TestPlaylists : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();

    void treesFromJson();
    void equalityAndHashing();
    void archiveRoundTrip();
    void corruptedArchives();

    void loaderDeliversTree();
    void loaderOutputs_data();
    void loaderOutputs();
    void loaderReadsLargeOutput();
    void loaderLaunchFailures();

private:
    struct Load {
        bool delivered = false;
        std::optional<QList<Playlist>> result;
        QPointer<ITunes> loader;
        int signalCount = 0;
    };
    // Starts a load; the result lands in `load` once delivered.
    static void start(Load &load);
};

void TestPlaylists::initTestCase()
{
    qRegisterMetaType<std::optional<QList<Playlist>>>();
    QVERIFY(QFileInfo::exists(QStringLiteral(QUILLON_TEST_BINARY_DIR "/resources/QuillonServer.jar")));
    QVERIFY(QFileInfo(QStringLiteral("/usr/bin/java")).isExecutable());
}

void TestPlaylists::cleanup()
{
    Resources::setFolder(QString());
    SystemLog::setSink({});
    qunsetenv("QUILLON_TEST_PLAYLISTS");
}

void TestPlaylists::treesFromJson()
{
    const auto tree = [](const char *text) { return describe(Playlist::fromJSONString(QString::fromUtf8(text))); };

    QCOMPARE(tree(R"({"playlists": [
                 {"id": "1", "name": "Top", "children": [
                     {"id": "2", "name": "Folder", "children": [{"id": "3", "name": "Deep", "children": null}]},
                     {"id": "4", "name": "Empty folder", "children": []}]},
                 {"name": "No id", "other": 1},
                 7, "x", null, [],
                 {"id": 99, "name": null, "children": "not a list"}]})"),
             QStringLiteral("[1:Top[2:Folder[3:Deep],4:Empty folder[]],<null>:No id,99:<null>]"));

    QCOMPARE(tree(R"({"playlists": []})"), QStringLiteral("[]"));
    QCOMPARE(tree(R"({"playlists": [{"id": "", "name": ""}]})"), QStringLiteral("[:]"));
    QCOMPARE(tree(R"({"playlists": null})"), QStringLiteral("nothing"));
    QCOMPARE(tree(R"({"playlists": {"id": "1"}})"), QStringLiteral("nothing"));
    QCOMPARE(tree(R"({"other": []})"), QStringLiteral("nothing"));
    QCOMPARE(tree(""), QStringLiteral("nothing"));
    QCOMPARE(tree("not json"), QStringLiteral("nothing"));

    QVERIFY(!Playlist::fromJSON(nullptr));

}

void TestPlaylists::equalityAndHashing()
{
    const Playlist a = playlist(QStringLiteral("A"), QStringLiteral("One"));
    const Playlist sameId = playlist(QStringLiteral("A"), QStringLiteral("Other name"), QList<Playlist>{a});
    const Playlist b = playlist(QStringLiteral("B"), QStringLiteral("One"));
    QVERIFY(a == sameId);
    QCOMPARE(qHash(a, 17), qHash(sameId, 17));
    QVERIFY(a != b);
    QVERIFY(a != playlist(QStringLiteral("a"), QStringLiteral("One")));

    // No id: equal to nothing, itself included.
    const Playlist empty = playlist(QStringLiteral(""), QStringLiteral("x"));
    const Playlist absent = playlist(QString(), QStringLiteral("x"));
    QVERIFY(!(empty == empty));
    QVERIFY(!(absent == absent));
    QVERIFY(!(empty == absent));

    const QSet<Playlist> set{a, sameId, b};
    QCOMPARE(set.size(), 2);
    QVERIFY(set.contains(playlist(QStringLiteral("B"), QString())));
    QVERIFY(!set.contains(playlist(QStringLiteral("C"), QStringLiteral("One"))));
}

void TestPlaylists::archiveRoundTrip()
{
    const QList<Playlist> tree = {
        playlist(QStringLiteral("1"), QStringLiteral("Top ☀ 🎵"),
                 QList<Playlist>{playlist(QStringLiteral("2"), QStringLiteral("Folder"),
                                          QList<Playlist>{playlist(QStringLiteral("3"), QString())}),
                                 playlist(QStringLiteral("4"), QStringLiteral(""), QList<Playlist>{})}),
        playlist(QString(), QStringLiteral("No id")),
    };
    const QString expected = QStringLiteral("[1:Top ☀ 🎵[2:Folder[3:<null>],4:[]],<null>:No id]");
    QCOMPARE(describe(tree), expected);

    // One record through the stream operators.
    QByteArray bytes;
    {
        QDataStream out(&bytes, QIODevice::WriteOnly);
        out << tree[0] << tree[1];
    }
    QDataStream in(bytes);
    Playlist first;
    Playlist second;
    in >> first >> second;
    QCOMPARE(in.status(), QDataStream::Ok);
    QVERIFY(in.atEnd());
    QVERIFY(first == tree[0]);
    QCOMPARE(describe(QList<Playlist>{first, second}), expected);

    // A whole list, as dragged.
    QCOMPARE(describe(Playlist::unarchive(Playlist::archive(tree))), expected);
    QCOMPARE(describe(Playlist::unarchive(Playlist::archive({}))), QStringLiteral("[]"));
}

void TestPlaylists::corruptedArchives()
{
    const QList<Playlist> tree = {
        playlist(QStringLiteral("1"), QStringLiteral("Top"),
                 QList<Playlist>{playlist(QStringLiteral("2"), QStringLiteral("Child"), QList<Playlist>{})}),
        playlist(QStringLiteral("3"), QStringLiteral("Other")),
    };
    const QByteArray archive = Playlist::archive(tree);

    // Every cut and any trailing byte is refused.
    for (int length = 0; length < archive.size(); ++length)
        QVERIFY2(!Playlist::unarchive(archive.left(length)), qPrintable(QString::number(length)));
    QVERIFY(!Playlist::unarchive(archive + '\0'));

    // Damaged bytes never crash; what they read as does not matter.
    for (int i = 0; i < archive.size(); ++i) {
        for (char value : {'\x00', '\x7f', '\x80', '\xff'}) {
            QByteArray damaged = archive;
            damaged[i] = value;
            (void)Playlist::unarchive(damaged);
        }
    }

    const auto stream = [](auto writer) {
        QByteArray bytes;
        QDataStream out(&bytes, QIODevice::WriteOnly);
        out.setVersion(QDataStream::Qt_6_0);
        writer(out);
        return bytes;
    };
    // Counts far beyond the bytes present are not allocated up front.
    QVERIFY(!Playlist::unarchive(stream([](QDataStream &out) { out << qint32(0x7fffffff); })));
    QVERIFY(!Playlist::unarchive(stream([](QDataStream &out) {
        out << qint32(1) << QStringLiteral("id") << QStringLiteral("name") << qint32(0x7fffffff);
    })));
    QVERIFY(!Playlist::unarchive(stream([](QDataStream &out) { out << qint32(1) << quint32(0xfffffff0); })));
    QVERIFY(!Playlist::unarchive(stream([](QDataStream &out) {
        out << qint32(1) << QStringLiteral("id") << QStringLiteral("name") << qint32(-2);
    })));

    // Nesting: a few hundred levels read, a hundred thousand are refused.
    const auto nested = [&](int levels) {
        return stream([levels](QDataStream &out) {
            out << qint32(1);
            for (int i = 0; i < levels; ++i)
                out << QStringLiteral("n") << QString() << qint32(1);
            out << QStringLiteral("leaf") << QString() << qint32(-1);
        });
    };
    QVERIFY(Playlist::unarchive(nested(200)));
    QVERIFY(!Playlist::unarchive(nested(100000)));

    // The stream operator reports the failure and leaves an empty record.
    Playlist p = playlist(QStringLiteral("keep"), QStringLiteral("me"));
    QDataStream in(archive.left(archive.size() - 3));
    qint32 count = 0;
    in >> count >> p >> p;
    QVERIFY(in.status() != QDataStream::Ok);
    QVERIFY(p.itemId().isNull());
    QVERIFY(p.name().isNull());
    QVERIFY(!p.children());
}

void TestPlaylists::start(Load &load)
{
    auto *loader = new ITunes;
    load.loader = loader;
    connect(loader, &ITunes::playlistsLoaded, loader, [&load] { ++load.signalCount; });
    loader->setCallback([&load](const std::optional<QList<Playlist>> &playlists) {
        QVERIFY(!load.delivered);
        load.delivered = true;
        load.result = playlists;
    });
    loader->loadPlaylists();
    // Never answered from inside the call.
    QVERIFY(!load.delivered);
}

void TestPlaylists::loaderDeliversTree()
{
    Resources::setFolder(QStringLiteral(QUILLON_TEST_BINARY_DIR "/resources"));
    qputenv("QUILLON_TEST_PLAYLISTS", "tree");
    Load load;
    start(load);
    QTRY_VERIFY_WITH_TIMEOUT(load.delivered, 30000);
    QCOMPARE(load.signalCount, 1);
    // The arguments come back as the second playlist's name.
    const QString arguments = QStringLiteral(QUILLON_TEST_BINARY_DIR "/resources/QuillonServer.jar|getPlaylists");
    QCOMPARE(describe(load.result),
             QStringLiteral("[A1:Musique été 🎵[A2:Inner[],A3:Leaf],args:%1]").arg(arguments));
    QTRY_VERIFY_WITH_TIMEOUT(load.loader.isNull(), 5000);
}

void TestPlaylists::loaderOutputs_data()
{
    QTest::addColumn<QByteArray>("mode");
    QTest::addColumn<QString>("expected");
    QTest::newRow("empty list") << QByteArray("empty-list") << QStringLiteral("[]");
    QTest::newRow("null list") << QByteArray("null-list") << QStringLiteral("nothing");
    QTest::newRow("not json") << QByteArray("garbage") << QStringLiteral("nothing");
    QTest::newRow("no output") << QByteArray("silent") << QStringLiteral("nothing");
    QTest::newRow("exit status ignored") << QByteArray("exit-3") << QStringLiteral("[E:Exit status]");
}

void TestPlaylists::loaderOutputs()
{
    QFETCH(QByteArray, mode);
    QFETCH(QString, expected);
    Resources::setFolder(QStringLiteral(QUILLON_TEST_BINARY_DIR "/resources"));
    qputenv("QUILLON_TEST_PLAYLISTS", mode);
    Load load;
    start(load);
    QTRY_VERIFY_WITH_TIMEOUT(load.delivered, 30000);
    QCOMPARE(describe(load.result), expected);
    QTRY_VERIFY_WITH_TIMEOUT(load.loader.isNull(), 5000);
}

void TestPlaylists::loaderReadsLargeOutput()
{
    Resources::setFolder(QStringLiteral(QUILLON_TEST_BINARY_DIR "/resources"));

    // More output than a pipe buffers.
    qputenv("QUILLON_TEST_PLAYLISTS", "large");
    Load large;
    start(large);
    QTRY_VERIFY_WITH_TIMEOUT(large.delivered, 30000);
    QVERIFY(large.result);
    QCOMPARE(large.result->size(), 20000);
    QCOMPARE(large.result->last().name(), QStringLiteral("Playlist number 19999"));
    QTRY_VERIFY_WITH_TIMEOUT(large.loader.isNull(), 5000);
}

void TestPlaylists::loaderLaunchFailures()
{
    QStringList log;
    SystemLog::setSink([&log](const QString &line) { log << line; });

    // No jar in the resource folder: java is not even started.
    QTemporaryDir empty;
    Resources::setFolder(empty.path());
    Load noJar;
    start(noJar);
    QTRY_VERIFY_WITH_TIMEOUT(noJar.delivered, 5000);
    QCOMPARE(describe(noJar.result), QStringLiteral("nothing"));
    QCOMPARE(log.size(), 1);
    QVERIFY2(log[0].contains(QLatin1String("QuillonServer.jar")), qPrintable(log[0]));
    QTRY_VERIFY_WITH_TIMEOUT(noJar.loader.isNull(), 5000);

    // A jar that java cannot run: java complains on its own error output
    // and prints nothing.
    log.clear();
    QFile bogus(empty.filePath(QStringLiteral("QuillonServer.jar")));
    QVERIFY(bogus.open(QIODevice::WriteOnly));
    bogus.write("this is not a zip file");
    bogus.close();
    Load badJar;
    start(badJar);
    QTRY_VERIFY_WITH_TIMEOUT(badJar.delivered, 30000);
    QCOMPARE(describe(badJar.result), QStringLiteral("nothing"));
    QVERIFY(log.isEmpty());
    QTRY_VERIFY_WITH_TIMEOUT(badJar.loader.isNull(), 5000);
}

QTEST_GUILESS_MAIN(TestPlaylists)
#include "tst_playlists.moc"
