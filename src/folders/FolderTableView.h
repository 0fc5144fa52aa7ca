#pragma once

#include "folders/FoldersEditor.h"

#include <QPointer>
#include <QRect>
#include <QTableView>

// The table of a folders editor. Drops land only between rows: wherever the
// pointer is over a row, the drop goes into the gap above it (upper half) or
// below it (lower half); below the last row it goes to the end. The editor
// decides whether the drop is taken and with which operation.
class FolderTableView : public QTableView
{
    Q_OBJECT

public:
    explicit FolderTableView(QWidget *parent = nullptr);

    void setEditor(FoldersEditor *editor) { m_editor = editor; }

    using QAbstractItemView::DropIndicatorPosition;
    using QAbstractItemView::AboveItem;
    using QAbstractItemView::BelowItem;
    using QAbstractItemView::OnItem;
    using QAbstractItemView::OnViewport;

    struct DropTarget {
        int row;
        FoldersEditor::DropOperation operation;
    };
    // The gap a drop lands in, from the indicator position over the row
    // `itemRow` of a table with `rowCount` rows.
    static DropTarget dropTarget(DropIndicatorPosition position, int itemRow, int rowCount);

    // Where a drop at `pos` (viewport coordinates) would land.
    DropTarget dropTargetAt(const QPoint &pos) const;

protected:
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dragMoveEvent(QDragMoveEvent *event) override;
    void dragLeaveEvent(QDragLeaveEvent *event) override;
    void dropEvent(QDropEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    DropIndicatorPosition positionAt(const QPoint &pos, int *itemRow) const;
    // Accepts or refuses the drag with the editor's operation; the operation,
    // or Qt::IgnoreAction.
    Qt::DropAction judge(QDropEvent *event);
    void setIndicator(const QRect &rect);

    QPointer<FoldersEditor> m_editor;
    QRect m_indicator;
};
