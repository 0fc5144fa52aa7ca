#include "platform/Resources.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QSettings>

namespace {
QString &overrideFolder()
{
    static QString folder;
    return folder;
}

QString executableFolder()
{
    if (QCoreApplication::instance())
        return QCoreApplication::applicationDirPath();
    return QFileInfo(QStringLiteral("/proc/self/exe")).symLinkTarget().section(QLatin1Char('/'), 0, -2);
}
}

QString Resources::folder()
{
    if (!overrideFolder().isEmpty())
        return overrideFolder();
    const QString fromEnvironment = qEnvironmentVariable("QUILLON_RESOURCE_DIR");
    if (!fromEnvironment.isEmpty())
        return QDir::cleanPath(fromEnvironment);
    const QDir exe(executableFolder());
    const QString buildTree = exe.absoluteFilePath(QStringLiteral("../resources"));
    if (QFileInfo(buildTree + QStringLiteral("/Info.ini")).exists())
        return QDir::cleanPath(buildTree);
    return QDir::cleanPath(exe.absoluteFilePath(QStringLiteral("../share/quillon-server")));
}

void Resources::setFolder(const QString &path)
{
    overrideFolder() = path;
}

QString Resources::pathForResource(const QString &name, const QString &type)
{
    const QString file = type.isEmpty() ? name : name + QLatin1Char('.') + type;
    const QString path = folder() + QLatin1Char('/') + file;
    return QFileInfo::exists(path) ? path : QString();
}

QString Resources::temporaryFolder()
{
    QString path = QDir::tempPath();
    if (!path.endsWith(QLatin1Char('/')))
        path += QLatin1Char('/');
    return path;
}

QString Info::value(const QString &key)
{
    const QString path = Resources::pathForResource(QStringLiteral("Info"), QStringLiteral("ini"));
    if (path.isEmpty())
        return QString();
    QSettings info(path, QSettings::IniFormat);
    return info.value(key).toString();
}
