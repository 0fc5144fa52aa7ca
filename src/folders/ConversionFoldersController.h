#pragma once

#include "folders/ConversionFolder.h"
#include "folders/FoldersEditor.h"

// The conversion folders tab: disk folders whose videos the server converts
// ahead of time, kept in the conversion folders file. Only folders are
// taken; rows of the shared folders table and playlists are refused.
class ConversionFoldersController : public FoldersEditorOf<ConversionFolder>
{
    Q_OBJECT

public:
    // The row format of this table's own drags.
    static const QString rowsPasteboardType;

    // Builds the page into `content` and becomes its child.
    explicit ConversionFoldersController(QWidget *content);
    ~ConversionFoldersController() override;

    // "name": the name; "path": the folder's path.
    QVariant objectValueForTableColumn(const QString &column, int row) const override;

    void addFolderButtonClicked();
    void removefolderButtonClicked();
};
