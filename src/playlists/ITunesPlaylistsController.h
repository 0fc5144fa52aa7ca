#pragma once

#include "playlists/Playlist.h"

#include <QList>
#include <QObject>
#include <QPointer>

#include <functional>
#include <optional>

class QTreeView;
class QWidget;

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
    bool m_loading = false;
    QPointer<QObject> m_target;
    AddSelector m_addSelector;
};
