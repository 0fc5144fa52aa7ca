#include "folders/ConversionFoldersController.h"

#include "folders/FolderTableView.h"
#include "platform/SystemLog.h"
#include "ui_ConversionFoldersPage.h"

#include <QPushButton>

const QString ConversionFoldersController::rowsPasteboardType =
    QStringLiteral("QuillonServerConversionFolderRows");

ConversionFoldersController::ConversionFoldersController(QWidget *content)
    : FoldersEditorOf<ConversionFolder>(content, {rowsPasteboardType, filenamesType},
                                        {{QStringLiteral("name"), tr("Name"), true},
                                         {QStringLiteral("path"), tr("Path"), false}})
{
    auto *page = new QWidget;
    Ui::ConversionFoldersPage form;
    form.setupUi(page);
    installPage(page, form.tableView);
    connect(form.addFolderButton, &QAbstractButton::clicked, this,
            &ConversionFoldersController::addFolderButtonClicked);
    connect(form.removefolderButton, &QAbstractButton::clicked, this,
            &ConversionFoldersController::removefolderButtonClicked);
}

ConversionFoldersController::~ConversionFoldersController()
{
    systemLog(QStringLiteral("ConversionFoldersController dealloc"));
}

QVariant ConversionFoldersController::objectValueForTableColumn(const QString &column, int row) const
{
    if (row < 0 || row >= m_folders.size())
        return {};
    if (column == QLatin1String("name"))
        return m_folders.at(row).name();
    if (column == QLatin1String("path"))
        return m_folders.at(row).location();
    return {};
}

void ConversionFoldersController::addFolderButtonClicked()
{
    chooseFoldersToAdd();
}

void ConversionFoldersController::removefolderButtonClicked()
{
    removeSelectedRows();
}
