#pragma once

// Makes SIGTERM and SIGINT end the Qt event loop (QCoreApplication::quit())
// instead of the process, so the singletons are released and log their
// destruction lines. Call on the main thread after the JVM exists (the JVM
// installs handlers of its own for both signals) and after the
// QCoreApplication is made. Returns false when it could not be installed.
bool installSignalQuit();
