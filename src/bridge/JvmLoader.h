#pragma once

#include <QString>
#include <QStringList>

struct JavaVM_;
struct JavaVMInitArgs;
struct JNIEnv_;

// libjvm.so is loaded at run time so that the controller runs, and says why
// the server cannot, on a machine without Java.
namespace JvmLoader {

// The libjvm.so files to try for a runtime of at least `minimumVersion`
// ("1.7", "1.5"), in order: the forced path alone when one is set
// (setLibraryPath or $QUILLON_JVM_LIBRARY), else $JAVA_HOME, the real path
// of /usr/bin/java, then the runtimes under /usr/lib/jvm (each runtime once).
QStringList candidates(const QString &minimumVersion);
// The first of them; empty when there is none.
QString findLibrary(const QString &minimumVersion);

// "" restores the lookup above.
void setLibraryPath(const QString &path);

// Creates the JVM from the first candidate that loads (dlopen), has
// JNI_CreateJavaVM and creates it; a candidate that fails is logged once,
// naming its library, and never tried again in this process. Returns the
// JNI result (JNI_OK on success).
int createJavaVM(const QString &minimumVersion, JavaVM_ **vm, JNIEnv_ **env, JavaVMInitArgs *args);

// The JVM this process created, or nullptr.
JavaVM_ *createdJavaVM();

// "17.0.9" -> 17.0, "1.8.0_392" -> 1.8; false when the text holds no version.
bool parseVersion(const QString &text, int *major, int *minor);
}
