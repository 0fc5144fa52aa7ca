#pragma once

#include <QList>
#include <QString>

// A folder on disk that the server watches for videos to convert. Kept in its
// own file beside the folders file; there is no earlier product's file.
class ConversionFolder
{
public:
    QString folderId() const { return m_folderId; }
    void setFolderId(const QString &folderId) { m_folderId = folderId; }
    QString name() const { return m_name; }
    void setName(const QString &name) { m_name = name; }
    QString location() const { return m_location; }
    void setLocation(const QString &location) { m_location = location; }

    bool operator==(const ConversionFolder &other) const;
    bool operator!=(const ConversionFolder &other) const { return !(*this == other); }

    static QString applicationFolderName();
    static QString foldersFileName();

    static void saveFolders(const QList<ConversionFolder> &folders);
    static QList<ConversionFolder> loadFolders();

private:
    QString m_folderId;
    QString m_name;
    QString m_location;
};
