#include "folders/FolderTableView.h"

#include <QDragEnterEvent>
#include <QDragLeaveEvent>
#include <QDragMoveEvent>
#include <QDropEvent>
#include <QHeaderView>
#include <QPainter>

FolderTableView::FolderTableView(QWidget *parent)
    : QTableView(parent)
{
    setSelectionBehavior(SelectRows);
    setSelectionMode(ExtendedSelection);
    setDragEnabled(true);
    // Dropped data is the editor's business: the view must neither write
    // into cells nor remove the dragged rows itself.
    setDragDropOverwriteMode(false);
    setDropIndicatorShown(false);
    setAutoScroll(true);
    setShowGrid(false);
    setAlternatingRowColors(true);
    setWordWrap(false);
    setEditTriggers(DoubleClicked | EditKeyPressed | SelectedClicked);
    verticalHeader()->hide();
    horizontalHeader()->setDefaultSectionSize(200); // the name; the path takes the rest
    horizontalHeader()->setStretchLastSection(true);
    horizontalHeader()->setHighlightSections(false);
}

FolderTableView::DropTarget FolderTableView::dropTarget(DropIndicatorPosition position, int itemRow,
                                                        int rowCount)
{
    switch (position) {
    case AboveItem:
        return {itemRow, FoldersEditor::DropOperation::Above};
    case BelowItem:
        return {itemRow + 1, FoldersEditor::DropOperation::Above};
    case OnItem:
        return {itemRow, FoldersEditor::DropOperation::On};
    case OnViewport:
        break;
    }
    return {rowCount, FoldersEditor::DropOperation::Above};
}

QAbstractItemView::DropIndicatorPosition FolderTableView::positionAt(const QPoint &pos, int *itemRow) const
{
    const QModelIndex index = indexAt(pos);
    *itemRow = index.isValid() ? index.row() : -1;
    if (!index.isValid())
        return OnViewport;
    const QRect rect = visualRect(index);
    return pos.y() < rect.center().y() ? AboveItem : BelowItem;
}

FolderTableView::DropTarget FolderTableView::dropTargetAt(const QPoint &pos) const
{
    int itemRow = -1;
    const DropIndicatorPosition position = positionAt(pos, &itemRow);
    return dropTarget(position, itemRow, model() ? model()->rowCount() : 0);
}

Qt::DropAction FolderTableView::judge(QDropEvent *event)
{
    const QPoint pos = event->position().toPoint();
    const DropTarget target = dropTargetAt(pos);
    const Qt::DropAction action =
        m_editor ? m_editor->validateDrop(event->mimeData(), target.row, target.operation) : Qt::IgnoreAction;
    // A source that does not offer the operation (a move offered as copy
    // only) cannot be served as the editor wants.
    if (action == Qt::IgnoreAction || !(event->possibleActions() & action)) {
        event->ignore();
        setIndicator(QRect());
        return Qt::IgnoreAction;
    }
    event->setDropAction(action);
    event->accept();

    // A line over the gap the drop goes into.
    const int rows = model() ? model()->rowCount() : 0;
    int y = 0;
    if (target.row < rows)
        y = rowViewportPosition(target.row);
    else if (rows > 0)
        y = rowViewportPosition(rows - 1) + rowHeight(rows - 1);
    setIndicator(QRect(0, y - 1, viewport()->width(), 2));
    return action;
}

void FolderTableView::setIndicator(const QRect &rect)
{
    if (rect == m_indicator)
        return;
    m_indicator = rect;
    viewport()->update();
}

void FolderTableView::dragEnterEvent(QDragEnterEvent *event)
{
    QTableView::dragEnterEvent(event); // dragging state
    judge(event);
}

void FolderTableView::dragMoveEvent(QDragMoveEvent *event)
{
    QTableView::dragMoveEvent(event); // scrolling near the edges
    judge(event);
}

void FolderTableView::dragLeaveEvent(QDragLeaveEvent *event)
{
    QTableView::dragLeaveEvent(event);
    setIndicator(QRect());
}

void FolderTableView::dropEvent(QDropEvent *event)
{
    const DropTarget target = dropTargetAt(event->position().toPoint());
    if (judge(event) != Qt::IgnoreAction)
        m_editor->acceptDrop(event->mimeData(), target.row, target.operation);
    stopAutoScroll();
    setState(NoState);
    setIndicator(QRect());
}

void FolderTableView::paintEvent(QPaintEvent *event)
{
    QTableView::paintEvent(event);
    if (m_indicator.isNull())
        return;
    QPainter painter(viewport());
    painter.fillRect(m_indicator, palette().color(QPalette::Highlight));
}
