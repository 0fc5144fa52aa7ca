#include "bridge/JvmLoader.h"

#include "bridge/SignalQuit.h"
#include "platform/SystemLog.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStringList>

#include <dlfcn.h>
#include <jni.h>

namespace {
using CreateJavaVM = jint (*)(JavaVM **, void **, void *);
using GetCreatedJavaVMs = jint (*)(JavaVM **, jsize, jsize *);

QString &forcedPath()
{
    static QString path;
    return path;
}

void *g_library = nullptr;
QString g_libraryPath;

// Where libjvm.so sits inside a runtime folder, old and new layouts.
QString libraryInHome(const QString &home)
{
    static const char *const kPlaces[] = {"lib/server/libjvm.so", "jre/lib/amd64/server/libjvm.so",
                                          "lib/amd64/server/libjvm.so", "jre/lib/server/libjvm.so"};
    for (const char *place : kPlaces) {
        const QString path = home + QLatin1Char('/') + QLatin1String(place);
        if (QFileInfo(path).isFile())
            return path;
    }
    return QString();
}

// The runtime's version from its "release" file, or from the folder name
// ("java-17-openjdk-amd64"); false when neither tells.
bool homeVersion(const QString &home, int *major, int *minor)
{
    QFile release(home + QStringLiteral("/release"));
    if (release.open(QIODevice::ReadOnly)) {
        static const QRegularExpression line(QStringLiteral("^JAVA_VERSION=\"?([^\"\\n]+)"),
                                             QRegularExpression::MultilineOption);
        const auto match = line.match(QString::fromUtf8(release.read(64 * 1024)));
        if (match.hasMatch() && JvmLoader::parseVersion(match.captured(1), major, minor))
            return true;
    }
    static const QRegularExpression name(QStringLiteral("(?:java|jdk|jre|openjdk)-?(1\\.\\d+|\\d+)"));
    const auto match = name.match(QFileInfo(home).fileName());
    return match.hasMatch() && JvmLoader::parseVersion(match.captured(1), major, minor);
}

bool atLeast(const QString &home, const QString &minimumVersion)
{
    int wantMajor = 0, wantMinor = 0, major = 0, minor = 0;
    if (!JvmLoader::parseVersion(minimumVersion, &wantMajor, &wantMinor))
        return true;
    if (!homeVersion(home, &major, &minor))
        return true; // an unknown runtime is given the benefit of the doubt
    return major > wantMajor || (major == wantMajor && minor >= wantMinor);
}

// The runtime folder of a "bin/java" (jre/bin/java of old runtimes included).
QString homeOfJava(const QString &javaPath)
{
    const QString real = QFileInfo(javaPath).canonicalFilePath();
    if (real.isEmpty())
        return QString();
    QDir dir = QFileInfo(real).dir();
    dir.cdUp();
    return dir.absolutePath();
}
}

bool JvmLoader::parseVersion(const QString &text, int *major, int *minor)
{
    static const QRegularExpression version(QStringLiteral("^\\s*(\\d+)(?:\\.(\\d+))?"));
    const auto match = version.match(text);
    if (!match.hasMatch())
        return false;
    *major = match.captured(1).toInt();
    *minor = match.captured(2).isEmpty() ? 0 : match.captured(2).toInt();
    return true;
}

void JvmLoader::setLibraryPath(const QString &path)
{
    forcedPath() = path;
}

QStringList JvmLoader::candidates(const QString &minimumVersion)
{
    QString forced = forcedPath();
    if (forced.isEmpty())
        forced = qEnvironmentVariable("QUILLON_JVM_LIBRARY");
    if (!forced.isEmpty())
        return QFileInfo(forced).isFile() ? QStringList{forced} : QStringList();

    QStringList homes;
    const QString javaHome = qEnvironmentVariable("JAVA_HOME");
    if (!javaHome.isEmpty())
        homes << QDir::cleanPath(javaHome);
    const QString fromPath = homeOfJava(QStringLiteral("/usr/bin/java"));
    if (!fromPath.isEmpty())
        homes << fromPath;
    const QDir jvms(QStringLiteral("/usr/lib/jvm"));
    for (const QFileInfo &entry : jvms.entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name)) {
        const QString home = entry.canonicalFilePath();
        if (!home.isEmpty())
            homes << home;
    }
    QStringList libraries;
    QStringList seen; // the same runtime under several names counts once
    for (const QString &home : std::as_const(homes)) {
        const QString library = libraryInHome(home);
        const QString real = QFileInfo(library).canonicalFilePath();
        if (!library.isEmpty() && !seen.contains(real) && atLeast(home, minimumVersion)) {
            seen << real;
            libraries << library;
        }
    }
    return libraries;
}

QString JvmLoader::findLibrary(const QString &minimumVersion)
{
    return candidates(minimumVersion).value(0);
}

int JvmLoader::createJavaVM(const QString &minimumVersion, JavaVM **vm, JNIEnv **env, JavaVMInitArgs *args)
{
    // Each runtime that failed is logged once and not tried again: a second
    // JNI_CreateJavaVM in one runtime would run without a class path.
    static QStringList refused;
    const QStringList libraries = candidates(minimumVersion);
    if (libraries.isEmpty()) {
        QString forced = forcedPath().isEmpty() ? qEnvironmentVariable("QUILLON_JVM_LIBRARY") : forcedPath();
        systemLog(QStringLiteral("No Java runtime found: libjvm.so of Java %1 or later%2")
                      .arg(minimumVersion, forced.isEmpty() ? QString() : QStringLiteral(" at ") + forced));
        return JNI_ERR;
    }
    for (const QString &path : libraries) {
        if (refused.contains(path))
            continue;
        // Everything that can be checked without creating a JVM is checked
        // first, so that the next runtime is tried before any creation.
        void *library = dlopen(QFile::encodeName(path).constData(), RTLD_NOW | RTLD_GLOBAL);
        if (!library) {
            systemLog(QStringLiteral("Can't load the Java runtime %1: %2").arg(path, QString::fromLocal8Bit(dlerror())));
            refused << path;
            continue;
        }
        auto create = reinterpret_cast<CreateJavaVM>(dlsym(library, "JNI_CreateJavaVM"));
        if (!create) {
            systemLog(QStringLiteral("The Java runtime %1 has no JNI_CreateJavaVM").arg(path));
            dlclose(library);
            refused << path;
            continue;
        }
        jint result;
        {
            // The JVM must not take SIGTERM, SIGINT and SIGHUP for itself:
            // its handlers end the process without our clean-up.
            QuitSignalsSetAside aside;
            result = create(vm, reinterpret_cast<void **>(env), args);
        }
        if (result == JNI_OK) {
            g_library = library;
            g_libraryPath = path;
            return JNI_OK;
        }
        // Kept loaded: threads of the failed JVM may still run in it.
        systemLog(QStringLiteral("The Java runtime %1 could not create a JVM (JNI error %2)").arg(path).arg(result));
        refused << path;
    }
    return JNI_ERR;
}

JavaVM *JvmLoader::createdJavaVM()
{
    if (!g_library)
        return nullptr;
    auto getCreated = reinterpret_cast<GetCreatedJavaVMs>(dlsym(g_library, "JNI_GetCreatedJavaVMs"));
    if (!getCreated)
        return nullptr;
    JavaVM *vm = nullptr;
    jsize count = 0;
    if (getCreated(&vm, 1, &count) != JNI_OK || count < 1)
        return nullptr;
    return vm;
}
