#include "WindowController.h"
#include "platform/Defaults.h"
#include "platform/Resources.h"
#include "platform/SystemLog.h"
#include "playlists/ITunesPlaylistsController.h"

#include <QAbstractButton>
#include <QDir>
#include <QFile>
#include <QMimeData>
#include <QPointer>
#include <QProgressBar>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTreeView>
#include <QtTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

const int kAnswerTimeout = 60000;

const QByteArray kLibrary = R"({"playlists": [
    {"id": "T", "name": "Top", "children": [
        {"id": "F", "name": "Folder", "children": [{"id": "D", "name": "Deep"}]},
        {"id": "E", "name": "Empty folder", "children": []}]},
    {"id": "L", "name": "Leaf"}]})";
const QByteArray kOther = R"({"playlists": [{"id": "O", "name": "Other"}]})";
const QByteArray kThird = R"({"playlists": [{"id": "3", "name": "Third"}, {"id": "4", "name": "Fourth"}]})";

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
        QString part = index.data().toString();
        if (model->hasChildren(index))
            part += u'[' + shown(model, index) + u']';
        else if (model->rowCount(index) != 0)
            part += u"<rows without disclosure>"_s;
        parts << part;
    }
    return parts.join(u',');
}

// Children of this process still running or not yet reaped: a loader's java
// process is one until its answer has been taken.
int childProcesses()
{
    int count = 0;
    const QDir tasks(u"/proc/self/task"_s);
    for (const QString &task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile file(tasks.filePath(task + u"/children"_s));
        if (file.open(QIODevice::ReadOnly))
            count += QString::fromLatin1(file.readAll()).split(u' ', Qt::SkipEmptyParts).size();
    }
    return count;
}

}

class TestPlaylistPicker : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void loadsWithTheLayoutAndClosesWithTheWindow();
    void reloadWhileLoading();
    void answerAfterCloseIsDropped();
    void addSendsOnePlaylist();
    void dragCarriesEveryDraggedPlaylist();

private:
    // The file the stand-in jar prints for loads started from now on.
    void answerWith(const QString &path) { qputenv("QUILLON_TEST_PLAYLISTS", QFile::encodeName(path)); }
    QString document(const QString &name, const QByteArray &text);
    // A named pipe: a load reading it waits until feed() writes the answer.
    QString pipe(const QString &name);
    void feed(const QString &pipe, const QByteArray &text);
    std::unique_ptr<ITunesPlaylistsController> loadedController(QWidget *placeholder);

    QTemporaryDir m_dir;
    QString m_library;
    QStringList m_log;
};

void TestPlaylistPicker::initTestCase()
{
    QVERIFY(m_dir.isValid());
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_dir.filePath(u"config"_s)));
    Defaults::resetStandard();
    m_library = document(u"library.json"_s, kLibrary);
    ITunesPlaylistsController::registerLayout();
}

void TestPlaylistPicker::init()
{
    Resources::setFolder(QStringLiteral(QUILLON_TEST_BINARY_DIR "/resources"));
    answerWith(m_library);
    m_log.clear();
    SystemLog::setSink([this](const QString &line) { m_log << line; });
}

void TestPlaylistPicker::cleanup()
{
    // No loader of this test may answer into the next one.
    QTRY_COMPARE_WITH_TIMEOUT(childProcesses(), 0, kAnswerTimeout);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    SystemLog::setSink({});
}

QString TestPlaylistPicker::document(const QString &name, const QByteArray &text)
{
    QFile file(m_dir.filePath(name));
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size())
        qFatal("cannot write %s", qPrintable(file.fileName()));
    return file.fileName();
}

QString TestPlaylistPicker::pipe(const QString &name)
{
    const QString path = m_dir.filePath(name);
    QFile::remove(path);
    if (mkfifo(QFile::encodeName(path).constData(), 0600) != 0)
        qFatal("mkfifo %s failed", qPrintable(path));
    return path;
}

void TestPlaylistPicker::feed(const QString &pipe, const QByteArray &text)
{
    // Opening for writing succeeds only once the java process reads.
    int fd = -1;
    QDeadlineTimer deadline(kAnswerTimeout);
    while (fd < 0 && !deadline.hasExpired()) {
        fd = ::open(QFile::encodeName(pipe).constData(), O_WRONLY | O_NONBLOCK);
        if (fd < 0)
            QTest::qWait(20);
    }
    QVERIFY2(fd >= 0, "nobody read the pipe");
    QCOMPARE(::write(fd, text.constData(), size_t(text.size())), ssize_t(text.size()));
    ::close(fd);
}

std::unique_ptr<ITunesPlaylistsController> TestPlaylistPicker::loadedController(QWidget *placeholder)
{
    auto controller = std::make_unique<ITunesPlaylistsController>(placeholder);
    controller->awakeFromNib();
    if (!QTest::qWaitFor([&] { return !controller->loading(); }, kAnswerTimeout))
        return nullptr;
    return controller;
}

void TestPlaylistPicker::loadsWithTheLayoutAndClosesWithTheWindow()
{
    int deallocs = 0;
    QPointer<WindowController> opener = new WindowController(u"Playlists"_s);
    opener->onDeallocCallTarget(this, [&deallocs] { ++deallocs; });
    QWidget *window = opener->window();
    QVERIFY(window);
    QCOMPARE(window->property("frameAutosaveName").toString(), u"Playlists"_s);
    QPointer<ITunesPlaylistsController> controller = qobject_cast<ITunesPlaylistsController *>(opener->mainController());
    QVERIFY(controller);
    QCOMPARE(controller->window(), window);
    auto *busy = window->findChild<QProgressBar *>(u"busyIndicator"_s);
    QVERIFY(busy);

    // Loading the layout started a load; the indicator shows it.
    QVERIFY(controller->loading());
    QVERIFY(busy->isVisibleTo(window));
    QTRY_VERIFY_WITH_TIMEOUT(!controller->loading(), kAnswerTimeout);
    QVERIFY(!busy->isVisibleTo(window));
    QCOMPARE(describe(controller->playlists()), u"T:Top[F:Folder[D:Deep],E:Empty folder[]],L:Leaf"_s);
    // The empty folder has a list, yet no disclosure; neither has the leaf.
    QTreeView *outline = controller->outlineView();
    QCOMPARE(outline->model(), controller->model());
    QCOMPARE(shown(outline->model()), u"Top[Folder[Deep],Empty folder],Leaf"_s);

    // The reload button asks again; a load that delivers nothing empties the tree.
    const QTemporaryDir noJar;
    Resources::setFolder(noJar.path());
    QSignalSpy loading(controller, &ITunesPlaylistsController::loadingChanged);
    window->findChild<QAbstractButton *>(u"reloadButton"_s)->click();
    QVERIFY(controller->loading());
    QTRY_VERIFY_WITH_TIMEOUT(!controller->loading(), kAnswerTimeout);
    QCOMPARE(loading.size(), 2);
    QVERIFY(controller->playlists().isEmpty());
    QCOMPARE(outline->model()->rowCount(), 0);
    QCOMPARE(m_log, QStringList{u"Couldn't find QuillonServer.jar in %1"_s.arg(noJar.path())});
    m_log.clear();

    // The close button closes the window, which takes its controller along.
    opener->showWindow();
    window->findChild<QAbstractButton *>(u"closeButton"_s)->click();
    QTRY_VERIFY(opener.isNull());
    QVERIFY(controller.isNull());
    QCOMPARE(deallocs, 1);
    QCOMPARE(m_log, QStringList{u"PlaylistController Dealloc"_s});
}

void TestPlaylistPicker::reloadWhileLoading()
{
    QWidget placeholder;
    ITunesPlaylistsController controller(&placeholder);
    QSignalSpy loading(&controller, &ITunesPlaylistsController::loadingChanged);
    QSignalSpy resets(controller.model(), &QAbstractItemModel::modelReset);

    // The first process waits on a pipe, so the second one answers first.
    const QString slow = pipe(u"slow"_s);
    answerWith(slow);
    controller.awakeFromNib();
    answerWith(document(u"other.json"_s, kOther));
    controller.reload();
    QVERIFY(controller.loading());
    QCOMPARE(loading.size(), 1);

    QTRY_VERIFY_WITH_TIMEOUT(!controller.loading(), kAnswerTimeout);
    QCOMPARE(resets.size(), 1);
    QCOMPARE(describe(controller.playlists()), u"O:Other"_s);
    QCOMPARE(loading.size(), 2);

    // The older load answers last, and its tree is the one that stays.
    feed(slow, kThird);
    QTRY_COMPARE_WITH_TIMEOUT(resets.size(), 2, kAnswerTimeout);
    QCOMPARE(describe(controller.playlists()), u"3:Third,4:Fourth"_s);
    QCOMPARE(shown(controller.model()), u"Third,Fourth"_s);
    QVERIFY(!controller.loading());
    QCOMPARE(loading.size(), 2);
}

void TestPlaylistPicker::answerAfterCloseIsDropped()
{
    // A controller that outlives its window keeps its tree and its loading flag.
    {
        QWidget placeholder;
        auto controller = loadedController(&placeholder);
        QVERIFY(controller);
        placeholder.show();
        const QString slow = pipe(u"late"_s);
        answerWith(slow);
        controller->reload();
        controller->windowWillClose(&placeholder);
        QVERIFY(!controller->window());
        feed(slow, kOther);
        QTRY_COMPARE_WITH_TIMEOUT(childProcesses(), 0, kAnswerTimeout);
        QCoreApplication::processEvents();
        QVERIFY(controller->loading());
        QCOMPARE(describe(controller->playlists()), u"T:Top[F:Folder[D:Deep],E:Empty folder[]],L:Leaf"_s);
        QCOMPARE(shown(controller->model()), u"Top[Folder[Deep],Empty folder],Leaf"_s);
        // Closing again reaches no window.
        controller->close();
        QVERIFY(placeholder.isVisible());
    }
    m_log.clear();

    // A picker closed before its answer is gone; the answer reaches nobody,
    // and opening the picker again builds a new controller that loads anew.
    const QString slow = pipe(u"closed"_s);
    answerWith(slow);
    QPointer<WindowController> opener = new WindowController(u"Playlists"_s);
    opener->showWindow();
    QPointer<ITunesPlaylistsController> first = qobject_cast<ITunesPlaylistsController *>(opener->mainController());
    QVERIFY(first && first->loading());
    first->close();
    QTRY_VERIFY(opener.isNull() && first.isNull());
    QCOMPARE(m_log, QStringList{u"PlaylistController Dealloc"_s});
    feed(slow, kOther);
    QTRY_COMPARE_WITH_TIMEOUT(childProcesses(), 0, kAnswerTimeout);
    QCoreApplication::processEvents();

    answerWith(m_library);
    WindowController *again = new WindowController(u"Playlists"_s);
    QPointer<QWidget> window = again->window();
    auto *second = qobject_cast<ITunesPlaylistsController *>(again->mainController());
    QVERIFY(second && second->loading());
    QTRY_VERIFY_WITH_TIMEOUT(!second->loading(), kAnswerTimeout);
    QCOMPARE(shown(second->model()), u"Top[Folder[Deep],Empty folder],Leaf"_s);
    window->close();
    QTRY_VERIFY(window.isNull());
    QCOMPARE(m_log.count(u"PlaylistController Dealloc"_s), 2);
}

void TestPlaylistPicker::addSendsOnePlaylist()
{
    QWidget placeholder;
    auto controller = loadedController(&placeholder);
    QVERIFY(controller);
    QTreeView *outline = controller->outlineView();
    QItemSelectionModel *selection = outline->selectionModel();
    QAbstractButton *addButton = placeholder.findChild<QAbstractButton *>(u"addButton"_s);
    QVERIFY(addButton);

    QList<Playlist> added;
    auto target = std::make_unique<QObject>();
    controller->setAddSelector([&added](const Playlist &playlist) { added << playlist; });

    // Nothing selected, or nobody to receive: nothing is sent.
    addButton->click();
    selection->select(outline->model()->index(1, 0), QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    controller->add();
    QVERIFY(added.isEmpty());

    controller->setTarget(target.get());
    addButton->click();
    QCOMPARE(describe(added), u"L:Leaf"_s);

    // A nested playlist, with its own subtree; the window stays open for more.
    outline->expandAll();
    const QModelIndex top = outline->model()->index(0, 0);
    const QModelIndex folder = outline->model()->index(0, 0, top);
    added.clear();
    selection->setCurrentIndex(folder, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    addButton->click();
    selection->setCurrentIndex(outline->model()->index(0, 0, folder), QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    addButton->click();
    QCOMPARE(describe(added), u"F:Folder[D:Deep],D:Deep"_s);
    QVERIFY(controller->window());

    // Several selected: only the one selected last goes.
    added.clear();
    selection->setCurrentIndex(outline->model()->index(1, 0), QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    selection->setCurrentIndex(top, QItemSelectionModel::Select | QItemSelectionModel::Rows);
    addButton->click();
    QCOMPARE(describe(added), u"T:Top[F:Folder[D:Deep],E:Empty folder[]]"_s);

    // A receiver that has gone gets nothing.
    added.clear();
    target.reset();
    addButton->click();
    QVERIFY(added.isEmpty());
}

void TestPlaylistPicker::dragCarriesEveryDraggedPlaylist()
{
    QWidget placeholder;
    auto controller = loadedController(&placeholder);
    QVERIFY(controller);
    QTreeView *outline = controller->outlineView();
    ITunesPlaylistsModel *model = controller->model();
    QVERIFY(outline->dragEnabled());
    QCOMPARE(outline->selectionMode(), QAbstractItemView::ExtendedSelection);
    QVERIFY(model->supportedDragActions() & Qt::CopyAction);

    outline->expandAll();
    const QModelIndex top = model->index(0, 0);
    const QModelIndex deep = model->index(0, 0, model->index(0, 0, top));
    const QModelIndex leaf = model->index(1, 0);
    for (const QModelIndex &index : {top, deep, leaf})
        QVERIFY(model->flags(index) & Qt::ItemIsDragEnabled);

    // Selected bottom up: the payload still follows the outline's order.
    QItemSelectionModel *selection = outline->selectionModel();
    selection->select(leaf, QItemSelectionModel::Select | QItemSelectionModel::Rows);
    selection->select(deep, QItemSelectionModel::Select | QItemSelectionModel::Rows);
    selection->select(top, QItemSelectionModel::Select | QItemSelectionModel::Rows);
    QModelIndexList dragged = selection->selectedIndexes();
    dragged << leaf; // a row named twice is carried once
    std::unique_ptr<QMimeData> mime(model->mimeData(dragged));
    QVERIFY(mime);
    QCOMPARE(mime->formats(), QStringList{u"ITunesPlaylistPBoardType"_s});
    QCOMPARE(model->mimeTypes(), mime->formats());
    const auto payload = Playlist::unarchive(mime->data(u"ITunesPlaylistPBoardType"_s));
    QVERIFY(payload);
    QCOMPARE(describe(*payload), u"T:Top[F:Folder[D:Deep],E:Empty folder[]],D:Deep,L:Leaf"_s);
    QCOMPARE(*payload, (QList<Playlist>{controller->playlists().at(0), controller->playlists().at(0).children()->at(0).children()->at(0),
                                        controller->playlists().at(1)}));

    // One nested playlist alone.
    mime.reset(model->mimeData({deep}));
    QCOMPARE(describe(*Playlist::unarchive(mime->data(u"ITunesPlaylistPBoardType"_s))), u"D:Deep"_s);
}

QTEST_MAIN(TestPlaylistPicker)
#include "tst_playlist_picker.moc"
