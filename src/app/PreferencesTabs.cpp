#include "PreferencesTabs.h"

#include "conversion/ConversionController.h"
#include "folders/ConversionFoldersController.h"
#include "folders/SharedFoldersController.h"
#include "logs/LogsController.h"
#include "playlists/ITunesPlaylistsController.h"
#include "preferences/MainWindowController.h"
#include "remote/RemoteController.h"

#include <QWidget>

namespace {

// Each controller builds its page into the tab's placeholder and lives as
// its child, so it goes with the window.
template<class Controller>
Controller *createIn(QWidget *window, const char *placeholder)
{
    auto *content = window->findChild<QWidget *>(QLatin1String(placeholder));
    if (!content)
        return nullptr;
    auto *controller = new Controller(content);
    controller->awakeFromNib();
    return controller;
}

}

void installPreferencesTabs()
{
    ITunesPlaylistsController::registerLayout();
    MainWindowController::addTabSetup([](MainWindowController *main, QWidget *window) {
        createIn<SharedFoldersController>(window, "sharedFoldersContent");
        createIn<ConversionFoldersController>(window, "conversionFoldersContent");
        main->setConversionController(createIn<ConversionController>(window, "conversionContent"));
        createIn<RemoteController>(window, "remoteContent");
        main->setLogsController(createIn<LogsController>(window, "logsContent"));
    });
}
