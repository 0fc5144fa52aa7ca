#include "folders/Folder.h"

#include "folders/FolderFile.h"

#include <QDir>

bool Folder::operator==(const Folder &other) const
{
    return m_type == other.m_type && FolderFile::sameString(m_folderId, other.m_folderId)
        && FolderFile::sameString(m_name, other.m_name)
        && FolderFile::sameString(m_location, other.m_location);
}

QString Folder::applicationFolderName()
{
    return QDir::homePath() + QStringLiteral("/Library/Application Support/QuillonServer");
}

QString Folder::foldersFileName()
{
    return applicationFolderName() + QStringLiteral("/folders.txt");
}

QString Folder::alternativeApplicationFolderName()
{
    return QDir::homePath() + QStringLiteral("/Library/Application Support/TarnwickServer");
}

QString Folder::alternativeFoldersFileName()
{
    return alternativeApplicationFolderName() + QStringLiteral("/folders.txt");
}

void Folder::saveFolders(const QList<Folder> &folders)
{
    JsonArray array;
    array.reserve(size_t(folders.size()));
    for (const Folder &folder : folders) {
        const char *type = folder.type() == DiskFolder ? "DiskFolder" : "iTunesPlaylist";
        array.push_back(FolderFile::folderObject(folder.name(), type, folder.location(), folder.folderId()));
    }
    FolderFile::write(applicationFolderName(), foldersFileName(), std::move(array));
}

QList<Folder> Folder::loadFolders()
{
    std::optional<QString> text = FolderFile::read(foldersFileName());
    if (!text)
        text = FolderFile::read(alternativeFoldersFileName());
    if (!text)
        return {};

    return FolderFile::recordsOf<Folder>(*text, [](Folder &folder, const JsonObject &object) {
        const JsonValue *type = object.find(u"type");
        const bool disk = type && type->isString() && type->toString() == QLatin1String("DiskFolder");
        folder.setType(disk ? DiskFolder : ITunesPlaylist);
    });
}
