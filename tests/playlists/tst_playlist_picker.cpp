#include "WindowController.h"
#include "platform/Defaults.h"
#include "platform/Resources.h"
#include "playlists/ITunesPlaylistsController.h"

#include <QAbstractButton>
#include <QProgressBar>
#include <QTreeView>
#include <QtTest>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

const int kAnswerTimeout = 60000;

const QByteArray kLibrary = R"({"playlists": [
    {"id": "T", "name": "Top", "children": [
        {"id": "F", "name": "Folder", "children": [{"id": "D", "name": "Deep"}]},
        {"id": "E", "name": "Empty folder", "children": []}]},
    {"id": "L", "name": "Leaf"}]})";
const QByteArray kOther = R"({"playlists": [{"id": "O", "name": "Other"}]})";

// Records with their whole subtrees: "id:name[children]", no brackets for no list.
QString describe(const QList<Playlist> &playlists)
{
    QStringList parts;
    for (const Playlist &p : playlists)
        parts << p.itemId() + u':' + p.name() + (p.children() ? u'[' + describe(*p.children()) + u']' : QString());
    return parts.join(u',');
}

// What the outline shows: names, with brackets only where a disclosure is offered.
QString shown(const QAbstractItemModel *model, const QModelIndex &parent = {})
{
    QStringList parts;
    for (int row = 0; row < model->rowCount(parent); ++row) {
        const QModelIndex index = model->index(row, 0, parent);
        parts << index.data().toString() + (model->hasChildren(index) ? u'[' + shown(model, index) + u']' : QString());
    }
    return parts.join(u',');
}

// Children of the main thread, which starts the loaders, still running or
// not yet reaped: a loader's java process is one until its answer is taken.
int childProcesses()
{
    QFile file(u"/proc/self/task/%1/children"_s.arg(::getpid()));
    return file.open(QIODevice::ReadOnly) ? int(QString::fromLatin1(file.readAll()).split(u' ', Qt::SkipEmptyParts).size()) : -1;
}

}

class TestPlaylistPicker : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_dir.filePath(u"config"_s)));
        Defaults::resetStandard();
        m_library = document(u"library.json"_s, kLibrary);
        m_other = document(u"other.json"_s, kOther);
        ITunesPlaylistsController::registerLayout();
    }
    void init()
    {
        Resources::setFolder(QStringLiteral(QUILLON_TEST_BINARY_DIR "/resources"));
        answerWith(m_library);
    }
    void cleanup()
    {
        // No loader of one test may answer into the next.
        QTRY_COMPARE_WITH_TIMEOUT(childProcesses(), 0, kAnswerTimeout);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    void pickerWindowLoadsAndCloses()
    {
        // The picker loads with its layout.
        QPointer<WindowController> opener = new WindowController(u"Playlists"_s);
        QWidget *window = opener->window();
        QPointer<ITunesPlaylistsController> controller = qobject_cast<ITunesPlaylistsController *>(opener->mainController());
        auto *busy = window->findChild<QProgressBar *>(u"busyIndicator"_s);
        QVERIFY(controller && controller->loading() && busy->isVisibleTo(window));
        QTRY_VERIFY_WITH_TIMEOUT(!controller->loading(), kAnswerTimeout);
        QVERIFY(!busy->isVisibleTo(window));
        // The empty folder has a list, yet no disclosure.
        QCOMPARE(shown(controller->outlineView()->model()), u"Top[Folder[Deep],Empty folder],Leaf"_s);

        // Reload: a load that delivers nothing leaves an empty tree.
        const QTemporaryDir noJar;
        Resources::setFolder(noJar.path());
        window->findChild<QAbstractButton *>(u"reloadButton"_s)->click();
        QVERIFY(controller->loading());
        QTRY_VERIFY_WITH_TIMEOUT(!controller->loading(), kAnswerTimeout);
        QCOMPARE(controller->model()->rowCount(), 0);

        window->findChild<QAbstractButton *>(u"closeButton"_s)->click(); // the log line it leaves is the folders editor's
        QTRY_VERIFY(opener.isNull() && controller.isNull());
    }

    void overlappingLoads()
    {
        QWidget placeholder;
        ITunesPlaylistsController controller(&placeholder);

        // The first load waits for its document, so the second one answers first and
        // ends the loading; the older answer then still replaces the tree.
        answerWith(m_dir.filePath(u"slow"_s));
        controller.awakeFromNib();
        answerWith(m_other);
        controller.reload();
        QTRY_VERIFY_WITH_TIMEOUT(!controller.loading(), kAnswerTimeout);
        QCOMPARE(describe(controller.playlists()), u"O:Other"_s);
        feed(u"slow"_s, kLibrary);
        QCOMPARE(shown(controller.model()), u"Top[Folder[Deep],Empty folder],Leaf"_s);
        QVERIFY(!controller.loading());

        // A controller told its window closed keeps its tree and stays loading.
        answerWith(m_dir.filePath(u"dropped"_s));
        controller.reload();
        controller.windowWillClose(&placeholder);
        feed(u"dropped"_s, kOther);
        QVERIFY(controller.loading());
        QCOMPARE(describe(controller.playlists()), u"T:Top[F:Folder[D:Deep],E:Empty folder[]],L:Leaf"_s);
    }

    void addAndDrag()
    {
        QWidget placeholder;
        ITunesPlaylistsController controller(&placeholder);
        controller.awakeFromNib();
        QTRY_VERIFY_WITH_TIMEOUT(!controller.loading(), kAnswerTimeout);
        QTreeView *outline = controller.outlineView();
        ITunesPlaylistsModel *model = controller.model();
        QItemSelectionModel *selection = outline->selectionModel();
        QAbstractButton *addButton = placeholder.findChild<QAbstractButton *>(u"addButton"_s);
        outline->expandAll();
        const QModelIndex top = model->index(0, 0);
        const QModelIndex folder = model->index(0, 0, top);
        const QModelIndex deep = model->index(0, 0, folder);
        const QModelIndex leaf = model->index(1, 0);
        const auto pick = [&](const QModelIndex &index, QItemSelectionModel::SelectionFlags how) {
            selection->setCurrentIndex(index, how | QItemSelectionModel::Rows);
        };

        QList<Playlist> added;
        auto target = std::make_unique<QObject>();
        controller.setAddSelector([&added](const Playlist &playlist) { added << playlist; });
        addButton->click(); // no target
        controller.setTarget(target.get());
        addButton->click(); // no selection
        QVERIFY(added.isEmpty());
        // One playlist per click, nested ones with their subtree; of several
        // selected, the one selected last.
        for (const QModelIndex &index : {leaf, folder, deep}) {
            pick(index, QItemSelectionModel::ClearAndSelect);
            addButton->click();
        }
        pick(top, QItemSelectionModel::Select);
        addButton->click();
        QCOMPARE(describe(added), u"L:Leaf,F:Folder[D:Deep],D:Deep,T:Top[F:Folder[D:Deep],E:Empty folder[]]"_s);
        added.clear();
        target.reset();
        addButton->click();
        QVERIFY(added.isEmpty());

        // Dragging: selected bottom up, one row named twice; the payload holds
        // each once, in the outline's order, with their subtrees.
        QVERIFY(outline->dragEnabled() && outline->selectionMode() == QAbstractItemView::ExtendedSelection);
        selection->clear();
        for (const QModelIndex &index : {leaf, deep, top})
            pick(index, QItemSelectionModel::Select);
        std::unique_ptr<QMimeData> mime(model->mimeData(selection->selectedIndexes() << leaf));
        QVERIFY(model->flags(deep) & Qt::ItemIsDragEnabled);
        const auto payload = Playlist::unarchive(mime->data(u"ITunesPlaylistPBoardType"_s));
        QVERIFY(payload);
        QCOMPARE(describe(*payload), u"T:Top[F:Folder[D:Deep],E:Empty folder[]],D:Deep,L:Leaf"_s);
    }

private:
    void answerWith(const QString &path) { qputenv("QUILLON_TEST_PLAYLISTS", QFile::encodeName(path)); }
    QString document(const QString &name, const QByteArray &text)
    {
        QSaveFile file(m_dir.filePath(name)); // whole at once: a load may be waiting for it
        if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size() || !file.commit())
            qFatal("cannot write %s", qPrintable(file.fileName()));
        return file.fileName();
    }
    // Answers a load that was told to answer with a document not written yet.
    void feed(const QString &name, const QByteArray &text)
    {
        document(name, text);
        QTRY_COMPARE_WITH_TIMEOUT(childProcesses(), 0, kAnswerTimeout);
        QCoreApplication::processEvents();
    }

    QTemporaryDir m_dir;
    QString m_library, m_other;
};

QTEST_MAIN(TestPlaylistPicker)
#include "tst_playlist_picker.moc"
