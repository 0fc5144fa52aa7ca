#include "PreferencesTabs.h"
#include "SingleInstance.h"
#include "StartupController.h"
#include "bridge/SignalQuit.h"
#include "platform/SystemLog.h"

#include <QApplication>

#include <cstdio>
#include <cstring>

namespace {

const char kHelp[] =
    "Usage: quillon-server [--help | --version]\n"
    "\n"
    "Runs the Quillon media server and shows its icon in the system tray (or its\n"
    "preferences window when there is no tray). Starting it again while it runs\n"
    "brings the running one's preferences window forward.\n"
    "\n"
    "  -h, --help     print this text and exit\n"
    "  -v, --version  print the version and exit\n"
    "\n"
    "Qt's own options (-platform and others) are accepted as well.\n"
    "SIGTERM, SIGINT and SIGHUP quit the program cleanly. See quillon-server(1).\n";

// Answers --help and --version before anything else exists (no display, no
// JVM). Returns true when the program should end.
bool printedInformation(int argc, char *argv[])
{
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--help") || !std::strcmp(argv[i], "-h")) {
            std::fputs(kHelp, stdout);
            return true;
        }
        if (!std::strcmp(argv[i], "--version") || !std::strcmp(argv[i], "-v")) {
            std::puts("Quillon Server " QUILLON_VERSION);
            return true;
        }
    }
    return false;
}

}

int main(int argc, char *argv[])
{
    if (printedInformation(argc, argv))
        return std::fflush(stdout) == 0 && !std::ferror(stdout) ? 0 : 1;
    // Before any thread starts, so that every thread inherits it: a quit
    // signal waits until the JVM exists (see SignalQuit.h).
    holdQuitSignals();

    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Quillon Server"));
    // Ties the windows to the installed desktop entry (icon, name on Wayland).
    QGuiApplication::setDesktopFileName(QStringLiteral(QUILLON_APP_ID));
    // A tray program: closing its last window does not end it.
    QApplication::setQuitOnLastWindowClosed(false);
    if (!installSignalQuit())
        systemLog(QStringLiteral("SIGTERM, SIGINT and SIGHUP will end the program without its clean-up"));

    // A second launch only brings the first one's window forward.
    SingleInstance instance;
    if (instance.start() == SingleInstance::AnotherInstance) {
        std::puts(instance.windowShown()
                      ? "Quillon Server is already running; its preferences window has been shown."
                      : "Quillon Server is already running; its preferences window could not be shown.");
        return 0;
    }

    installPreferencesTabs();
    auto *controller = new StartupController; // deletes itself when the application quits
    // Creates the JVM, which releases the quit signals as soon as it exists.
    controller->awakeFromNib();
    releaseQuitSignals(); // when there was no JVM to create
    QObject::connect(&instance, &SingleInstance::showPreferencesRequested, controller,
                     &StartupController::showPreferences);

    return app.exec();
}
