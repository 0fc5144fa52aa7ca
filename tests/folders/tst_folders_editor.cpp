#include "folders/ConversionFoldersController.h"
#include "folders/FolderTableView.h"
#include "folders/SharedFoldersController.h"
#include "platform/Defaults.h"
#include "platform/Resources.h"
#include "platform/SystemLog.h"
#include "playlists/ITunesPlaylistsController.h"

#include <QApplication>
#include <QFileDialog>
#include <QPushButton>
#include <QVBoxLayout>
#include <QtTest>

using namespace Qt::StringLiterals;
using Drop = FoldersEditor::DropOperation;

namespace {

template <class List>
QStringList namesOf(const List &folders)
{
    QStringList result;
    for (const auto &folder : folders)
        result << folder.name();
    return result;
}
template <class Controller>
QStringList names(const Controller *controller) { return namesOf(controller->folders()); }

// Disk folders named as given, at /m/<name>, written to the record's file.
template <class Record>
void writeFolders(const QStringList &names)
{
    QList<Record> folders(names.size());
    for (qsizetype i = 0; i < names.size(); ++i) {
        folders[i].setName(names[i]);
        folders[i].setLocation(u"/m/"_s + names[i]);
    }
    Record::saveFolders(folders);
}

std::unique_ptr<QMimeData> mimeData(const QString &type, const QByteArray &bytes)
{
    auto data = std::make_unique<QMimeData>();
    data->setData(type, bytes);
    return data;
}
std::unique_ptr<QMimeData> rowsData(const QString &type, const QList<int> &rows)
{
    return mimeData(type, FoldersEditor::dataFromRows(rows));
}

std::unique_ptr<QMimeData> filesData(const QStringList &paths)
{
    auto data = std::make_unique<QMimeData>();
    QList<QUrl> urls;
    for (const QString &path : paths)
        urls << (path.contains(u"://") ? QUrl(path) : QUrl::fromLocalFile(path));
    data->setUrls(urls);
    return data;
}

Playlist playlist(const QString &id, const QString &name)
{
    Playlist p;
    p.setItemId(id);
    p.setName(name);
    return p;
}

std::unique_ptr<QMimeData> playlistsData(const QList<Playlist> &playlists)
{
    return mimeData(QString::fromLatin1(ITunesPlaylistPBoardType), Playlist::archive(playlists));
}

QStringList selected(FoldersEditor *editor)
{
    QStringList names;
    for (const QModelIndex &index : editor->tableView()->selectionModel()->selectedRows())
        names << index.data().toString();
    return names << editor->tableView()->currentIndex().data().toString();
}

}

class TestFoldersEditor : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        Resources::setFolder(m_resources.path()); // no server jar: the picker's playlist load fails at once
        m_home = std::make_unique<QTemporaryDir>();
        qputenv("HOME", QFile::encodeName(m_home->path()));
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_home->filePath(u"config"_s)));
        Defaults::resetStandard();
        // One content widget with the layout the window gives it, one without.
        m_sharedContent = std::make_unique<QWidget>();
        new QVBoxLayout(m_sharedContent.get());
        m_conversionContent = std::make_unique<QWidget>();
        m_shared = new SharedFoldersController(m_sharedContent.get());
        m_conversion = new ConversionFoldersController(m_conversionContent.get());
        m_shared->awakeFromNib();
        m_conversion->awakeFromNib();
    }

    void namingAndColumns()
    {
        seed({u"movies"_s, u"50%1 off"_s}, {u"incoming"_s});
        m_shared->addFolder(u"/Volumes/Media/Movies"_s, -1);
        m_shared->addFolder(u"/Volumes/Other/Movies/"_s, 0);
        m_shared->addFolder(u"/x/50%1 off"_s, -1);
        m_shared->addFolder(u"/Volumes/Media/Movies"_s, -1); // the same path twice is fine
        QCOMPARE(names(m_shared), (QStringList{u"Movies 3"_s, u"movies"_s, u"50%1 off"_s, u"Movies 2"_s,
                                               u"50%1 off 2"_s, u"Movies 4"_s}));
        QCOMPARE(FoldersEditor::lastPathComponent(u"/"_s), u"/"_s);

        m_shared->addITunesPlaylist(playlist(u"4F2A"_s, u"Movies"_s), 1);
        QCOMPARE(m_shared->objectValueForTableColumn(u"name"_s, 1), QVariant(u"Movies 5"_s));
        QCOMPARE(m_shared->objectValueForTableColumn(u"type"_s, 0), QVariant(u"/Volumes/Other/Movies/"_s));
        QCOMPARE(m_shared->tableView()->model()->index(1, 1).data(), QVariant(u"iTunes Playlist"_s));

        m_conversion->addFolder(u"/Users/x/Incoming"_s, -1);
        QCOMPARE(m_conversion->objectValueForTableColumn(u"name"_s, 1), QVariant(u"Incoming 2"_s));
        QCOMPARE(m_conversion->objectValueForTableColumn(u"path"_s, 1), QVariant(u"/Users/x/Incoming"_s));

        // Every candidate taken: the duplicate is accepted.
        QStringList crowded{u"Show"_s};
        for (int i = 2; i <= 9999; ++i)
            crowded << u"show %1"_s.arg(i);
        seed(crowded);
        QCOMPARE(m_shared->getValidNewFolderName(u"Show"_s), u"Show"_s);
    }

    // The same moves through both tables, each from [A, B, C, D]; the files
    // hold the result.
    void rowMovesKeepDraggedOrder()
    {
        const QStringList start{u"A"_s, u"B"_s, u"C"_s, u"D"_s};
        struct Case { QList<int> rows; int to; QStringList expected; };
        const QList<Case> cases{
            {{0, 2}, 4, {u"B"_s, u"D"_s, u"A"_s, u"C"_s}},
            {{0, 2}, 0, {u"A"_s, u"C"_s, u"B"_s, u"D"_s}},
            {{2, 0}, 1, {u"C"_s, u"A"_s, u"B"_s, u"D"_s}},     // in the dragged order
            {{1, 7, -3, 1}, -1, {u"A"_s, u"C"_s, u"D"_s, u"B"_s}}, // rows not there are skipped; -1 is the end
        };
        for (const Case &c : cases) {
            seed(start, start);
            const auto shared = rowsData(u"TarnwickServerRows"_s, c.rows);
            const auto conversion = rowsData(u"QuillonServerConversionFolderRows"_s, c.rows);
            QCOMPARE(m_shared->validateDrop(shared.get(), c.to, Drop::Above), Qt::MoveAction);
            QVERIFY(m_shared->acceptDrop(shared.get(), c.to, Drop::Above));
            QVERIFY(m_conversion->acceptDrop(conversion.get(), c.to, Drop::Above));
            QCOMPARE(namesOf(Folder::loadFolders()), c.expected);
            QCOMPARE(namesOf(ConversionFolder::loadFolders()), c.expected);
        }
        // Bytes that are no row list move nothing.
        seed(start);
        QVERIFY(m_shared->acceptDrop(mimeData(u"TarnwickServerRows"_s, QByteArray("\x00\x00\x7f\xff\x00\x00\x00\x01", 8)).get(), 0, Drop::Above));
        QCOMPARE(names(m_shared), start);
    }

    void droppedFoldersAndPlaylists()
    {
        const QString x = makeDir(u"X"_s), y = makeDir(u"Y"_s), file = QCoreApplication::applicationFilePath();
        // Non-folders, missing paths and remote files are passed over; a trailing
        // slash does not leave the name empty.
        const auto drop = filesData({x + u"/"_s, file, m_home->filePath(u"gone"_s), u"sftp://h/Z"_s, y});
        seed({u"A"_s, u"B"_s});
        QCOMPARE(m_shared->validateDrop(drop.get(), 1, Drop::Above), Qt::CopyAction);
        QVERIFY(m_shared->acceptDrop(drop.get(), 1, Drop::Above));
        QCOMPARE(names(m_shared), (QStringList{u"A"_s, u"Y"_s, u"X"_s, u"B"_s}));
        QVERIFY(m_shared->folders().at(2).location() == x && m_shared->folders().at(2).type() == Folder::DiskFolder);

        // Playlists land like folders: each above the same row.
        const auto playlists = playlistsData({playlist(u"P1"_s, u"Road"_s), playlist(u"P2"_s, u"a"_s)});
        QCOMPARE(m_shared->validateDrop(playlists.get(), 0, Drop::Above), Qt::CopyAction);
        QVERIFY(m_shared->acceptDrop(playlists.get(), 0, Drop::Above));
        QCOMPARE(names(m_shared), (QStringList{u"a 2"_s, u"Road"_s, u"A"_s, u"Y"_s, u"X"_s, u"B"_s}));
        const Folder saved = Folder::loadFolders().at(0);
        QVERIFY(saved.type() == Folder::ITunesPlaylist && saved.location() == u"P2"_s && saved.folderId().isNull());
    }

    void refusedDrops()
    {
        seed({u"A"_s, u"B"_s}, {u"A"_s, u"B"_s});
        const QString folder = makeDir(u"F"_s);
        const std::unique_ptr<QMimeData> all[] = {rowsData(u"TarnwickServerRows"_s, {0}), rowsData(u"QuillonServerConversionFolderRows"_s, {0}),
                                                  filesData({folder}), playlistsData({playlist(u"P"_s, u"P"_s)})};
        for (const auto &data : all) { // onto a row rather than between rows
            QCOMPARE(m_shared->validateDrop(data.get(), 1, Drop::On), Qt::IgnoreAction);
            QVERIFY(!m_shared->acceptDrop(data.get(), 1, Drop::On));
        }
        // The other table's rows and playlists are strangers here.
        for (int i : {0, 3})
            QCOMPARE(m_conversion->validateDrop(all[i].get(), 1, Drop::Above), Qt::IgnoreAction);
        QCOMPARE(m_shared->validateDrop(all[1].get(), 1, Drop::Above), Qt::IgnoreAction);
        QVERIFY(m_conversion->acceptDrop(all[3].get(), 1, Drop::Above)); // taken, and nothing done
        QCOMPARE(m_conversion->validateDrop(filesData({m_home->filePath(u"gone"_s)}).get(), 1, Drop::Above),
                 Qt::IgnoreAction);
        QCOMPARE(names(m_conversion), (QStringList{u"A"_s, u"B"_s}));

        // Rows come before files when a drag carries both.
        auto both = rowsData(u"TarnwickServerRows"_s, {1});
        both->setUrls({QUrl::fromLocalFile(folder)});
        QCOMPARE(m_shared->validateDrop(both.get(), 0, Drop::Above), Qt::MoveAction);
        QCOMPARE(m_conversion->validateDrop(both.get(), 0, Drop::Above), Qt::CopyAction);

        // Before awakeFromNib the table takes nothing.
        {
            QWidget content;
            auto *fresh = new ConversionFoldersController(&content);
            QCOMPARE(fresh->validateDrop(all[1].get(), 0, Drop::Above), Qt::IgnoreAction);
            QVERIFY(content.layout() && content.layout()->count() == 1);
        }
    }

    void editsAreSavedAndReadBack()
    {
        seed({u"A"_s, u"B"_s});
        // A rename is taken as typed, even when another row has the name.
        QAbstractItemModel *model = m_shared->tableView()->model();
        QVERIFY(model->setData(model->index(1, 0), u"a"_s));
        QTRY_COMPARE(Folder::loadFolders().at(1).name(), u"a"_s); // the view shows a rename: selectionStaysOnItsRecords
        m_shared->setObjectValue(u""_s, u"type"_s, 0);
        QCOMPARE(names(m_shared), (QStringList{u""_s, u"a"_s}));
        QVERIFY(model->flags(model->index(0, 0)) & Qt::ItemIsEditable);
        QVERIFY(!(model->flags(model->index(0, 1)) & Qt::ItemIsEditable));

        // What cannot be written does not stay in the table either.
        QVERIFY(QFile::remove(Folder::foldersFileName()));
        QVERIFY(QDir().mkdir(Folder::foldersFileName()));
        m_shared->addFolder(makeDir(u"New"_s), -1);
        m_shared->save();
        QCOMPARE(m_shared->numberOfRowsInTableView(), 0);
    }

    void buttons()
    {
        seed({u"A"_s, u"B"_s, u"C"_s, u"D"_s}, {u"A"_s});
        const QString chosen = makeDir(u"Chosen"_s);
        QTimer::singleShot(0, [&] {
            QTRY_VERIFY(QApplication::activeModalWidget());
            auto *files = qobject_cast<QFileDialog *>(QApplication::activeModalWidget());
            QVERIFY(files && files->fileMode() == QFileDialog::Directory);
            files->setDirectory(m_home->path());
            files->selectFile(u"Chosen"_s);
            static_cast<QDialog *>(files)->accept();
        });
        m_conversion->tableView()->selectRow(0);
        m_conversionContent->findChild<QPushButton *>(u"addFolderButton"_s)->click();
        QCOMPARE(ConversionFolder::loadFolders().last().location(), chosen);
        QCOMPARE(names(m_conversion), (QStringList{u"A"_s, u"Chosen"_s}));
        QCOMPARE(selected(m_conversion), (QStringList{u"A"_s, u"A"_s}));

        QTableView *view = m_shared->tableView();
        view->selectionModel()->select(view->model()->index(0, 0), QItemSelectionModel::Select | QItemSelectionModel::Rows);
        view->selectionModel()->select(view->model()->index(2, 1), QItemSelectionModel::Select | QItemSelectionModel::Rows);
        m_sharedContent->findChild<QPushButton *>(u"removeSelectedButton"_s)->click();
        QCOMPARE(namesOf(Folder::loadFolders()), (QStringList{u"B"_s, u"D"_s}));
        QVERIFY(!view->selectionModel()->hasSelection());
        m_conversion->tableView()->clearSelection();
        m_conversionContent->findChild<QPushButton *>(u"removefolderButton"_s)->click(); // nothing selected
        QCOMPARE(names(m_conversion), (QStringList{u"A"_s, u"Chosen"_s}));
    }

    // Saving reads the list back from the file; a rename or an add from the
    // picker (or the open panel, in buttons) leaves the selection on the same records.
    void selectionStaysOnItsRecords()
    {
        seed({u"A"_s, u"B"_s, u"C"_s});
        m_shared->tableView()->selectRow(1);
        m_shared->setObjectValue(u"Renamed"_s, u"name"_s, 1);
        m_shared->setObjectValue(u"First"_s, u"name"_s, 0);
        QCOMPARE(selected(m_shared), (QStringList{u"Renamed"_s, u"Renamed"_s}));
        m_shared->addITunesPlaylist(playlist(u"P"_s, u"List"_s));
        m_shared->addITunesPlaylist(playlist(u"Q"_s, u"Top"_s), 0);
        QCOMPARE(names(m_shared), (QStringList{u"Top"_s, u"First"_s, u"Renamed"_s, u"C"_s, u"List"_s}));
        QCOMPARE(selected(m_shared), (QStringList{u"Renamed"_s, u"Renamed"_s}));
    }

    void viewDropsLandBetweenRows()
    {
        seed({u"A"_s, u"B"_s, u"C"_s});
        m_sharedContent->resize(500, 400);
        m_sharedContent->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_sharedContent.get()));
        auto *view = static_cast<FolderTableView *>(m_shared->tableView());
        const QRect row1 = view->visualRect(view->model()->index(1, 0));
        const QPoint upper(row1.center().x(), row1.top() + 1), lower(row1.center().x(), row1.bottom() - 1);
        const QPoint empty(row1.center().x(), view->viewport()->height() - 2);
        QCOMPARE(view->dropTargetAt(upper).row, 1); // the drops below show where lower and empty land

        // The action the view takes an event with, or IgnoreAction.
        const auto send = [view](QDropEvent &&event) {
            QApplication::sendEvent(view->viewport(), &event);
            return event.isAccepted() ? event.dropAction() : Qt::IgnoreAction;
        };

        // A folder is copied even when the source proposes a move.
        const auto folder = filesData({makeDir(u"New"_s)});
        const Qt::DropActions both = Qt::MoveAction | Qt::CopyAction;
        QCOMPARE(send(QDragEnterEvent(upper, both, folder.get(), Qt::LeftButton, Qt::ShiftModifier)), Qt::CopyAction);
        QCOMPARE(send(QDropEvent(lower, both, folder.get(), Qt::LeftButton, Qt::NoModifier)), Qt::CopyAction);
        QCOMPARE(names(m_shared), (QStringList{u"A"_s, u"B"_s, u"New"_s, u"C"_s}));

        // Rows move only when the drag offers a move; a gap below the last row is the end.
        const auto rows = std::unique_ptr<QMimeData>(m_shared->writeRows({0}));
        QCOMPARE(send(QDragEnterEvent(empty, Qt::CopyAction, rows.get(), Qt::LeftButton, Qt::NoModifier)), Qt::IgnoreAction);
        QCOMPARE(send(QDragEnterEvent(empty, Qt::MoveAction, rows.get(), Qt::LeftButton, Qt::NoModifier)), Qt::MoveAction);
        QCOMPARE(send(QDropEvent(empty, Qt::MoveAction, rows.get(), Qt::LeftButton, Qt::NoModifier)), Qt::MoveAction);
        QCOMPARE(names(m_shared), (QStringList{u"B"_s, u"New"_s, u"C"_s, u"A"_s}));

        view->selectRow(3);
        std::unique_ptr<QMimeData> dragged(view->model()->mimeData(view->selectionModel()->selectedIndexes()));
        QCOMPARE(FoldersEditor::rowsFromData(dragged->data(u"TarnwickServerRows"_s)), QList<int>{3});
    }

    void playlistPicker()
    {
        QPushButton *button = m_sharedContent->findChild<QPushButton *>(u"addITunesPlaylistButton"_s);
        button->click();
        QPointer<WindowController> first = m_shared->addITunesPlaylistWindowController();
        QVERIFY(first && first->window() && first->window()->isVisible());
        auto *picker = qobject_cast<ITunesPlaylistsController *>(first->mainController());
        QVERIFY(picker);
        QCOMPARE(picker->target(), m_shared);
        picker->addSelector()(playlist(u"9A"_s, u"Party"_s));
        QCOMPARE(namesOf(Folder::loadFolders()), QStringList{u"Party"_s});

        button->click(); // the same picker comes forward
        QCOMPARE(m_shared->addITunesPlaylistWindowController(), first.data());
        first->window()->close();
        QTRY_VERIFY(!first);
        QVERIFY(!m_shared->addITunesPlaylistWindowController());

        button->click(); // a new one; it closes with the table, as both tables log
        QStringList log;
        SystemLog::setSink([&log](const QString &line) { log << line; });
        m_sharedContent.reset();
        m_conversionContent.reset();
        SystemLog::setSink({});
        QCOMPARE(log, (QStringList{u"SharedFoldersController dealloc"_s, u"PlaylistController Dealloc"_s,
                                   u"ConversionFoldersController dealloc"_s}));
    }

private:
    void seed(const QStringList &shared, const QStringList &conversion = {})
    {
        writeFolders<Folder>(shared);
        writeFolders<ConversionFolder>(conversion);
        m_shared->reloadFolders();
        m_conversion->reloadFolders();
    }

    QString makeDir(const QString &name) const
    {
        const QString path = m_home->filePath(name);
        QDir().mkpath(path);
        return path;
    }

    QTemporaryDir m_resources;
    std::unique_ptr<QTemporaryDir> m_home;
    std::unique_ptr<QWidget> m_sharedContent, m_conversionContent;
    SharedFoldersController *m_shared = nullptr;
    ConversionFoldersController *m_conversion = nullptr;
};

QTEST_MAIN(TestFoldersEditor)
#include "tst_folders_editor.moc"
