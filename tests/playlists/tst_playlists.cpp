#include "platform/Resources.h"
#include "platform/SystemLog.h"
#include "playlists/ITunes.h"
#include "playlists/Playlist.h"

#include <QFile>
#include <QPointer>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QtTest>

using namespace Qt::StringLiterals;

// The whole tree as text, absent strings and absent children included, so
// that two trees compare field by field.
static QString describe(const std::optional<QList<Playlist>> &playlists)
{
    if (!playlists)
        return u"nothing"_s;
    QStringList parts;
    for (const Playlist &p : *playlists)
        parts << (p.itemId().isNull() ? u"<null>"_s : p.itemId()) + u':' + (p.name().isNull() ? u"<null>"_s : p.name())
                + (p.children() ? describe(*p.children()) : QString());
    return u'[' + parts.join(u',') + u']';
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
    void cleanup()
    {
        Resources::setFolder(QString());
        SystemLog::setSink({});
    }

    void treesFromJson()
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
        for (const char *text : {R"({"playlists": null})", R"({"playlists": {"id": "1"}})", R"({"other": []})", "", "not json"})
            QCOMPARE(tree(text), u"nothing"_s);
    }

    void equalityAndHashing()
    {
        // By id alone, case and all, and hashed alike; no id equals nothing, itself included.
        const Playlist a = playlist(u"A"_s, u"One"_s);
        const Playlist sameId = playlist(u"A"_s, u"Other name"_s, QList<Playlist>{a});
        QVERIFY(a == sameId && qHash(a, 17) == qHash(sameId, 17));
        QVERIFY(a != playlist(u"B"_s, u"One"_s) && a != playlist(u"a"_s, u"One"_s));
        const Playlist empty = playlist(u""_s, u"x"_s);
        const Playlist absent = playlist(QString(), u"x"_s);
        QVERIFY(!(empty == empty) && !(absent == absent) && !(empty == absent));
    }

    void archives()
    {
        const QList<Playlist> tree = {
            playlist(u"1"_s, u"Top ☀ 🎵"_s,
                     QList<Playlist>{playlist(u"2"_s, u"Folder"_s, QList<Playlist>{playlist(u"3"_s, QString())}),
                                     playlist(u"4"_s, u""_s, QList<Playlist>{})}),
            playlist(QString(), u"No id"_s),
        };
        const QString expected = u"[1:Top ☀ 🎵[2:Folder[3:<null>],4:[]],<null>:No id]"_s;

        const QByteArray archive = Playlist::archive(tree);
        QCOMPARE(describe(Playlist::unarchive(archive)), expected);

        // Every cut and any trailing byte is refused.
        for (int length = 0; length < archive.size(); ++length)
            QVERIFY2(!Playlist::unarchive(archive.left(length)), qPrintable(QString::number(length)));
        QVERIFY(!Playlist::unarchive(archive + '\0'));

        const auto stream = [](auto writer) {
            QByteArray bytes;
            QDataStream out(&bytes, QIODevice::WriteOnly);
            out.setVersion(QDataStream::Qt_6_0);
            writer(out);
            return bytes;
        };
        // Counts far beyond the bytes present are not allocated up front.
        QVERIFY(!Playlist::unarchive(stream([](QDataStream &out) { out << qint32(0x7fffffff); })));
        QVERIFY(!Playlist::unarchive(stream([](QDataStream &out) { out << qint32(1) << quint32(0xfffffff0); })));
        for (qint32 children : {0x7fffffff, -2})
            QVERIFY(!Playlist::unarchive(stream([children](QDataStream &out) {
                out << qint32(1) << QStringLiteral("id") << QStringLiteral("name") << children;
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
    }

    void loader_data()
    {
        QTest::addColumn<QString>("folder");
        QTest::addColumn<QByteArray>("output");
        QTest::addColumn<QString>("expected");
        QTest::addColumn<QStringList>("log");
        const QString res = QStringLiteral(QUILLON_TEST_BINARY_DIR "/resources");
        // The jar's path and the arguments come back as the second playlist's name.
        QTest::newRow("utf-8") << res << QByteArray(R"({"playlists": [{"id": "A1", "name": "Musique été 🎵"}, {"id": "args", "name": "%ARGS%"}]})")
                               << u"[A1:Musique été 🎵,args:%1/QuillonServer.jar|getPlaylists]"_s.arg(res) << QStringList();
        QStringList large, expected;
        for (int i = 0; i < 20000; ++i) {
            large << u"{\"id\": \"P%1\", \"name\": \"Playlist number %1\"}"_s.arg(i);
            expected << u"P%1:Playlist number %1"_s.arg(i);
        }
        QTest::newRow("more than a pipe holds") << res << (u"{\"playlists\": ["_s + large.join(u", "_s) + u"]}"_s).toUtf8()
                                                << u'[' + expected.join(u',') + u']' << QStringList();
        // No jar: java is not even started.
        QTest::newRow("no jar") << m_noJar.path() << QByteArray() << u"nothing"_s
                                << QStringList{u"Couldn't find QuillonServer.jar in %1"_s.arg(m_noJar.path())};
    }

    void loader()
    {
        QFETCH(QString, folder);
        QFETCH(QByteArray, output);
        QFETCH(QString, expected);
        QFETCH(QStringList, log);
        Resources::setFolder(folder);
        QFile file(m_noJar.filePath(u"playlists.json"_s));
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(output) == output.size());
        file.close();
        qputenv("QUILLON_TEST_PLAYLISTS", QFile::encodeName(file.fileName()));
        QStringList logged;
        SystemLog::setSink([&logged](const QString &line) { logged << line; });

        bool delivered = false;
        std::optional<QList<Playlist>> result;
        QPointer<ITunes> loader = new ITunes;
        const auto guard = qScopeGuard([&loader] { delete loader; });
        loader->setCallback([&](const std::optional<QList<Playlist>> &playlists) {
            QVERIFY(!delivered);
            delivered = true;
            result = playlists;
        });
        loader->loadPlaylists();
        QVERIFY(!delivered); // never answered from inside the call
        QTRY_VERIFY_WITH_TIMEOUT(delivered, 30000);
        QCOMPARE(describe(result), expected);
        QCOMPARE(logged, log);
        QTRY_VERIFY_WITH_TIMEOUT(loader.isNull(), 5000);
    }

private:
    QTemporaryDir m_noJar;
};

QTEST_GUILESS_MAIN(TestPlaylists)
#include "tst_playlists.moc"
