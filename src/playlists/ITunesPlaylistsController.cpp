#include "playlists/ITunesPlaylistsController.h"

#include "platform/WindowLayouts.h"
#include "platform/SystemLog.h"
#include "playlists/ITunes.h"
#include "ui_Playlists.h"

#include <QAbstractButton>
#include <QItemSelectionModel>
#include <QKeySequence>
#include <QMimeData>
#include <QSet>
#include <QShortcut>
#include <QTreeView>
#include <QWidget>

#include <algorithm>
#include <vector>

namespace {

const QString kLayoutName = QStringLiteral("Playlists");

void buildPlaylistsForm(QWidget *window)
{
    Ui::Playlists form;
    form.setupUi(window);
}

}

// ---- the outline's model ----

// One shown playlist. Nodes are made when the view first asks for them, so a
// large library costs only what is expanded. A node keeps its own copy of the
// record, whose children list is shared and never changed, so the list a node
// reads from cannot move under it.
struct ITunesPlaylistsModel::Node {
    Playlist item;
    Node *parent = nullptr;
    int row = 0;
    std::vector<std::unique_ptr<Node>> children;
};

ITunesPlaylistsModel::ITunesPlaylistsModel(QObject *parent)
    : QAbstractItemModel(parent)
    , m_root(std::make_unique<Node>())
{
    m_root->item.setChildren(QList<Playlist>());
}

ITunesPlaylistsModel::~ITunesPlaylistsModel() = default;

void ITunesPlaylistsModel::setPlaylists(const QList<Playlist> &playlists)
{
    beginResetModel();
    auto root = std::make_unique<Node>();
    root->item.setChildren(playlists);
    m_root = std::move(root);
    endResetModel();
}

int ITunesPlaylistsModel::numberOfChildrenOfItem(const Playlist *item) const
{
    const QList<Playlist> *list = item ? item->children() : m_root->item.children();
    return list ? int(list->size()) : 0;
}

const Playlist *ITunesPlaylistsModel::child(int index, const Playlist *item) const
{
    const QList<Playlist> *list = item ? item->children() : m_root->item.children();
    if (!list || index < 0 || index >= list->size())
        return nullptr;
    return &list->at(index);
}

bool ITunesPlaylistsModel::isItemExpandable(const Playlist &item)
{
    return item.children() && !item.children()->isEmpty();
}

ITunesPlaylistsModel::Node *ITunesPlaylistsModel::nodeForIndex(const QModelIndex &index) const
{
    if (!index.isValid() || index.model() != this)
        return nullptr;
    return static_cast<Node *>(index.internalPointer());
}

ITunesPlaylistsModel::Node *ITunesPlaylistsModel::childNode(Node *parent, int row) const
{
    const Playlist *item = child(row, parent == m_root.get() ? nullptr : &parent->item);
    if (!item)
        return nullptr;
    const size_t count = size_t(numberOfChildrenOfItem(parent == m_root.get() ? nullptr : &parent->item));
    if (parent->children.size() != count)
        parent->children.resize(count);
    std::unique_ptr<Node> &slot = parent->children[size_t(row)];
    if (!slot) {
        slot = std::make_unique<Node>();
        slot->item = *item;
        slot->parent = parent;
        slot->row = row;
    }
    return slot.get();
}

const Playlist *ITunesPlaylistsModel::itemForIndex(const QModelIndex &index) const
{
    Node *node = nodeForIndex(index);
    return node ? &node->item : nullptr;
}

QModelIndex ITunesPlaylistsModel::index(int row, int column, const QModelIndex &parent) const
{
    if (column != 0 || (parent.isValid() && parent.column() != 0))
        return {};
    Node *parentNode = parent.isValid() ? nodeForIndex(parent) : m_root.get();
    if (!parentNode)
        return {};
    Node *node = childNode(parentNode, row);
    return node ? createIndex(row, 0, node) : QModelIndex();
}

QModelIndex ITunesPlaylistsModel::parent(const QModelIndex &index) const
{
    Node *node = nodeForIndex(index);
    if (!node || !node->parent || node->parent == m_root.get())
        return {};
    return createIndex(node->parent->row, 0, node->parent);
}

int ITunesPlaylistsModel::rowCount(const QModelIndex &parent) const
{
    if (!parent.isValid())
        return numberOfChildrenOfItem(nullptr);
    if (parent.column() != 0)
        return 0;
    const Playlist *item = itemForIndex(parent);
    return item ? numberOfChildrenOfItem(item) : 0;
}

int ITunesPlaylistsModel::columnCount(const QModelIndex &) const
{
    return 1;
}

bool ITunesPlaylistsModel::hasChildren(const QModelIndex &parent) const
{
    if (!parent.isValid())
        return numberOfChildrenOfItem(nullptr) > 0;
    const Playlist *item = itemForIndex(parent);
    return item && parent.column() == 0 && isItemExpandable(*item);
}

QVariant ITunesPlaylistsModel::data(const QModelIndex &index, int role) const
{
    const Playlist *item = itemForIndex(index);
    if (!item || (role != Qt::DisplayRole && role != Qt::ToolTipRole))
        return {};
    return item->name();
}

QVariant ITunesPlaylistsModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (section == 0 && orientation == Qt::Horizontal && role == Qt::DisplayRole)
        return tr("Playlist");
    return {};
}

Qt::ItemFlags ITunesPlaylistsModel::flags(const QModelIndex &index) const
{
    if (!itemForIndex(index))
        return Qt::NoItemFlags;
    Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsDragEnabled;
    if (!isItemExpandable(*itemForIndex(index)))
        flags |= Qt::ItemNeverHasChildren;
    return flags;
}

QStringList ITunesPlaylistsModel::mimeTypes() const
{
    return {QString::fromLatin1(ITunesPlaylistPBoardType)};
}

QMimeData *ITunesPlaylistsModel::mimeData(const QModelIndexList &indexes) const
{
    // Each playlist once, in the order the outline shows them, whatever
    // order and columns the selection came in.
    std::vector<std::pair<std::vector<int>, const Node *>> dragged;
    QSet<const Node *> seen;
    for (const QModelIndex &index : indexes) {
        const Node *node = nodeForIndex(index);
        if (!node || seen.contains(node))
            continue;
        seen.insert(node);
        std::vector<int> path;
        for (const Node *n = node; n && n != m_root.get(); n = n->parent)
            path.push_back(n->row);
        std::reverse(path.begin(), path.end());
        dragged.emplace_back(std::move(path), node);
    }
    std::sort(dragged.begin(), dragged.end(),
              [](const auto &a, const auto &b) { return a.first < b.first; });

    QList<Playlist> playlists;
    playlists.reserve(qsizetype(dragged.size()));
    for (const auto &entry : dragged)
        playlists.append(entry.second->item);

    auto *mime = new QMimeData;
    mime->setData(QString::fromLatin1(ITunesPlaylistPBoardType), Playlist::archive(playlists));
    return mime;
}

Qt::DropActions ITunesPlaylistsModel::supportedDragActions() const
{
    return Qt::CopyAction;
}

// ---- the controller ----

void ITunesPlaylistsController::registerLayout()
{
    WindowLayouts::registerForm(kLayoutName, buildPlaylistsForm);
    WindowLayouts::registerController(kLayoutName, [](QWidget *window) -> QObject * {
        auto *controller = new ITunesPlaylistsController(window);
        controller->awakeFromNib();
        return controller;
    });
}

ITunesPlaylistsController::ITunesPlaylistsController(QWidget *window)
    : QObject(window)
    , m_window(window)
{
    m_model = new ITunesPlaylistsModel(this);
    if (!window)
        return;
    if (!window->findChild<QTreeView *>(QStringLiteral("outlineView")))
        buildPlaylistsForm(window);

    m_outlineView = window->findChild<QTreeView *>(QStringLiteral("outlineView"));
    if (m_outlineView) {
        m_outlineView->setModel(m_model);
        m_outlineView->setDragEnabled(true);
        m_outlineView->setDragDropMode(QAbstractItemView::DragOnly);
        m_outlineView->setSelectionMode(QAbstractItemView::ExtendedSelection);
    }

    const auto button = [window](const char *name) {
        return window->findChild<QAbstractButton *>(QLatin1String(name));
    };
    if (QAbstractButton *reloadButton = button("reloadButton"))
        connect(reloadButton, &QAbstractButton::clicked, this, [this] { reload(); });
    if (QAbstractButton *addButton = button("addButton"))
        connect(addButton, &QAbstractButton::clicked, this, [this] { add(); });
    if (QAbstractButton *closeButton = button("closeButton"))
        connect(closeButton, &QAbstractButton::clicked, this, [this] { close(); });

    m_busyIndicator = window->findChild<QWidget *>(QStringLiteral("busyIndicator"));
    if (m_busyIndicator) {
        // Hidden without moving the buttons beside it.
        QSizePolicy policy = m_busyIndicator->sizePolicy();
        policy.setRetainSizeWhenHidden(true);
        m_busyIndicator->setSizePolicy(policy);
        m_busyIndicator->setVisible(m_loading);
        QWidget *indicator = m_busyIndicator;
        connect(this, &ITunesPlaylistsController::loadingChanged, indicator,
                [this, indicator] { indicator->setVisible(m_loading); });
    }

    // The keyboard's way to close a window, as elsewhere on the desktop.
    auto *closeShortcut = new QShortcut(QKeySequence::Close, window);
    connect(closeShortcut, &QShortcut::activated, this, [this] { close(); });
}

ITunesPlaylistsController::~ITunesPlaylistsController()
{
    systemLog(QStringLiteral("PlaylistController Dealloc"));
}

void ITunesPlaylistsController::awakeFromNib()
{
    if (m_awake)
        return;
    m_awake = true;
    reload();
}

void ITunesPlaylistsController::setLoading(bool loading)
{
    if (m_loading == loading)
        return;
    m_loading = loading;
    emit loadingChanged();
}

void ITunesPlaylistsController::show()
{
    if (QWidget *window = m_window) {
        if (window->windowState() & Qt::WindowMinimized)
            window->setWindowState(window->windowState() & ~Qt::WindowMinimized);
        window->show();
        window->raise();
        window->activateWindow();
    }
    reload();
}

void ITunesPlaylistsController::reload()
{
    // The loader deletes itself once it has answered. The connection ends
    // with this controller, so an answer after the window has gone reaches
    // nobody.
    auto *loader = new ITunes;
    connect(loader, &ITunes::playlistsLoaded, this, &ITunesPlaylistsController::loaded);
    loader->loadPlaylists();
    setLoading(true);
}

void ITunesPlaylistsController::loaded(const std::optional<QList<Playlist>> &playlists)
{
    if (!m_window)
        return;
    m_playlists = playlists.value_or(QList<Playlist>());
    m_model->setPlaylists(m_playlists);
    setLoading(false);
}

void ITunesPlaylistsController::add()
{
    if (!m_outlineView || !m_outlineView->selectionModel())
        return;
    // Of several selected rows, the one selected last.
    const QItemSelectionModel *selection = m_outlineView->selectionModel();
    QModelIndex row = selection->currentIndex();
    if (!row.isValid() || !selection->isRowSelected(row.row(), row.parent())) {
        const QModelIndexList rows = selection->selectedRows();
        if (rows.isEmpty())
            return;
        row = rows.last();
    }
    const Playlist *item = m_model->itemForIndex(row.siblingAtColumn(0));
    if (!item || !m_target || !m_addSelector)
        return;
    const Playlist playlist = *item;
    m_addSelector(playlist);
}

void ITunesPlaylistsController::close()
{
    if (m_window)
        m_window->close();
}

void ITunesPlaylistsController::windowWillClose(QWidget *)
{
    m_window = nullptr;
}
