#include "folders/FoldersEditor.h"

#include "folders/FolderTableView.h"
#include "platform/SystemLog.h"
#include "preferences/TabPage.h"

#include <QAbstractTableModel>
#include <QDataStream>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QItemSelectionModel>
#include <QMimeData>
#include <QSet>
#include <QTimer>
#include <QUrl>

const QString FoldersEditor::filenamesType = QStringLiteral("text/uri-list");

// The table model over an editor: every question goes to the editor's data
// source operations.
class FolderTableModel : public QAbstractTableModel
{
public:
    FolderTableModel(FoldersEditor *editor, const QList<QString> &titles, const QList<bool> &editable)
        : QAbstractTableModel(editor)
        , m_editor(editor)
        , m_titles(titles)
        , m_editable(editable)
    {
    }

    void beginChange() { beginResetModel(); }
    void endChange() { endResetModel(); }
    void beginInsert(int row) { beginInsertRows(QModelIndex(), row, row); }
    void endInsert() { endInsertRows(); }
    void rowsChanged(int first, int last) { emit dataChanged(index(first, 0), index(last, columnCount() - 1)); }
    // The editor is going away: from now on the table is empty.
    void detach()
    {
        beginResetModel();
        m_editor = nullptr;
        endResetModel();
    }

    int rowCount(const QModelIndex &parent = QModelIndex()) const override
    {
        return parent.isValid() || !m_editor ? 0 : m_editor->numberOfRowsInTableView();
    }

    int columnCount(const QModelIndex &parent = QModelIndex()) const override
    {
        return parent.isValid() ? 0 : int(m_titles.size());
    }

    QVariant data(const QModelIndex &index, int role) const override
    {
        if (!m_editor || !index.isValid()
            || (role != Qt::DisplayRole && role != Qt::EditRole && role != Qt::ToolTipRole))
            return {};
        return m_editor->objectValueForTableColumn(m_editor->columnIdentifiers().value(index.column()),
                                                   index.row());
    }

    bool setData(const QModelIndex &index, const QVariant &value, int role) override
    {
        if (!m_editor || !index.isValid() || role != Qt::EditRole)
            return false;
        // Saving reloads the whole table, which must not happen while the
        // view is still committing its cell editor: the rename follows as
        // soon as the view is done.
        QPointer<FoldersEditor> editor(m_editor);
        const QString column = m_editor->columnIdentifiers().value(index.column());
        const int row = index.row();
        QTimer::singleShot(0, m_editor, [editor, value, column, row] {
            if (editor)
                editor->setObjectValue(value, column, row);
        });
        return true;
    }

    QVariant headerData(int section, Qt::Orientation orientation, int role) const override
    {
        if (orientation == Qt::Horizontal && role == Qt::DisplayRole)
            return m_titles.value(section);
        return {};
    }

    Qt::ItemFlags flags(const QModelIndex &index) const override
    {
        // Only the table as a whole takes drops, never a row: the view then
        // always shows a gap between rows.
        if (!index.isValid())
            return Qt::ItemIsDropEnabled;
        Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsDragEnabled
                              | Qt::ItemNeverHasChildren;
        if (m_editable.value(index.column()))
            flags |= Qt::ItemIsEditable;
        return flags;
    }

    QStringList mimeTypes() const override { return m_editor ? m_editor->registeredDraggedTypes() : QStringList(); }

    QMimeData *mimeData(const QModelIndexList &indexes) const override
    {
        if (!m_editor)
            return nullptr;
        QList<int> rows;
        for (const QModelIndex &index : indexes) {
            if (index.isValid() && !rows.contains(index.row()))
                rows.append(index.row());
        }
        std::sort(rows.begin(), rows.end());
        return m_editor->writeRows(rows);
    }

    Qt::DropActions supportedDragActions() const override { return Qt::MoveAction; }
    Qt::DropActions supportedDropActions() const override { return Qt::CopyAction | Qt::MoveAction; }

private:
    FoldersEditor *m_editor;
    QList<QString> m_titles;
    QList<bool> m_editable;
};

FoldersEditor::FoldersEditor(QWidget *content, const QStringList &dragTypes, const QList<Column> &columns)
    : QObject(content)
    , m_rowsType(dragTypes.value(0))
    , m_dragTypes(dragTypes)
{
    QList<QString> titles;
    QList<bool> editable;
    for (const Column &column : columns) {
        m_columns.append(column.identifier);
        titles.append(column.title);
        editable.append(column.editable);
    }
    m_model = new FolderTableModel(this, titles, editable);
}

FoldersEditor::~FoldersEditor()
{
    // The model goes with this editor; the table, which may outlive it by a
    // moment, must not ask it anything in between.
    m_model->detach();
    if (m_tableView) {
        m_tableView->setEditor(nullptr);
        m_tableView->setModel(nullptr);
    }
}

void FoldersEditor::installPage(QWidget *page, FolderTableView *table)
{
    if (QWidget *content = qobject_cast<QWidget *>(parent()))
        addTabPage(content, page);
    m_tableView = table;
    if (table) {
        table->setModel(m_model);
        table->setEditor(this);
    }
}

void FoldersEditor::awakeFromNib()
{
    systemLog(QStringLiteral("Shared Folder Controller awakeFromNib"));
    reloadFolders();
    m_registeredTypes = m_dragTypes;
    if (m_tableView)
        m_tableView->setAcceptDrops(true);
}

QTableView *FoldersEditor::tableView() const
{
    return m_tableView;
}

QByteArray FoldersEditor::dataFromRows(const QList<int> &rows)
{
    QByteArray data;
    QDataStream stream(&data, QIODevice::WriteOnly);
    stream.setVersion(QDataStream::Qt_6_0);
    stream << qint32(rows.size());
    for (int row : rows)
        stream << qint32(row);
    return data;
}

std::optional<QList<int>> FoldersEditor::rowsFromData(const QByteArray &data)
{
    // Read by hand: the count comes from outside and must not decide how
    // much memory is reserved before the rows are known to be there.
    QDataStream stream(data);
    stream.setVersion(QDataStream::Qt_6_0);
    qint32 count = -1;
    stream >> count;
    if (stream.status() != QDataStream::Ok || count < 0 || qint64(count) * 4 != data.size() - 4)
        return std::nullopt;
    QList<int> rows;
    rows.reserve(count);
    for (qint32 i = 0; i < count; ++i) {
        qint32 row = 0;
        stream >> row;
        rows.append(row);
    }
    if (stream.status() != QDataStream::Ok)
        return std::nullopt;
    return rows;
}

QMimeData *FoldersEditor::writeRows(const QList<int> &rows) const
{
    auto *data = new QMimeData;
    data->setData(m_rowsType, dataFromRows(rows));
    return data;
}

QString FoldersEditor::lastPathComponent(const QString &path)
{
    qsizetype end = path.size();
    while (end > 1 && path.at(end - 1) == u'/')
        --end;
    const QString trimmed = path.left(end);
    if (trimmed == QStringLiteral("/"))
        return trimmed;
    return trimmed.mid(trimmed.lastIndexOf(u'/') + 1);
}

QStringList FoldersEditor::droppedFolders(const QMimeData *data)
{
    QStringList folders;
    if (!data || !data->hasFormat(filenamesType))
        return folders;
    const QList<QUrl> urls = data->urls();
    for (const QUrl &url : urls) {
        if (!url.isLocalFile())
            continue;
        const QString path = QDir::cleanPath(url.toLocalFile());
        const QFileInfo info(path);
        if (info.exists() && info.isDir() && info.isReadable())
            folders.append(path);
    }
    return folders;
}

QString FoldersEditor::preferredType(const QMimeData *data) const
{
    if (!data)
        return {};
    for (const QString &type : m_registeredTypes) {
        if (data->hasFormat(type))
            return type;
    }
    return {};
}

int FoldersEditor::dropRow(int row) const
{
    const int count = numberOfRowsInTableView();
    return row < 0 || row > count ? count : row;
}

Qt::DropAction FoldersEditor::validateDrop(const QMimeData *data, int, DropOperation operation) const
{
    if (operation != DropOperation::Above)
        return Qt::IgnoreAction;
    const QString type = preferredType(data);
    if (type.isEmpty())
        return Qt::IgnoreAction;
    if (type == m_rowsType)
        return Qt::MoveAction;
    if (type == filenamesType)
        return droppedFolders(data).isEmpty() ? Qt::IgnoreAction : Qt::CopyAction;
    // Any further registered format is one this editor takes as a copy.
    return Qt::CopyAction;
}

bool FoldersEditor::acceptDrop(const QMimeData *data, int row, DropOperation operation)
{
    if (operation != DropOperation::Above)
        return false;
    row = dropRow(row);
    const QString type = preferredType(data);
    if (type.isEmpty())
        return true;
    if (type == m_rowsType) {
        if (const std::optional<QList<int>> rows = rowsFromData(data->data(m_rowsType)))
            moveRows(*rows, row);
        deselectAll();
        save();
    } else if (type == filenamesType) {
        // Each at the same row: several folders land in reverse order.
        for (const QString &folder : droppedFolders(data))
            addFolder(folder, row);
        deselectAll();
        save();
    } else {
        acceptOtherDrop(type, data, row);
    }
    return true;
}

void FoldersEditor::acceptOtherDrop(const QString &, const QMimeData *, int)
{
}

bool FoldersEditor::hasFolderWithName(const QString &name) const
{
    const QString wanted = name.toLower();
    const int count = numberOfRowsInTableView();
    for (int row = 0; row < count; ++row) {
        const QString existing = folderName(row);
        if (!existing.isNull() && existing.toLower() == wanted)
            return true;
    }
    return false;
}

QString FoldersEditor::getValidNewFolderName(const QString &name) const
{
    if (!hasFolderWithName(name))
        return name;
    // One pass over the list rather than one per candidate.
    QSet<QString> taken;
    const int count = numberOfRowsInTableView();
    for (int row = 0; row < count; ++row) {
        const QString existing = folderName(row);
        if (!existing.isNull())
            taken.insert(existing.toLower());
    }
    for (int i = 2; i <= 9999; ++i) {
        // Both filled in one pass: a "%1" inside the name must stay as it is.
        const QString candidate = QStringLiteral("%1 %2").arg(name, QString::number(i));
        if (!taken.contains(candidate.toLower()))
            return candidate;
    }
    return name;
}

void FoldersEditor::chooseFoldersToAdd()
{
    QFileDialog dialog(m_tableView ? m_tableView->window() : nullptr);
    dialog.setFileMode(QFileDialog::Directory);
    dialog.setOption(QFileDialog::ShowDirsOnly, true);
    dialog.setAcceptMode(QFileDialog::AcceptOpen);
    if (dialog.exec() != QDialog::Accepted)
        return;
    for (const QString &path : dialog.selectedFiles())
        addFolder(path, -1);
    save();
}

void FoldersEditor::removeSelectedRows()
{
    QList<int> rows;
    if (m_tableView && m_tableView->selectionModel()) {
        const QModelIndexList selected = m_tableView->selectionModel()->selectedIndexes();
        for (const QModelIndex &index : selected)
            rows.append(index.row());
    }
    removeRows(rows);
    deselectAll();
    save();
}

void FoldersEditor::deselectAll()
{
    if (m_tableView)
        m_tableView->clearSelection();
}

void FoldersEditor::beginChange()
{
    m_model->beginChange();
}

void FoldersEditor::endChange()
{
    m_model->endChange();
}

void FoldersEditor::beginInsert(int row)
{
    m_model->beginInsert(row);
}

void FoldersEditor::endInsert()
{
    m_model->endInsert();
}

void FoldersEditor::rowsChanged(int first, int last)
{
    m_model->rowsChanged(first, last);
}
