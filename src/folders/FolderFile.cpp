#include "folders/FolderFile.h"

#include "platform/SaveFailures.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStringDecoder>

JsonObject FolderFile::folderObject(const QString &name, const char *type, const QString &location,
                                    const QString &folderId)
{
    JsonObject object;
    if (name.isNull())
        return object;
    object.insert(QStringLiteral("name"), name);
    if (type)
        object.insert(QStringLiteral("type"), type);
    if (location.isNull())
        return object;
    object.insert(QStringLiteral("id"), location);
    if (!folderId.isNull())
        object.insert(QStringLiteral("folderId"), folderId);
    return object;
}

void FolderFile::write(const QString &folder, const QString &fileName, JsonArray folders)
{
    // mkpath rather than a single mkdir: on Linux "~/Library/Application Support"
    // usually does not exist yet.
    QDir().mkpath(folder);

    JsonObject document;
    document.insert(QStringLiteral("folders"), JsonValue(std::move(folders)));
    const QByteArray bytes = jsonStringValue(document).toUtf8();

    // A temporary file renamed over the old one: a failed or interrupted save
    // leaves the user's list as it was. The Java server opens the file by
    // name for each read, so it sees either the old list or the new one.
    QSaveFile file(fileName);
    // Flushed here: Qt 6.4's commit() replaces the file even when its own
    // final flush failed (a full disk, a file size limit).
    const bool written = file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.flush();
    if (!written)
        file.cancelWriting();
    if (file.commit() && written) {
        SaveFailures::saved(fileName);
        return;
    }
    const QFileInfo parent(folder);
    SaveFailures::failed(fileName, parent.exists() && !parent.isDir() ? QStringLiteral("%1 is not a folder").arg(folder)
                                                                      : file.errorString());
}

std::optional<QString> FolderFile::read(const QString &fileName)
{
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return std::nullopt;
    // Bytes that are not UTF-8 make the file unreadable, as a missing one is.
    QStringDecoder decoder(QStringDecoder::Utf8);
    QString text = decoder.decode(bytes);
    if (decoder.hasError())
        return std::nullopt;
    return text;
}

JsonArray FolderFile::foldersOf(const QString &text)
{
    const std::optional<JsonObject> document = dictionaryWithJSONString(text);
    if (!document)
        return {};
    const JsonValue *folders = document->find(u"folders");
    if (!folders || !folders->isArray())
        return {};
    return folders->toArray();
}

