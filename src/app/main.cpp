#include "PreferencesTabs.h"
#include "SingleInstance.h"
#include "StartupController.h"
#include "bridge/SignalQuit.h"
#include "platform/SystemLog.h"

#include <QApplication>
#include <QTimer>

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Quillon Server"));
    // A tray program: closing its last window does not end it.
    QApplication::setQuitOnLastWindowClosed(false);

    // A second launch only brings the first one's window forward.
    SingleInstance instance;
    if (instance.start() == SingleInstance::AnotherInstance)
        return 0;

    installPreferencesTabs();
    auto *controller = new StartupController; // deletes itself when the application quits
    controller->awakeFromNib();
    QObject::connect(&instance, &SingleInstance::showPreferencesRequested, controller,
                     &StartupController::showPreferences);

    // After the JVM exists: it installs handlers of its own for both signals.
    if (!installSignalQuit())
        systemLog(QStringLiteral("SIGTERM and SIGINT will end the program without its clean-up"));

    if (qEnvironmentVariableIsSet("QUILLON_QUIT_AFTER_MS"))
        QTimer::singleShot(qEnvironmentVariableIntValue("QUILLON_QUIT_AFTER_MS"), &app, &QApplication::quit);
    return app.exec();
}
