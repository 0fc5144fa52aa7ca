#pragma once

#include "json/JsonValue.h"

#include <QByteArray>
#include <QDataStream>
#include <QList>
#include <QString>
#include <memory>
#include <optional>

// A node of the user's iTunes playlist tree. Its identity is `itemId`: two
// playlists are equal when their ids are, whatever their names and children.
class Playlist
{
public:
    QString itemId() const { return m_itemId; }
    void setItemId(const QString &itemId) { m_itemId = itemId; }
    QString name() const { return m_name; }
    void setName(const QString &name) { m_name = name; }

    // The nested playlists, or nullptr when the playlist has none. An empty
    // list is a playlist folder with nothing in it, which is not the same.
    const QList<Playlist> *children() const { return m_children.get(); }
    void setChildren(std::optional<QList<Playlist>> children);

    // A playlist without an id equals nothing, not even itself.
    bool operator==(const Playlist &other) const;
    bool operator!=(const Playlist &other) const { return !(*this == other); }

    // The tree built from the value of "playlists": nothing for a missing,
    // null or non-array value; elements that are not objects are left out.
    static std::optional<QList<Playlist>> fromJSON(const JsonValue *value);
    // The tree of a whole playlist document.
    static std::optional<QList<Playlist>> fromJSONString(const QString &text);

    // A list of playlists as bytes for the clipboard, and back. Unarchiving
    // gives nothing for bytes that are not such an archive.
    static QByteArray archive(const QList<Playlist> &playlists);
    static std::optional<QList<Playlist>> unarchive(const QByteArray &data);

private:
    QString m_itemId;
    QString m_name;
    // Shared, never changed in place: copies of a record share one tree.
    std::shared_ptr<const QList<Playlist>> m_children;
};

size_t qHash(const Playlist &playlist, size_t seed = 0);

// The clipboard format of archived playlists, dragged from the playlist
// picker onto the shared folders table.
inline constexpr char ITunesPlaylistPBoardType[] = "ITunesPlaylistPBoardType";

// The archived form: itemId, name, then the children (a count, -1 for none,
// and each child the same way). A failed read sets the stream's status and
// leaves an empty playlist.
QDataStream &operator<<(QDataStream &stream, const Playlist &playlist);
QDataStream &operator>>(QDataStream &stream, Playlist &playlist);
