#pragma once

#include <QString>

struct JavaVM_;
struct JavaVMInitArgs;
struct JNIEnv_;

// libjvm.so is loaded at run time so that the controller runs, and says why
// the server cannot, on a machine without Java.
namespace JvmLoader {

// Chooses the libjvm.so to load for a runtime of at least `minimumVersion`
// ("1.7", "1.5"): the forced path when one is set (setLibraryPath or
// $QUILLON_JVM_LIBRARY), else $JAVA_HOME, the real path of /usr/bin/java,
// then the runtimes under /usr/lib/jvm. Empty when there is none.
QString findLibrary(const QString &minimumVersion);

// "" restores the lookup above.
void setLibraryPath(const QString &path);

// Loads the library found for `minimumVersion` (once per process; a loaded
// library is kept) and creates the JVM. Returns the JNI result (JNI_OK on
// success) and logs a line naming the library when it cannot be loaded.
int createJavaVM(const QString &minimumVersion, JavaVM_ **vm, JNIEnv_ **env, JavaVMInitArgs *args);

// The JVM this process created, or nullptr.
JavaVM_ *createdJavaVM();

// "17.0.9" -> 17.0, "1.8.0_392" -> 1.8; false when the text holds no version.
bool parseVersion(const QString &text, int *major, int *minor);
}
