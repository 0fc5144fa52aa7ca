#pragma once

#include "BridgeFixture.h"
#include "platform/Defaults.h"
#include "platform/SystemLog.h"
#include "server/Server.h"

#include <QDir>
#include <QMetaProperty>
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

// The calls Java received from the facade's own start-up: those after the
// bridge's initialisation and its warm-up listings.
inline QStringList callsAfterBridgeInit(const QStringList &calls)
{
    qsizetype i = 0;
    while (i < calls.size() && !calls[i].startsWith(QLatin1String("RemoteManagerControl.init(")))
        ++i;
    ++i;
    while (i < calls.size() && calls[i].startsWith(QLatin1String("getAvailable")))
        ++i;
    return calls.mid(i);
}

// What the store held under `key` at the moment Java received `method`
// during `action`. The fixture throws from that method, and the bridge logs
// the exception while the setter is still running, so the log line marks the
// moment of the push. "<no push>" when Java never received it. Resets the
// fixture's script and call log.
inline QVariant storedAtPush(const QString &method, const QString &key, const std::function<void()> &action)
{
    BridgeFixture::resetScript();
    BridgeFixture::script(QStringLiteral("throw.") + method, QStringLiteral("probe"));
    QVariant seen = QStringLiteral("<no push>");
    const QString marker = QStringLiteral("Java exception in %1:").arg(method);
    SystemLog::setSink([&](const QString &line) {
        if (line.startsWith(marker))
            seen = Defaults::standard().objectForKey(key);
    });
    action();
    SystemLog::setSink({});
    BridgeFixture::resetScript();
    return seen;
}

// Every setting as the facade reads it, one "name=value" line each (the
// running state excepted: it is Java's, not the store's).
inline QStringList describeSettings(Server *server)
{
    QStringList lines;
    const QMetaObject *meta = server->metaObject();
    for (int i = meta->propertyOffset(); i < meta->propertyCount(); ++i) {
        const QMetaProperty property = meta->property(i);
        if (property.isConstant() || QLatin1String(property.name()) == QLatin1String("running"))
            continue;
        const QVariant value = property.read(server);
        const QString text = value.metaType() == QMetaType::fromType<Encoding>()
            ? value.value<Encoding>().charset()
            : value.toString();
        lines << QLatin1String(property.name()) + QLatin1Char('=') + text;
    }
    lines << QStringLiteral("passwordDigest=") + server->passwordDigest();
    lines << QStringLiteral("preferencesIsRunning=") + QString::number(Server::preferencesIsRunning());
    return lines;
}
}
