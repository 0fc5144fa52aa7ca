#include "playlists/Playlist.h"

#include <QHashFunctions>
#include <QIODevice>

namespace {

// Deeper archives than the JSON reader could ever produce are refused, so
// that hostile bytes cannot exhaust the stack.
constexpr int kMaxArchiveDepth = kJsonMaxDepth;

void write(QDataStream &stream, const Playlist &playlist)
{
    stream << playlist.itemId() << playlist.name();
    const QList<Playlist> *children = playlist.children();
    if (!children) {
        stream << qint32(-1);
        return;
    }
    stream << qint32(children->size());
    for (const Playlist &child : *children)
        write(stream, child);
}

bool read(QDataStream &stream, Playlist &playlist, int depth)
{
    QString itemId;
    QString name;
    qint32 count = 0;
    stream >> itemId >> name >> count;
    if (stream.status() != QDataStream::Ok)
        return false;
    if (count < -1 || (count > 0 && depth >= kMaxArchiveDepth)) {
        stream.setStatus(QDataStream::ReadCorruptData);
        return false;
    }
    playlist.setItemId(itemId);
    playlist.setName(name);
    if (count == -1) {
        playlist.setChildren(std::nullopt);
        return true;
    }
    // No reserve(count): the count comes from outside and may be absurd; a
    // short archive runs out of bytes long before memory does.
    QList<Playlist> children;
    for (qint32 i = 0; i < count; ++i) {
        Playlist child;
        if (!read(stream, child, depth + 1))
            return false;
        children.append(child);
    }
    playlist.setChildren(std::move(children));
    return true;
}

}

void Playlist::setChildren(std::optional<QList<Playlist>> children)
{
    if (children)
        m_children = std::make_shared<const QList<Playlist>>(std::move(*children));
    else
        m_children.reset();
}

bool Playlist::operator==(const Playlist &other) const
{
    return !m_itemId.isEmpty() && m_itemId == other.m_itemId;
}

size_t qHash(const Playlist &playlist, size_t seed)
{
    return qHash(playlist.itemId(), seed);
}

std::optional<QList<Playlist>> Playlist::fromJSON(const JsonValue *value)
{
    if (!value || !value->isArray())
        return std::nullopt;
    const JsonArray &elements = value->toArray();
    QList<Playlist> playlists;
    playlists.reserve(qsizetype(elements.size()));
    for (const JsonValue &element : elements) {
        if (!element.isObject())
            continue;
        const JsonObject &object = element.toObject();
        Playlist playlist;
        playlist.setName(jsonTextMember(object, u"name"));
        playlist.setItemId(jsonTextMember(object, u"id"));
        playlist.setChildren(fromJSON(object.find(u"children")));
        playlists.append(playlist);
    }
    return playlists;
}

std::optional<QList<Playlist>> Playlist::fromJSONString(const QString &text)
{
    const std::optional<JsonObject> document = dictionaryWithJSONString(text);
    if (!document)
        return std::nullopt;
    return fromJSON(document->find(u"playlists"));
}

QDataStream &operator<<(QDataStream &stream, const Playlist &playlist)
{
    write(stream, playlist);
    return stream;
}

QDataStream &operator>>(QDataStream &stream, Playlist &playlist)
{
    Playlist result;
    if (read(stream, result, 0))
        playlist = result;
    else
        playlist = Playlist();
    return stream;
}

QByteArray Playlist::archive(const QList<Playlist> &playlists)
{
    QByteArray data;
    QDataStream stream(&data, QIODevice::WriteOnly);
    stream.setVersion(QDataStream::Qt_6_0);
    stream << qint32(playlists.size());
    for (const Playlist &playlist : playlists)
        stream << playlist;
    return data;
}

std::optional<QList<Playlist>> Playlist::unarchive(const QByteArray &data)
{
    QDataStream stream(data);
    stream.setVersion(QDataStream::Qt_6_0);
    qint32 count = 0;
    stream >> count;
    if (stream.status() != QDataStream::Ok || count < 0)
        return std::nullopt;
    QList<Playlist> playlists;
    for (qint32 i = 0; i < count; ++i) {
        Playlist playlist;
        stream >> playlist;
        if (stream.status() != QDataStream::Ok)
            return std::nullopt;
        playlists.append(playlist);
    }
    if (!stream.atEnd())
        return std::nullopt;
    return playlists;
}
