#pragma once

#include <QString>
#include <QStringList>

// Test access to the fixture jar (fixture/README.md) inside the JVM that
// JNIServer created in this process. Main thread only; every function does
// nothing (or returns an empty result) when there is no JVM.
namespace BridgeFixture {

// ServerControl.script: "<null>" or a null QString scripts null.
void script(const QString &key, const QString &value);
void resetScript();
QString scripted(const QString &key); // ServerControl.scripted
QStringList recordedCalls();
void clearRecordedCalls();

// RemoteManagerControl helpers of the fixture.
QString property(const QString &name); // System.getProperty
QStringList inputArguments();          // as the JVM received them
qint64 usedHeapAfterGc();              // bytes, after System.gc()
void fireUpdates(int threads, int perThread);
void fireConnectionTestEnded(bool passed);
void startBurst(int threads);
}
