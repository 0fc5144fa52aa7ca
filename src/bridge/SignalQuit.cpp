#include "bridge/SignalQuit.h"

#include "platform/SystemLog.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {
int g_pipe[2] = {-1, -1};

// Only async-signal-safe work here: one byte into the socket.
void onSignal(int)
{
    const int saved = errno;
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(g_pipe[1], &byte, 1);
    errno = saved;
}
}

bool installSignalQuit()
{
    QCoreApplication *app = QCoreApplication::instance();
    if (!app)
        return false;
    if (g_pipe[0] < 0) {
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, g_pipe) != 0) {
            systemLog(QStringLiteral("Can't create the signal socket: %1").arg(QString::fromLocal8Bit(strerror(errno))));
            return false;
        }
        ::fcntl(g_pipe[1], F_SETFL, ::fcntl(g_pipe[1], F_GETFL) | O_NONBLOCK);
        auto *notifier = new QSocketNotifier(qintptr(g_pipe[0]), QSocketNotifier::Read, app);
        QObject::connect(notifier, &QSocketNotifier::activated, app, [] {
            char bytes[64];
            [[maybe_unused]] const ssize_t read = ::read(g_pipe[0], bytes, sizeof bytes);
            QCoreApplication::quit();
        });
    }
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    bool ok = true;
    for (int signal : {SIGTERM, SIGINT})
        ok = ::sigaction(signal, &action, nullptr) == 0 && ok;
    return ok;
}
