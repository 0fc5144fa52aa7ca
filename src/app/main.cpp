#include <QApplication>
#include <QTimer>

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Quillon Server"));
    QApplication::setQuitOnLastWindowClosed(false);
    if (qEnvironmentVariableIsSet("QUILLON_QUIT_AFTER_MS"))
        QTimer::singleShot(qEnvironmentVariableIntValue("QUILLON_QUIT_AFTER_MS"), &app, &QApplication::quit);
    return app.exec();
}
