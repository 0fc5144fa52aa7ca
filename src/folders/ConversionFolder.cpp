#include "folders/ConversionFolder.h"

#include "folders/Folder.h"
#include "folders/FolderFile.h"

bool ConversionFolder::operator==(const ConversionFolder &other) const
{
    return FolderFile::sameString(m_folderId, other.m_folderId)
        && FolderFile::sameString(m_name, other.m_name)
        && FolderFile::sameString(m_location, other.m_location);
}

QString ConversionFolder::applicationFolderName()
{
    return Folder::applicationFolderName();
}

QString ConversionFolder::foldersFileName()
{
    return applicationFolderName() + QStringLiteral("/conversion-folders.txt");
}

void ConversionFolder::saveFolders(const QList<ConversionFolder> &folders)
{
    JsonArray array;
    array.reserve(size_t(folders.size()));
    for (const ConversionFolder &folder : folders)
        array.push_back(FolderFile::folderObject(folder.name(), nullptr, folder.location(), folder.folderId()));
    FolderFile::write(applicationFolderName(), foldersFileName(), std::move(array));
}

QList<ConversionFolder> ConversionFolder::loadFolders()
{
    const std::optional<QString> text = FolderFile::read(foldersFileName());
    if (!text)
        return {};

    return FolderFile::recordsOf<ConversionFolder>(*text, [](ConversionFolder &, const JsonObject &) {});
}
