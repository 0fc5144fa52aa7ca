#include "bridge/ServerJar.h"

#include <QFile>
#include <QHash>

namespace {

quint32 le(const QByteArray &bytes, qsizetype at, int size)
{
    quint32 value = 0;
    for (int i = size - 1; i >= 0; --i)
        value = (value << 8) | quint8(bytes.at(at + i));
    return value;
}

const qsizetype kEndRecord = 22;   // end of central directory, without its comment
const qsizetype kEntryHeader = 46; // central directory entry, without name and extras
const qsizetype kLocalHeader = 30;

}

QString ServerJar::problem(const QString &path, const QStringList &classes)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QStringLiteral("cannot be read: %1").arg(file.errorString());
    const qint64 size = file.size();

    // The end record sits in the last 64 KiB + 22 bytes (its comment is at most 64 KiB).
    const qint64 tailStart = qMax<qint64>(0, size - (kEndRecord + 0xFFFF));
    file.seek(tailStart);
    const QByteArray tail = file.read(size - tailStart);
    const qsizetype end = tail.lastIndexOf(QByteArrayView("PK\x05\x06", 4));
    if (end < 0 || tail.size() - end < kEndRecord)
        return QStringLiteral("is not a zip archive or has been cut short");
    const quint32 directorySize = le(tail, end + 12, 4);
    const quint32 directoryOffset = le(tail, end + 16, 4);
    if (directoryOffset == 0xFFFFFFFFu)
        return QString(); // zip64: beyond what this look covers
    if (qint64(directoryOffset) + directorySize > tailStart + end)
        return QStringLiteral("has a zip directory that points beyond its end");

    file.seek(directoryOffset);
    const QByteArray directory = file.read(directorySize);
    QHash<QString, quint32> offsets;
    for (qsizetype at = 0; at < directory.size();) {
        if (directory.size() - at < kEntryHeader || !directory.mid(at, 4).startsWith("PK\x01\x02"))
            return QStringLiteral("has a damaged zip directory");
        const quint32 nameLength = le(directory, at + 28, 2);
        const quint32 extraLength = le(directory, at + 30, 2);
        const quint32 commentLength = le(directory, at + 32, 2);
        if (at + kEntryHeader + nameLength > directory.size())
            return QStringLiteral("has a damaged zip directory");
        offsets.insert(QString::fromUtf8(directory.mid(at + kEntryHeader, nameLength)), le(directory, at + 42, 4));
        at += kEntryHeader + nameLength + extraLength + commentLength;
    }

    for (const QString &name : classes) {
        const auto found = offsets.constFind(name);
        if (found == offsets.cend())
            return QStringLiteral("holds no %1").arg(name);
        file.seek(*found);
        if (*found + kLocalHeader > directoryOffset || !file.read(4).startsWith("PK\x03\x04"))
            return QStringLiteral("has a damaged entry %1").arg(name);
    }
    return QString();
}
