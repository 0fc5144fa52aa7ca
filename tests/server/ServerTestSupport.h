#pragma once

#include "BridgeFixture.h"
#include "platform/Defaults.h"
#include "platform/SystemLog.h"
#include "server/Server.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

#include <functional>

namespace ServerTest {

// Points the preferences store and the home folder at `dir`.
inline void useTemporaryHome(const QTemporaryDir &dir)
{
    QVERIFY(dir.isValid());
    QDir(dir.path()).mkpath(QStringLiteral("config"));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(dir.path() + QStringLiteral("/config")));
    qputenv("HOME", QFile::encodeName(dir.path()));
    Defaults::resetStandard();
}

// The calls of the facade's own start-up: those after the bridge's
// initialisation and its warm-up listings.
inline QStringList callsAfterBridgeInit(const QStringList &calls)
{
    return calls.mid(calls.indexOf(QStringLiteral("getAvailableEncodings()")) + 1);
}

// The calls Java received during `action`. With a `method`, the fixture
// throws from it, and the bridge logs that while the setter still runs:
// *stored gets what the store held under `key` at that moment ("<no push>"
// if Java never received `method`).
inline QStringList callsDuring(const std::function<void()> &action, const QString &method = QString(),
                               const QString &key = QString(), QVariant *stored = nullptr)
{
    BridgeFixture::resetScript();
    if (stored) {
        *stored = QStringLiteral("<no push>");
        BridgeFixture::script(QStringLiteral("throw.") + method, QStringLiteral("probe"));
        SystemLog::setSink([=](const QString &line) {
            if (line.startsWith(QStringLiteral("Java exception in %1:").arg(method)))
                *stored = Defaults::standard().objectForKey(key);
        });
    }
    action();
    if (stored)
        SystemLog::setSink({});
    const QStringList calls = BridgeFixture::recordedCalls();
    BridgeFixture::resetScript();
    return calls;
}
}
