#pragma once

#include "bridge/Encoding.h"
#include "bridge/RemoteManagerState.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QThread>

#include <functional>
#include <optional>

struct JNIEnv_;
struct JavaVM_;
class _jclass;

// The bridge to the server's Java code, which runs in a JVM inside this
// process. The only way into Java, and a process-wide singleton.
//
// Threads: every operation must be called on the thread that created the
// singleton (the main thread). The JNI environment and the bound classes
// belong to that thread.
//
// Safe behaviour (the rule every operation follows):
//  - An operation that cannot reach Java does nothing and returns the empty
//    result: false, 0, a null QString, an empty list, std::nullopt. That is
//    the case after a failed JVM creation, when the class it calls is not
//    bound (ServerControl, RemoteManagerControl, java/util/List missing),
//    and when it is called from a thread other than the creating one (one
//    log line).
//  - After every call into Java a pending exception is cleared and logged as
//    one line "Java exception in <method>: <class>: <message>"; the
//    operation then ends with the empty result. A missing method is such an
//    exception (NoSuchMethodError).
//  - No operation leaves a local reference behind: each runs in its own JNI
//    local frame, so endless polling does not grow memory.
//  - Strings travel as UTF-16 both ways, so characters outside the Basic
//    Multilingual Plane arrive intact. A null QString is sent as a Java null
//    (setPasswordDigest sends "" instead); a Java null arrives as a null
//    QString.
//  - Nothing throws and nothing ends the process: every file the JVM options
//    name is checked before the JVM is created, and a failed check is a
//    failed creation.
//
// Callbacks: Java reports to one receiver at a time (setTarget plus the two
// callbacks). Both are delivered on the main thread while the target object
// is alive. Once the application is shutting down, Java's callbacks return at
// once without reaching the receiver.
class JNIServer : public QObject
{
    Q_OBJECT

public:
    // Creates the singleton, sets the `initialized` flag and starts the JVM
    // with the server's classes. Call once, on the main thread, after the
    // QCoreApplication exists. A second call while the singleton exists does
    // nothing.
    static void initWithRemoteEnabled(bool remote, bool portMapping);

    // The singleton, or nullptr. Logs "Error: JNI Server instance has not been
    // initialized" when it was never made.
    static JNIServer *instance();

    // Frees the singleton now ("JNIServer dealloc", instance cleared, the
    // server quit and stopped when it runs). Runs by itself when the
    // application is about to quit; tests call it to end the singleton
    // explicitly. The JVM stays: a later initWithRemoteEnabled reuses it.
    static void releaseInstance();

    // The process-wide flag read by the `update` callback: false until the
    // singleton is first made, never reset.
    static bool initializedFlag();

    // Where libjvm.so is loaded from. Empty (the default) looks it up:
    // $QUILLON_JVM_LIBRARY if set, else $JAVA_HOME, the real path of
    // /usr/bin/java, then the runtimes under /usr/lib/jvm, preferring one of
    // at least $JAVA_JVM_VERSION. For tests.
    static void setJvmLibraryPath(const QString &path);

    // True when the JVM exists and ServerControl is bound.
    bool isAvailable() const;
    // Otherwise the first problem met on the way, as logged ("Missing file:
    // <path>", "Quillon needs Java version 1.5 or higher", ...); empty when
    // available.
    QString failureReason() const { return isAvailable() ? QString() : m_failureReason; }

    // Tells Java that the controller has pushed its initial settings.
    void initialized();

    // ServerControl
    int start(); // the port the server listens on; logs "Server started on: %i"
    void stop(); // only while the server runs
    void quit(); // only while the server runs
    bool isRunning();
    void setDefaultPort(int port);
    void setConverterMaxWidth(int width);
    void setConverterMaxHeight(int height);
    void converterResetQueue();
    void setComputerName(const QString &name);
    void setPasswordDigest(const QString &digest); // null is sent as ""
    void setConverterFFMpegPath(const QString &path);
    void setConverterFaacPath(const QString &path);
    void setConverterMuxerPath(const QString &path);
    void setFontSize(int size);
    void setDisableEmbeddedSubtitlesIfNoLanguageMatches(bool disable);
    QString getDefaultCharset();
    void setDefaultCharset(const QString &charset);
    QString getFontFamilyName();
    void setFontFamilyName(const QString &name);
    // The three list walks differ in their null rules on purpose:
    //  - encodings: a null element fails the walk (empty list, one log line);
    //    an element's null name or charset arrives as a null QString;
    //  - font family names: null elements and non-strings are skipped;
    //  - languages: a null element or a non-string fails the walk (empty
    //    list, one log line).
    QList<Encoding> getAvailableEncodings();
    QStringList getAvailableFontFamilyNames();
    QStringList getAvailableLanguages();
    void setPreferredLanguages(const QStringList &languages);
    QString getLog(const QString &logId); // "subtitles", "remote", "thumbnail", "conversion", "live-conversion"
    void clearLog(const QString &logId);
    QString getLastConversionLog();
    QString getConverterQueueAsJSON();

    // RemoteManagerControl
    void setEnableRemote(bool enable);
    void setEnablePortMapping(bool enable);
    void retry();
    void testConnection(); // the outcome arrives through the connection-test callback
    std::optional<RemoteManagerState> getRemoteManagerState();

    // The receiver of Java's callbacks, not owned; cleared by itself when the
    // object is destroyed. Without a target both callbacks end without effect.
    void setTarget(QObject *target);
    QObject *target() const;
    // Called on the main thread 0.1 s after each state change Java reports
    // (one call per change, none dropped).
    void setUpdateSelector(std::function<void()> update);
    std::function<void()> updateSelector() const;
    // Called on the main thread with the outcome of a connection test (true
    // when it passed); the Java thread waits until it has returned.
    void setConnectionTestEndedSelector(std::function<void(bool passed)> ended);
    std::function<void(bool passed)> connectionTestEndedSelector() const;

    // The main-thread steps of the two callbacks.
    void performUpdate();  // schedules performUpdate1 0.1 s later
    void performUpdate1(); // calls the update callback
    void performConnectionTestEnded(bool passed);

    ~JNIServer() override;

private:
    JNIServer();
    void initJVMWithRemoteEnabled(bool remote, bool portMapping);
    bool createJVM();
    void error(const QString &message);

    friend class JavaCall;

    JNIEnv_ *m_env = nullptr;
    JavaVM_ *m_theVM = nullptr;
    _jclass *m_controlClass = nullptr;
    QString m_failureReason;
    _jclass *m_remoteManagerControlClass = nullptr;
    _jclass *m_listClass = nullptr;
    _jclass *m_stringClass = nullptr;
    QThread *m_thread = nullptr;
    QPointer<QObject> m_target;
    std::function<void()> m_updateSelector;
    std::function<void(bool)> m_connectionTestEndedSelector;
};
