#pragma once

#include "WindowController.h"
#include "folders/Folder.h"
#include "folders/FoldersEditor.h"

#include <QPointer>

class Playlist;

// The shared folders tab: the server's library of disk folders and iTunes
// playlists, kept in the folders file. Playlists come from the picker
// window ("Playlists"), through its "add" button or by dragging them here.
class SharedFoldersController : public FoldersEditorOf<Folder>
{
    Q_OBJECT

public:
    // The row format of this table's own drags.
    static const QString rowsPasteboardType;

    // Builds the page into `content` and becomes its child.
    explicit SharedFoldersController(QWidget *content);
    ~SharedFoldersController() override;

    // "name": the name; "type": "iTunes Playlist" for a playlist, the path
    // for a disk folder.
    QVariant objectValueForTableColumn(const QString &column, int row) const override;

    void addDiskFolderButtonClicked();
    void addITunesPlaylistButtonClicked();
    void removeSelectedButtonClicked();

    // The picker's "add": a new entry at the end.
    void addITunesPlaylist(const Playlist &playlist);
    // A new entry for the playlist at `row` (-1: at the end), then saves.
    void addITunesPlaylist(const Playlist &playlist, int row);
    // The picker window has gone; the next request opens a new one.
    void addITunesPlaylistWindowControllerDealloc();

    WindowController *addITunesPlaylistWindowController() const { return m_addITunesPlaylistWindowController; }

protected:
    void acceptOtherDrop(const QString &type, const QMimeData *data, int row) override;

private:
    QPointer<WindowController> m_addITunesPlaylistWindowController;
};
