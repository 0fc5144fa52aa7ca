#pragma once

#include <QString>
#include <QStringList>

class JNIServer;

// Test access to the fixture jar (fixture/README.md) inside the JVM that
// JNIServer created in this process, through the bridge's own getLog. Main
// thread only; without a JVM or a bridge every call does nothing and answers
// a null text.
namespace BridgeFixture {

// A fixture command; lists come back one element a line.
QString call(const QString &command, const QString &arg = QString());

// A scripted answer; a null value scripts Java's null.
inline void script(const QString &key, const QString &value)
{
    call(QStringLiteral("script"), key + QLatin1Char('=') + (value.isNull() ? QStringLiteral("<null>") : value));
}
inline void resetScript() { call(QStringLiteral("reset")); }
inline QStringList recordedCalls() { return call(QStringLiteral("calls")).split(QLatin1Char('\n'), Qt::SkipEmptyParts); }
inline void clearRecordedCalls() { call(QStringLiteral("clearCalls")); }

// Points HOME at `home` and creates the bridge's JVM; the log lines of a
// failed start, or the empty text once the bridge is available.
QString startJvm(const QString &home, bool remote, bool portMapping);

// Calls every operation of `server`; the names of those that did not give
// the empty answer.
QStringList nonEmptyAnswers(JNIServer *server);
}
