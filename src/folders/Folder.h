#pragma once

#include <QList>
#include <QString>

// One entry of the server's library: a folder on disk or an iTunes playlist.
// An absent string is a null QString, which is not the same as an empty one:
// an absent value ends the folder's object in the folders file.
class Folder
{
public:
    enum Type : qint32 { DiskFolder = 0, ITunesPlaylist = 1 };

    QString folderId() const { return m_folderId; }
    void setFolderId(const QString &folderId) { m_folderId = folderId; }
    QString name() const { return m_name; }
    void setName(const QString &name) { m_name = name; }
    // A disk folder's full path, or a playlist's identifier.
    QString location() const { return m_location; }
    void setLocation(const QString &location) { m_location = location; }
    // 0 is a disk folder; every other value is written as a playlist.
    qint32 type() const { return m_type; }
    void setType(qint32 type) { m_type = type; }

    // Field by field, telling an absent string from an empty one.
    bool operator==(const Folder &other) const;
    bool operator!=(const Folder &other) const { return !(*this == other); }

    // "~/Library/Application Support/QuillonServer", ~ being $HOME. The Java
    // server reads its files from the same folder.
    static QString applicationFolderName();
    static QString foldersFileName();
    // The earlier product's folder, read only when the folders file is not.
    static QString alternativeApplicationFolderName();
    static QString alternativeFoldersFileName();

    // Replaces the folders file at once; a failure keeps the old file and is
    // reported to SaveFailures.
    static void saveFolders(const QList<Folder> &folders);
    // The folders file's records in file order; a broken file is no folders.
    static QList<Folder> loadFolders();

private:
    QString m_folderId;
    QString m_name;
    QString m_location;
    qint32 m_type = DiskFolder;
};
