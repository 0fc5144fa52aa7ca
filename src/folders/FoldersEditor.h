#pragma once

#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <algorithm>
#include <functional>
#include <optional>

class FolderTableModel;
class FolderTableView;
class QMimeData;
class QTableView;
class QWidget;

// What the shared folders and the conversion folders tables have in common:
// a list of records shown one per row, new entries named uniquely, renames
// taken as typed, removal, and drag and drop of the table's own rows, of
// folders from the file manager and, where the table accepts them, of
// playlists. Every change writes the list to its file and reads it back, so
// the table shows exactly what the server will read.
class FoldersEditor : public QObject
{
    Q_OBJECT

public:
    // Where a drop lands: in the gap above `row`, or onto the row itself.
    // The table takes drops only between rows.
    enum class DropOperation { Above, On };

    // The drag format of file paths: local files as "text/uri-list".
    static const QString filenamesType;

    ~FoldersEditor() override;

    // Reads the list and starts taking drops; call once the controller is built.
    void awakeFromNib();

    QTableView *tableView() const;

    // The table's data source.
    virtual int numberOfRowsInTableView() const = 0;
    // The text of a cell by column identifier; nothing for an unknown one.
    virtual QVariant objectValueForTableColumn(const QString &column, int row) const = 0;
    // Renames the row, whatever the column, without any check, and saves.
    virtual void setObjectValue(const QVariant &value, const QString &column, int row) = 0;

    // The drag payload of these rows: the row numbers under the table's own
    // row format. The caller owns the result.
    QMimeData *writeRows(const QList<int> &rows) const;
    // The drop operation offered for `data` at `row` (move for rows, copy for
    // folders and playlists), or Qt::IgnoreAction when it is refused.
    Qt::DropAction validateDrop(const QMimeData *data, int row, DropOperation operation) const;
    // Takes the drop in; a row outside the table means the end. Answers
    // false only for a drop onto a row, which is never taken.
    bool acceptDrop(const QMimeData *data, int row, DropOperation operation);

    // Inserts a new entry for the folder at `path` at `index` (-1: at the
    // end), named after the path's last component. Neither saves nor reloads.
    virtual void addFolder(const QString &path, int index) = 0;
    // `name` itself when no entry has it (ignoring case), else the first free
    // "name 2" .. "name 9999", else `name` again.
    QString getValidNewFolderName(const QString &name) const;
    bool hasFolderWithName(const QString &name) const;
    // Writes the list to its file and reads it back from there.
    virtual void save() = 0;
    virtual void reloadFolders() = 0;

    // The formats the table takes, in order of preference; empty until
    // awakeFromNib.
    QStringList registeredDraggedTypes() const { return m_registeredTypes; }
    QString rowsType() const { return m_rowsType; }
    QStringList columnIdentifiers() const { return m_columns; }

    // The readable folders among the local files of a drop, in drop order.
    static QStringList droppedFolders(const QMimeData *data);
    // Row numbers of a row payload; nothing when the bytes are not one.
    static std::optional<QList<int>> rowsFromData(const QByteArray &data);
    static QByteArray dataFromRows(const QList<int> &rows);
    // The last component of a path ("/a/b/" gives "b", "/" gives "/").
    static QString lastPathComponent(const QString &path);

protected:
    struct Column {
        QString identifier;
        QString title;
        bool editable = false;
    };

    // `dragTypes` are the formats the table takes, by preference; the first
    // is the table's own row format.
    FoldersEditor(QWidget *content, const QStringList &dragTypes, const QList<Column> &columns);

    // Puts the page into the content widget and serves its table.
    void installPage(QWidget *page, FolderTableView *table);

    // The record at a row, as far as these shared operations need it.
    virtual QString folderName(int row) const = 0;
    virtual void moveRows(const QList<int> &rows, int row) = 0;
    virtual void removeRows(const QList<int> &rows) = 0;
    // A drop of a format other than rows and file paths; nothing by default.
    virtual void acceptOtherDrop(const QString &type, const QMimeData *data, int row);

    // Asks for folders to add at the end, then saves; nothing on cancel.
    void chooseFoldersToAdd();
    void removeSelectedRows();
    void deselectAll();

    // Every change of the list is made between these two, so that the table
    // redraws from the new list (and forgets its selection).
    void beginChange();
    void endChange();
    // Finer changes, which keep the selection on the same records: one row
    // inserted between the two calls, or rows whose values changed.
    void beginInsert(int row);
    void endInsert();
    void rowsChanged(int first, int last);

private:
    QString preferredType(const QMimeData *data) const;
    int dropRow(int row) const;

    QString m_rowsType;
    QStringList m_dragTypes;
    QStringList m_registeredTypes;
    QStringList m_columns;
    FolderTableModel *m_model = nullptr;
    QPointer<FolderTableView> m_tableView;
};

// The list itself, over either record type: Folder or ConversionFolder, both
// with name, location, saveFolders and loadFolders.
template <class Record>
class FoldersEditorOf : public FoldersEditor
{
public:
    QList<Record> folders() const { return m_folders; }

    int numberOfRowsInTableView() const override { return int(m_folders.size()); }

    void setObjectValue(const QVariant &value, const QString &, int row) override
    {
        if (row < 0 || row >= m_folders.size())
            return;
        m_folders[row].setName(value.toString());
        rowsChanged(row, row);
        save();
    }

    void addFolder(const QString &path, int index) override
    {
        Record folder;
        folder.setName(getValidNewFolderName(lastPathComponent(path)));
        folder.setLocation(path);
        insertFolder(folder, index);
    }

    void save() override
    {
        Record::saveFolders(m_folders);
        reloadFolders();
    }

    void reloadFolders() override
    {
        // The file holds what was just saved: the same records row for row,
        // so the selection stays where it was.
        QList<Record> loaded = Record::loadFolders();
        if (loaded.size() == m_folders.size() && !loaded.isEmpty()) {
            m_folders = std::move(loaded);
            rowsChanged(0, int(m_folders.size()) - 1);
            return;
        }
        beginChange();
        m_folders = std::move(loaded);
        endChange();
    }

protected:
    using FoldersEditor::FoldersEditor;

    void insertFolder(const Record &folder, int index)
    {
        if (index < 0 || index > m_folders.size())
            index = int(m_folders.size());
        beginInsert(index);
        m_folders.insert(index, folder);
        endInsert();
    }

    QString folderName(int row) const override { return m_folders.at(row).name(); }

    void moveRows(const QList<int> &rows, int row) override
    {
        // Taken rows leave a hole behind, so that the numbers of the others
        // and the drop row keep meaning what they meant when dragged.
        QList<std::optional<Record>> places(m_folders.cbegin(), m_folders.cend());
        QList<std::optional<Record>> moved;
        for (int taken : rows) {
            if (taken < 0 || taken >= places.size())
                continue;
            moved.append(places[taken]);
            places[taken].reset();
        }
        if (row < 0 || row > places.size())
            row = int(places.size());
        for (qsizetype i = 0; i < moved.size(); ++i)
            places.insert(row + i, moved[i]);

        beginChange();
        m_folders.clear();
        for (const std::optional<Record> &place : places) {
            if (place)
                m_folders.append(*place);
        }
        endChange();
    }

    void removeRows(const QList<int> &rows) override
    {
        QList<int> sorted = rows;
        std::sort(sorted.begin(), sorted.end(), std::greater<int>());
        sorted.erase(std::unique(sorted.begin(), sorted.end()), sorted.end());
        beginChange();
        for (int row : sorted) {
            if (row >= 0 && row < m_folders.size())
                m_folders.removeAt(row);
        }
        endChange();
    }

    QList<Record> m_folders;
};
