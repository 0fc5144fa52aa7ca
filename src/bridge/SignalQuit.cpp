#include "bridge/SignalQuit.h"

#include "platform/SystemLog.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {
int g_pipe[2] = {-1, -1};
const int kSignals[3] = {SIGTERM, SIGINT, SIGHUP};

// Only async-signal-safe work here: one byte into the socket.
void onSignal(int)
{
    const int saved = errno;
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(g_pipe[1], &byte, 1);
    errno = saved;
}

sigset_t quitSignals()
{
    sigset_t set;
    sigemptyset(&set);
    for (int signal : kSignals)
        sigaddset(&set, signal);
    return set;
}
}

void holdQuitSignals()
{
    const sigset_t set = quitSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

void releaseQuitSignals()
{
    const sigset_t set = quitSignals();
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
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
    for (int signal : kSignals)
        ok = ::sigaction(signal, &action, nullptr) == 0 && ok;
    return ok;
}

QuitSignalsSetAside::QuitSignalsSetAside()
{
    holdQuitSignals();
    // Making a signal ignored discards it when pending: take it out first.
    sigset_t pending;
    sigpending(&pending);
    const timespec now = {0, 0};
    for (int i = 0; i < 3; ++i) {
        if (sigismember(&pending, kSignals[i])) {
            sigset_t one;
            sigemptyset(&one);
            sigaddset(&one, kSignals[i]);
            m_pending[i] = sigtimedwait(&one, nullptr, &now) == kSignals[i];
        }
    }
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    sigemptyset(&ignore.sa_mask);
    for (int i = 0; i < 3; ++i)
        sigaction(kSignals[i], &ignore, &m_saved[i]);
}

QuitSignalsSetAside::~QuitSignalsSetAside()
{
    for (int i = 0; i < 3; ++i)
        sigaction(kSignals[i], &m_saved[i], nullptr);
    releaseQuitSignals();
    for (int i = 0; i < 3; ++i)
        if (m_pending[i])
            raise(kSignals[i]);
}
