#include "folders/SharedFoldersController.h"

#include "WindowController.h"
#include "platform/WindowLayouts.h"
#include "folders/FolderTableView.h"
#include "platform/SystemLog.h"
#include "playlists/ITunesPlaylistsController.h"
#include "playlists/Playlist.h"
#include "ui_SharedFoldersPage.h"

#include <QMimeData>
#include <QPushButton>

const QString SharedFoldersController::rowsPasteboardType = QStringLiteral("TarnwickServerRows");

namespace {
const QString kPlaylistsLayout = QStringLiteral("Playlists");
}

SharedFoldersController::SharedFoldersController(QWidget *content)
    : FoldersEditorOf<Folder>(content,
                              {rowsPasteboardType, filenamesType, QString::fromLatin1(ITunesPlaylistPBoardType)},
                              {{QStringLiteral("name"), tr("Name"), true},
                               {QStringLiteral("type"), tr("Location"), false}})
{
    auto *page = new QWidget;
    Ui::SharedFoldersPage form;
    form.setupUi(page);
    installPage(page, form.tableView);
    connect(form.addDiskFolderButton, &QAbstractButton::clicked, this,
            &SharedFoldersController::addDiskFolderButtonClicked);
    connect(form.addITunesPlaylistButton, &QAbstractButton::clicked, this,
            &SharedFoldersController::addITunesPlaylistButtonClicked);
    connect(form.removeSelectedButton, &QAbstractButton::clicked, this,
            &SharedFoldersController::removeSelectedButtonClicked);
}

SharedFoldersController::~SharedFoldersController()
{
    systemLog(QStringLiteral("SharedFoldersController dealloc"));
    // An open picker goes with the table it adds to.
    if (WindowController *picker = m_addITunesPlaylistWindowController) {
        picker->onDeallocCallTarget(nullptr, {});
        delete picker;
    }
}

QVariant SharedFoldersController::objectValueForTableColumn(const QString &column, int row) const
{
    if (row < 0 || row >= m_folders.size())
        return {};
    const Folder &folder = m_folders.at(row);
    if (column == QLatin1String("name"))
        return folder.name();
    if (column == QLatin1String("type"))
        return folder.type() != Folder::DiskFolder ? QStringLiteral("iTunes Playlist") : folder.location();
    return {};
}

void SharedFoldersController::addDiskFolderButtonClicked()
{
    chooseFoldersToAdd();
}

void SharedFoldersController::addITunesPlaylistButtonClicked()
{
    if (!m_addITunesPlaylistWindowController) {
        // The picker's layout is bound by whoever starts the application;
        // a table used on its own binds it on first use.
        if (!WindowLayouts::hasForm(kPlaylistsLayout))
            ITunesPlaylistsController::registerLayout();
        auto *controller = new WindowController(kPlaylistsLayout);
        m_addITunesPlaylistWindowController = controller;
        controller->onDeallocCallTarget(this, &SharedFoldersController::addITunesPlaylistWindowControllerDealloc);
        if (!controller->window()) {
            delete controller; // clears the field through the callback
            return;
        }
        if (auto *picker = qobject_cast<ITunesPlaylistsController *>(controller->mainController())) {
            picker->setTarget(this);
            QPointer<SharedFoldersController> self(this);
            picker->setAddSelector([self](const Playlist &playlist) {
                if (self)
                    self->addITunesPlaylist(playlist);
            });
        }
    }
    m_addITunesPlaylistWindowController->showWindow();
}

void SharedFoldersController::addITunesPlaylistWindowControllerDealloc()
{
    m_addITunesPlaylistWindowController = nullptr;
}

void SharedFoldersController::removeSelectedButtonClicked()
{
    removeSelectedRows();
}

void SharedFoldersController::addITunesPlaylist(const Playlist &playlist)
{
    addITunesPlaylist(playlist, -1);
}

void SharedFoldersController::addITunesPlaylist(const Playlist &playlist, int row)
{
    Folder folder;
    folder.setName(getValidNewFolderName(playlist.name()));
    folder.setLocation(playlist.itemId());
    folder.setType(Folder::ITunesPlaylist);
    insertFolder(folder, row);
    save();
}

void SharedFoldersController::acceptOtherDrop(const QString &type, const QMimeData *data, int row)
{
    if (type != QLatin1String(ITunesPlaylistPBoardType))
        return;
    // Each at the same row, each saved: several land in reverse order.
    if (const std::optional<QList<Playlist>> playlists = Playlist::unarchive(data->data(type))) {
        for (const Playlist &playlist : *playlists)
            addITunesPlaylist(playlist, row);
    }
    deselectAll();
}
