#pragma once

#include <csignal>

// SIGTERM, SIGINT and SIGHUP end the Qt event loop (QCoreApplication::quit())
// instead of the process, so that the singletons are released and log their
// destruction lines. The JVM installs handlers of its own for these signals
// unless they are ignored while it is created; it is created with them
// ignored and held (QuitSignalsSetAside), so that a signal sent meanwhile
// waits and then reaches our handler.
//
// The program: holdQuitSignals() first thing in main(), before any thread
// starts (every thread inherits the hold, so none takes such a signal while
// it is ignored); installSignalQuit() once the QCoreApplication exists; the
// JVM's creation releases them on the main thread as soon as the JVM exists;
// releaseQuitSignals() covers a run without a JVM.

void holdQuitSignals();
void releaseQuitSignals();

// Installs the handler (main thread, after the QCoreApplication is made).
// Returns false when it could not be installed.
bool installSignalQuit();

// Around JNI_CreateJavaVM: ignores and holds the three signals, taking out
// any that is already pending; afterwards restores their handlers, releases
// them on this thread and raises again those that came before.
class QuitSignalsSetAside
{
public:
    QuitSignalsSetAside();
    ~QuitSignalsSetAside();
    QuitSignalsSetAside(const QuitSignalsSetAside &) = delete;
    QuitSignalsSetAside &operator=(const QuitSignalsSetAside &) = delete;

private:
    struct sigaction m_saved[3];
    bool m_pending[3] = {};
};
