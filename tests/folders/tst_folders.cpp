#include "folders/ConversionFolder.h"
#include "folders/Folder.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>
#include <memory>
#include <unistd.h>

static const QByteArray kEmptyFile(" { \"folders\" : []\n}");

class TestFolders : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void pathsAndFirstSave();
    void savedTextAndRoundTrip();
    void absentValuesEndTheObject();
    void lenientLoading();
    void earlierProductFallback();
    void saveOverwritesInPlaceAndFailsSilently();
    void conversionFolders();

private:
    QString appFolder() const { return m_home->path() + QStringLiteral("/Library/Application Support/QuillonServer"); }
    QString oldFolder() const { return m_home->path() + QStringLiteral("/Library/Application Support/TarnwickServer"); }
    static void writeFile(const QString &path, const QByteArray &bytes);
    static QByteArray readFile(const QString &path);

    std::unique_ptr<QTemporaryDir> m_home;
};

static Folder folder(const QString &name, qint32 type, const QString &location, const QString &folderId)
{
    Folder f;
    f.setName(name);
    f.setType(type);
    f.setLocation(location);
    f.setFolderId(folderId);
    return f;
}

void TestFolders::writeFile(const QString &path, const QByteArray &bytes)
{
    QVERIFY(QDir().mkpath(QFileInfo(path).path()));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    QCOMPARE(file.write(bytes), bytes.size());
}

QByteArray TestFolders::readFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray("<unreadable>");
    return file.readAll();
}

void TestFolders::init()
{
    // A fresh home per test: every path of the folder files hangs off $HOME.
    m_home = std::make_unique<QTemporaryDir>();
    QVERIFY(m_home->isValid());
    qputenv("HOME", QFile::encodeName(m_home->path()));
    QCOMPARE(QDir::homePath(), m_home->path());
}

void TestFolders::cleanup()
{
    m_home.reset();
}

void TestFolders::pathsAndFirstSave()
{
    QCOMPARE(Folder::foldersFileName(), appFolder() + QStringLiteral("/folders.txt"));
    QCOMPARE(Folder::alternativeFoldersFileName(), oldFolder() + QStringLiteral("/folders.txt"));
    QCOMPARE(ConversionFolder::foldersFileName(), appFolder() + QStringLiteral("/conversion-folders.txt"));

    QVERIFY(Folder::loadFolders().isEmpty());
    QVERIFY(ConversionFolder::loadFolders().isEmpty());
    // Neither the folder nor its parents ("Library/Application Support") exist yet.
    Folder::saveFolders({});
    QCOMPARE(readFile(Folder::foldersFileName()), kEmptyFile);
    ConversionFolder::saveFolders({});
    QCOMPARE(readFile(ConversionFolder::foldersFileName()), kEmptyFile);
}

void TestFolders::savedTextAndRoundTrip()
{
    Folder::saveFolders({folder(QStringLiteral("Movies"), Folder::DiskFolder, QStringLiteral("/Users/x/Movies"),
                                QStringLiteral("abc"))});
    QCOMPARE(readFile(Folder::foldersFileName()),
             QByteArray(" { \"folders\" : [ { \"name\" : \"Movies\", \"type\" : \"DiskFolder\", "
                        "\"id\" : \"/Users/x/Movies\", \"folderId\" : \"abc\"\n}]\n}"));

    // Any type but 0 is a playlist; names outside ASCII and quotes survive.
    const QList<Folder> folders = {
        folder(QStringLiteral("Films \"d'été\" 🎬"), Folder::DiskFolder, QStringLiteral("/home/u/Vidéos"), QStringLiteral("f1")),
        folder(QStringLiteral("Road trip"), 7, QStringLiteral("4F2A99C0D1E2"), QStringLiteral("f2")),
        folder(QStringLiteral("Party"), Folder::ITunesPlaylist, QStringLiteral("77"), QStringLiteral("")),
        folder(QStringLiteral(""), Folder::DiskFolder, QStringLiteral(""), QStringLiteral("f4")),
    };
    Folder::saveFolders(folders);
    QList<Folder> expected = folders;
    expected[1].setType(Folder::ITunesPlaylist);
    QCOMPARE(Folder::loadFolders(), expected);
}

void TestFolders::absentValuesEndTheObject()
{
    Folder::saveFolders({
        folder(QString(), Folder::DiskFolder, QStringLiteral("/a"), QStringLiteral("x")),
        folder(QStringLiteral("NoPath"), Folder::ITunesPlaylist, QString(), QStringLiteral("x")),
        folder(QStringLiteral("NoId"), Folder::DiskFolder, QStringLiteral("/b"), QString()),
    });
    QCOMPARE(readFile(Folder::foldersFileName()),
             QByteArray(" { \"folders\" : [ {\n},  { \"name\" : \"NoPath\", \"type\" : \"iTunesPlaylist\"\n},  "
                        "{ \"name\" : \"NoId\", \"type\" : \"DiskFolder\", \"id\" : \"/b\"\n}]\n}"));

    // The empty object has lost its type too: it reads back as a playlist.
    QCOMPARE(Folder::loadFolders(),
             (QList<Folder>{folder(QString(), Folder::ITunesPlaylist, QString(), QString()),
                            folder(QStringLiteral("NoPath"), Folder::ITunesPlaylist, QString(), QString()),
                            folder(QStringLiteral("NoId"), Folder::DiskFolder, QStringLiteral("/b"), QString())}));
}

void TestFolders::lenientLoading()
{
    const QString file = appFolder() + QStringLiteral("/folders.txt");
    for (const char *text : {"", "{\"folders\": [", "{\"folders\": null}", "{\"other\": []}",
                             "{\"folders\": \"text\"}", "[{\"name\": \"x\"}]"}) {
        writeFile(file, text);
        QVERIFY2(Folder::loadFolders().isEmpty(), text);
    }

    writeFile(file, R"({"folders": [
        {"name": "A", "type": "DiskFolder", "id": "/a", "folderId": "1"},
        {"name": "B", "type": "Disk", "id": "p", "folderId": "2"},
        {"name": "C", "type": "diskfolder"},
        {"name": "D", "type": 0},
        42, null, "E", [],
        {"name": null, "type": "DiskFolder", "id": null, "folderId": null},
        {"id": 12345678901234567890, "folderId": 0.5, "name": true, "extra": {"x": 1}}
    ]})");
    const QList<Folder> loaded = Folder::loadFolders();
    QCOMPARE(loaded.size(), 6);
    QCOMPARE(loaded[0], folder(QStringLiteral("A"), Folder::DiskFolder, QStringLiteral("/a"), QStringLiteral("1")));
    QCOMPARE(loaded[1], folder(QStringLiteral("B"), Folder::ITunesPlaylist, QStringLiteral("p"), QStringLiteral("2")));
    QVERIFY(loaded[2].type() == Folder::ITunesPlaylist && loaded[3].type() == Folder::ITunesPlaylist);
    QCOMPARE(loaded[4], folder(QString(), Folder::DiskFolder, QString(), QString()));
    QCOMPARE(loaded[5], folder(QString(), Folder::ITunesPlaylist, QStringLiteral("12345678901234567890"),
                               QStringLiteral("0.5")));
}

void TestFolders::earlierProductFallback()
{
    const QByteArray oldText(R"({"folders": [{"name": "Old", "type": "DiskFolder", "id": "/old", "folderId": "o1"}]})");
    const QString oldFile = oldFolder() + QStringLiteral("/folders.txt");
    writeFile(oldFile, oldText);
    const QList<Folder> old = {folder(QStringLiteral("Old"), Folder::DiskFolder, QStringLiteral("/old"), QStringLiteral("o1"))};

    // Missing new file: the earlier one is read, and nothing is copied.
    QCOMPARE(Folder::loadFolders(), old);
    QVERIFY(!QFileInfo::exists(appFolder()));

    // A new file that cannot be read as text counts as missing.
    writeFile(Folder::foldersFileName(), QByteArray("{\"folders\": [{\"name\": \"\xff\xfe\"}]}"));
    QCOMPARE(Folder::loadFolders(), old);
    QVERIFY(QFile::remove(Folder::foldersFileName()));
    QVERIFY(QDir().mkpath(Folder::foldersFileName()));
    QCOMPARE(Folder::loadFolders(), old);
    QVERIFY(QDir().rmdir(Folder::foldersFileName()));

    // A broken or empty new file is read, and is no folders.
    writeFile(Folder::foldersFileName(), "{\"folders\": [{");
    QVERIFY(Folder::loadFolders().isEmpty());
    writeFile(Folder::foldersFileName(), "");
    QVERIFY(Folder::loadFolders().isEmpty());

    // Saving writes only the new file.
    const QList<Folder> mine = {folder(QStringLiteral("New"), Folder::DiskFolder, QStringLiteral("/new"), QString())};
    Folder::saveFolders(mine);
    QCOMPARE(Folder::loadFolders(), mine);
    QCOMPARE(readFile(oldFile), oldText);

    // Conversion folders have no earlier file.
    writeFile(oldFolder() + QStringLiteral("/conversion-folders.txt"), oldText);
    QVERIFY(ConversionFolder::loadFolders().isEmpty());
}

void TestFolders::saveOverwritesInPlaceAndFailsSilently()
{
    const QList<Folder> longList = {
        folder(QStringLiteral("One"), Folder::DiskFolder, QStringLiteral("/one/with/a/rather/long/path"), QStringLiteral("1")),
        folder(QStringLiteral("Two"), Folder::DiskFolder, QStringLiteral("/two/with/a/rather/long/path"), QStringLiteral("2")),
    };
    Folder::saveFolders(longList);
    // A second name for the same file sees the new text: the file is
    // rewritten, not replaced by another one, and a shorter text leaves no tail.
    const QString alias = m_home->path() + QStringLiteral("/alias.txt");
    QCOMPARE(::link(QFile::encodeName(Folder::foldersFileName()).constData(), QFile::encodeName(alias).constData()), 0);
    Folder::saveFolders({});
    QCOMPARE(readFile(alias), kEmptyFile);

    // The application folder's place is taken by a file: nothing can be
    // written, nothing crashes, and loading finds no file.
    QVERIFY(QFile::remove(alias));
    QVERIFY(QDir(appFolder()).removeRecursively());
    writeFile(appFolder(), "in the way");
    Folder::saveFolders(longList);
    ConversionFolder::saveFolders({});
    QCOMPARE(readFile(appFolder()), QByteArray("in the way"));
    QVERIFY(Folder::loadFolders().isEmpty());
    QVERIFY(ConversionFolder::loadFolders().isEmpty());
}

void TestFolders::conversionFolders()
{
    ConversionFolder a;
    a.setName(QStringLiteral("Inbox"));
    a.setLocation(QStringLiteral("/srv/inbox"));
    a.setFolderId(QStringLiteral("c1"));
    ConversionFolder b;
    b.setName(QStringLiteral("No path"));
    b.setFolderId(QStringLiteral("c2"));
    ConversionFolder::saveFolders({a, b});
    QCOMPARE(readFile(ConversionFolder::foldersFileName()),
             QByteArray(" { \"folders\" : [ { \"name\" : \"Inbox\", \"id\" : \"/srv/inbox\", \"folderId\" : \"c1\"\n},  "
                        "{ \"name\" : \"No path\"\n}]\n}"));
    // The shared folders file is a different file.
    QVERIFY(!QFileInfo::exists(Folder::foldersFileName()));

    ConversionFolder bWithoutId = b;
    bWithoutId.setFolderId(QString());
    QCOMPARE(ConversionFolder::loadFolders(), (QList<ConversionFolder>{a, bWithoutId}));

    // A "type" member is ignored on loading, and never written back.
    writeFile(ConversionFolder::foldersFileName(),
              R"({"folders": [{"name": "T", "type": "iTunesPlaylist", "id": "/t", "folderId": null}, "x"]})");
    ConversionFolder t;
    t.setName(QStringLiteral("T"));
    t.setLocation(QStringLiteral("/t"));
    QCOMPARE(ConversionFolder::loadFolders(), QList<ConversionFolder>{t});
    ConversionFolder::saveFolders(ConversionFolder::loadFolders());
    QVERIFY(!readFile(ConversionFolder::foldersFileName()).contains("type"));
}

QTEST_GUILESS_MAIN(TestFolders)
#include "tst_folders.moc"
