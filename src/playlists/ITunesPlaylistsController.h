#pragma once

#include "playlists/Playlist.h"

#include <QAbstractItemModel>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QWidget>

#include <functional>
#include <memory>
#include <optional>

class QMimeData;
class QTreeView;

// The playlist tree as the picker's outline shows it: one column with the
// names, a disclosure only for playlists whose children list holds something,
// and dragging under the single format ITunesPlaylistPBoardType, whose bytes
// are Playlist::archive of every dragged playlist.
class ITunesPlaylistsModel : public QAbstractItemModel
{
    Q_OBJECT

public:
    explicit ITunesPlaylistsModel(QObject *parent = nullptr);
    ~ITunesPlaylistsModel() override;

    // Replaces the whole tree; views forget their expansion and selection.
    void setPlaylists(const QList<Playlist> &playlists);

    // The outline's questions, with nullptr standing for the root.
    int numberOfChildrenOfItem(const Playlist *item) const;
    const Playlist *child(int index, const Playlist *item) const;
    static bool isItemExpandable(const Playlist &item);

    // The playlist at an index; nullptr for the root or an index of another model.
    const Playlist *itemForIndex(const QModelIndex &index) const;

    QModelIndex index(int row, int column, const QModelIndex &parent = QModelIndex()) const override;
    QModelIndex parent(const QModelIndex &index) const override;
    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    bool hasChildren(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    QStringList mimeTypes() const override;
    QMimeData *mimeData(const QModelIndexList &indexes) const override;
    Qt::DropActions supportedDragActions() const override;

private:
    struct Node;
    Node *nodeForIndex(const QModelIndex &index) const;
    Node *childNode(Node *parent, int row) const;

    std::unique_ptr<Node> m_root;
};

// The playlist picker: the controller of the "Playlists" window. It lists the
// user's iTunes playlists as a tree, hands the selected one to its target with
// the "add" button, and lets playlists be dragged out under the clipboard
// format ITunesPlaylistPBoardType. The tree is loaded anew whenever the layout
// is loaded or the picker is shown.
class ITunesPlaylistsController : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool loading READ loading WRITE setLoading NOTIFY loadingChanged)

public:
    // Binds this controller and its form to the layout "Playlists".
    static void registerLayout();

    // `window` is the picker window built from the form; the controller
    // becomes its child.
    // If `window` has no form yet (a plain widget, as in tests), the
    // controller builds the "Playlists" form into it first.
    explicit ITunesPlaylistsController(QWidget *window);
    ~ITunesPlaylistsController() override;

    void awakeFromNib();

    bool loading() const { return m_loading; }
    void setLoading(bool loading);

    // The receiver of "add", not owned; the selector gets one playlist.
    QObject *target() const { return m_target; }
    void setTarget(QObject *target) { m_target = target; }
    using AddSelector = std::function<void(const Playlist &playlist)>;
    AddSelector addSelector() const { return m_addSelector; }
    void setAddSelector(AddSelector selector) { m_addSelector = std::move(selector); }

    QWidget *window() const { return m_window; }
    QList<Playlist> playlists() const { return m_playlists; }
    QTreeView *outlineView() const { return m_outlineView; }
    ITunesPlaylistsModel *model() const { return m_model; }

    void show();
    void reload();
    void loaded(const std::optional<QList<Playlist>> &playlists);
    void add();
    void close();
    Q_INVOKABLE void windowWillClose(QWidget *window);

signals:
    void loadingChanged();

private:
    QPointer<QWidget> m_window;
    QList<Playlist> m_playlists;
    QTreeView *m_outlineView = nullptr;
    ITunesPlaylistsModel *m_model = nullptr;
    QWidget *m_busyIndicator = nullptr;
    bool m_awake = false;
    bool m_loading = false;
    QPointer<QObject> m_target;
    AddSelector m_addSelector;
};
