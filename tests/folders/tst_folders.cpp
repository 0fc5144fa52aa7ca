#include "folders/ConversionFolder.h"
#include "folders/Folder.h"
#include "platform/SaveFailures.h"
#include "platform/SystemLog.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>
#include <csignal>
#include <memory>
#include <sys/resource.h>

using namespace Qt::StringLiterals;

template <typename F = Folder>
static F folder(const QString &name, qint32 type, const QString &location, const QString &folderId)
{
    F f;
    f.setName(name);
    if constexpr (std::is_same_v<F, Folder>)
        f.setType(type);
    f.setLocation(location);
    f.setFolderId(folderId);
    return f;
}

static void writeFile(const QString &path, const QByteArray &bytes)
{
    QVERIFY(QDir().mkpath(QFileInfo(path).path()));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    QCOMPARE(file.write(bytes), bytes.size());
}

static QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : "<unreadable>";
}

class TestFolders : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        // A fresh home per test: every path of the folder files hangs off $HOME.
        m_home = std::make_unique<QTemporaryDir>();
        qputenv("HOME", QFile::encodeName(m_home->path()));
    }

    void savedBytesAndRoundTrip()
    {
        // Any type but 0 is a playlist; an absent value ends its object, so the
        // emptied one has lost its type and reads back as a playlist.
        const Folder films = folder(u"Films \"été\""_s, Folder::DiskFolder, u"/home/u/Vidéos"_s, u"f1"_s);
        Folder::saveFolders({films, folder(u"Road trip"_s, 7, u"4F2A"_s, u""_s), folder(QString(), Folder::DiskFolder, u"/a"_s, u"x"_s),
                             folder(u"NoPath"_s, Folder::ITunesPlaylist, QString(), u"x"_s),
                             folder(u"NoId"_s, Folder::DiskFolder, u"/b"_s, QString())});
        QCOMPARE(readFile(appFolder() + u"/folders.txt"_s),
                 QByteArray(" { \"folders\" : [ { \"name\" : \"Films \\\"\\u00e9t\\u00e9\\\"\", \"type\" : \"DiskFolder\", "
                            "\"id\" : \"/home/u/Vid\\u00e9os\", \"folderId\" : \"f1\"\n},  { \"name\" : \"Road trip\", "
                            "\"type\" : \"iTunesPlaylist\", \"id\" : \"4F2A\", \"folderId\" : \"\"\n},  {\n},  "
                            "{ \"name\" : \"NoPath\", \"type\" : \"iTunesPlaylist\"\n},  "
                            "{ \"name\" : \"NoId\", \"type\" : \"DiskFolder\", \"id\" : \"/b\"\n}]\n}"));
        QCOMPARE(Folder::loadFolders(), (QList<Folder>{films, folder(u"Road trip"_s, Folder::ITunesPlaylist, u"4F2A"_s, u""_s),
                                                       folder(QString(), Folder::ITunesPlaylist, QString(), QString()),
                                                       folder(u"NoPath"_s, Folder::ITunesPlaylist, QString(), QString()),
                                                       folder(u"NoId"_s, Folder::DiskFolder, u"/b"_s, QString())}));
    }

    void lenientLoading()
    {
        writeFile(appFolder() + u"/folders.txt"_s, R"({"folders": [
            {"name": "A", "type": "DiskFolder", "id": "/a", "folderId": "1"},
            {"name": "B", "type": "Disk", "id": "p", "folderId": "2"},
            {"name": "C", "type": "diskfolder"},
            {"name": "D", "type": 0},
            42, null, "E", [],
            {"name": null, "type": "DiskFolder", "id": null, "folderId": null},
            {"id": 12345678901234567890, "folderId": 0.5, "name": true, "extra": {"x": 1}}
        ]})");
        QCOMPARE(Folder::loadFolders(),
                 (QList<Folder>{folder(u"A"_s, Folder::DiskFolder, u"/a"_s, u"1"_s),
                                folder(u"B"_s, Folder::ITunesPlaylist, u"p"_s, u"2"_s),
                                folder(u"C"_s, Folder::ITunesPlaylist, QString(), QString()),
                                folder(u"D"_s, Folder::ITunesPlaylist, QString(), QString()),
                                folder(QString(), Folder::DiskFolder, QString(), QString()),
                                folder(QString(), Folder::ITunesPlaylist, u"12345678901234567890"_s, u"0.5"_s)}));
    }

    void earlierProductFallback()
    {
        const QByteArray oldText(R"({"folders": [{"name": "Old", "type": "DiskFolder", "id": "/old", "folderId": "o1"}]})");
        const QString oldFile = oldFolder() + u"/folders.txt"_s;
        writeFile(oldFile, oldText);
        const QList<Folder> old = {folder(u"Old"_s, Folder::DiskFolder, u"/old"_s, u"o1"_s)};

        // Missing new file: the earlier one is read, and nothing is copied.
        QCOMPARE(Folder::loadFolders(), old);
        QVERIFY(!QFileInfo::exists(appFolder()));

        // A new file that cannot be read as text counts as missing.
        writeFile(Folder::foldersFileName(), QByteArray("{\"folders\": [{\"name\": \"\xff\xfe\"}]}"));
        QCOMPARE(Folder::loadFolders(), old);

        // A broken, empty or folderless new file is read, and is no folders.
        for (const char *text : {"", "{\"folders\": [", "{\"folders\": null}", "{\"other\": []}",
                                 "{\"folders\": \"text\"}", "[{\"name\": \"x\"}]"}) {
            writeFile(Folder::foldersFileName(), text);
            QVERIFY2(Folder::loadFolders().isEmpty(), text);
        }

        // Saving writes only the new file; conversion folders have no earlier file.
        const QList<Folder> mine = {folder(u"New"_s, Folder::DiskFolder, u"/new"_s, QString())};
        Folder::saveFolders(mine);
        QCOMPARE(Folder::loadFolders(), mine);
        QCOMPARE(readFile(oldFile), oldText);
        writeFile(oldFolder() + u"/conversion-folders.txt"_s, oldText);
        QVERIFY(ConversionFolder::loadFolders().isEmpty());
    }

    void saveReplacesWholeFileAndReportsFailures()
    {
        const QList<Folder> longList = {folder(u"One"_s, Folder::DiskFolder, u"/one/with/a/rather/long/path"_s, u"1"_s),
                                        folder(u"Two"_s, Folder::DiskFolder, u"/two/with/a/rather/long/path"_s, u"2"_s)};
        Folder::saveFolders(longList);
        const QByteArray saved = readFile(Folder::foldersFileName());
        QStringList log;
        SystemLog::setSink([&](const QString &line) { log << line; });

        // A save that cannot be completed (files may not grow beyond 100 bytes)
        // leaves the previous list whole.
        ::signal(SIGXFSZ, SIG_IGN);
        rlimit before, small;
        QCOMPARE(::getrlimit(RLIMIT_FSIZE, &before), 0);
        small = {100, before.rlim_max};
        QCOMPARE(::setrlimit(RLIMIT_FSIZE, &small), 0);
        Folder::saveFolders(longList + longList);
        QCOMPARE(::setrlimit(RLIMIT_FSIZE, &before), 0);
        QVERIFY(readFile(Folder::foldersFileName()) == saved && log.size() == 1);

        // A file in the application folder's place: nothing written, and the log says why.
        QVERIFY(QDir(appFolder()).removeRecursively());
        writeFile(appFolder(), "in the way");
        Folder::saveFolders(longList);
        ConversionFolder::saveFolders({});
        QCOMPARE(readFile(appFolder()), QByteArray("in the way"));
        QCOMPARE(log.size(), 2);
        QVERIFY2(log.last().startsWith(u"Can't save %1: %2 is not a folder"_s.arg(ConversionFolder::foldersFileName(), appFolder())),
                 qPrintable(log.last()));
        QCOMPARE(SaveFailures::instance().files(), (QSet<QString>{Folder::foldersFileName(), ConversionFolder::foldersFileName()}));

        // Saved again once the folder can be made: the failure is over.
        QVERIFY(QFile::remove(appFolder()));
        Folder::saveFolders(longList);
        ConversionFolder::saveFolders({});
        SystemLog::setSink({});
        QVERIFY(!SaveFailures::instance().any() && log.size() == 2);
        QCOMPARE(Folder::loadFolders(), longList);
    }

    void conversionFolders()
    {
        const ConversionFolder a = folder<ConversionFolder>(u"Inbox"_s, 0, u"/srv/inbox"_s, u"c1"_s);
        ConversionFolder::saveFolders({a, folder<ConversionFolder>(u"No path"_s, 0, QString(), u"c2"_s)});
        QCOMPARE(readFile(appFolder() + u"/conversion-folders.txt"_s),
                 QByteArray(" { \"folders\" : [ { \"name\" : \"Inbox\", \"id\" : \"/srv/inbox\", \"folderId\" : \"c1\"\n},  "
                            "{ \"name\" : \"No path\"\n}]\n}"));
        QCOMPARE(ConversionFolder::loadFolders(),
                 (QList<ConversionFolder>{a, folder<ConversionFolder>(u"No path"_s, 0, QString(), QString())}));

        // A "type" member is ignored on loading, and never written back.
        writeFile(ConversionFolder::foldersFileName(),
                  R"({"folders": [{"name": "T", "type": "iTunesPlaylist", "id": "/t", "folderId": null}, "x"]})");
        QCOMPARE(ConversionFolder::loadFolders(), QList<ConversionFolder>{folder<ConversionFolder>(u"T"_s, 0, u"/t"_s, QString())});
        ConversionFolder::saveFolders(ConversionFolder::loadFolders());
        QVERIFY(!readFile(ConversionFolder::foldersFileName()).contains("type"));
    }

private:
    QString appFolder() const { return m_home->path() + u"/Library/Application Support/QuillonServer"_s; }
    QString oldFolder() const { return m_home->path() + u"/Library/Application Support/TarnwickServer"_s; }
    std::unique_ptr<QTemporaryDir> m_home;
};

QTEST_GUILESS_MAIN(TestFolders)
#include "tst_folders.moc"
