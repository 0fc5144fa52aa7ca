#include "bridge/JNIServer.h"

#include "bridge/JvmLoader.h"
#include "bridge/ServerJar.h"
#include "platform/ProductWebsite.h"
#include "platform/Resources.h"
#include "platform/SystemLog.h"
#include "platform/DelayedCall.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QMutex>
#include <QSemaphore>

#include <atomic>
#include <memory>

#include <dlfcn.h>
#include <jni.h>
#include <locale.h>

namespace {
const char *const kServerControl = "com/brookfen/quillon/common/control/ServerControl";
const char *const kRemoteManagerControl = "com/brookfen/quillon/common/control/RemoteManagerControl";

// Read by Java threads in the natives, hence atomic.
std::atomic<JNIServer *> g_instance{nullptr};
std::atomic<bool> g_initialized{false};
std::atomic<bool> g_shuttingDown{false};
Qt::HANDLE g_mainThreadId = nullptr;

// Held while a native posts to the singleton and while the singleton is
// cleared, so that nothing is posted to an object being destroyed. Never
// destroyed: Java threads may still call in while the process exits.
QMutex &gate()
{
    static auto *mutex = new QMutex;
    return *mutex;
}

// The launch options must outlive JNI_CreateJavaVM; the JVM lives as long as
// the process, so they are simply kept.
QList<QByteArray> &optionStorage()
{
    static auto *storage = new QList<QByteArray>;
    return *storage;
}

QString applicationFolder()
{
    return QDir::homePath() + QStringLiteral("/Library/Application Support/QuillonServer");
}

void JNICALL nativeUpdate(JNIEnv *, jclass)
{
    if (g_shuttingDown.load())
        return;
    QMutexLocker lock(&gate());
    JNIServer *server = g_instance.load();
    if (g_shuttingDown.load() || !g_initialized.load() || !server)
        return;
    QMetaObject::invokeMethod(server, [server] { server->performUpdate(); }, Qt::QueuedConnection);
}

void JNICALL nativeConnectionTestEnded(JNIEnv *, jclass, jboolean passed)
{
    if (g_shuttingDown.load())
        return;
    const bool outcome = passed == JNI_TRUE;
    auto done = std::make_shared<QSemaphore>();
    {
        QMutexLocker lock(&gate());
        JNIServer *server = g_instance.load();
        if (g_shuttingDown.load() || !server)
            return;
        if (QThread::currentThreadId() == g_mainThreadId) {
            // Waiting for ourselves would dead-lock: call directly.
            lock.unlock();
            server->performConnectionTestEnded(outcome);
            return;
        }
        // Releases the Java thread when the last copy of the hand-over goes
        // away: after it ran, or when it is dropped with its receiver.
        std::shared_ptr<void> release(nullptr, [done](void *) { done->release(); });
        QMetaObject::invokeMethod(
            server, [server, outcome, release] { server->performConnectionTestEnded(outcome); },
            Qt::QueuedConnection);
    }
    done->acquire();
}

QString oneLine(QString text)
{
    text.replace(QLatin1Char('\n'), QLatin1Char(' '));
    text.replace(QLatin1Char('\r'), QLatin1Char(' '));
    return text;
}
}

// One call into Java: runs in its own local frame, refuses to run without a
// JVM, a bound class or off the main thread, and turns every pending Java
// exception into one log line and an empty result.
class JavaCall
{
public:
    JavaCall(JNIServer *server, jclass cls, const char *method) : m_server(server), m_class(cls), m_method(method)
    {
        if (!server->m_env)
            return;
        if (QThread::currentThreadId() != g_mainThreadId) {
            systemLog(QStringLiteral("JNIServer: %1 called off the main thread; ignored").arg(QLatin1String(method)));
            return;
        }
        if (!cls)
            return;
        JNIEnv *env = server->m_env;
        if (env->PushLocalFrame(16) != JNI_OK) {
            m_env = env;
            check(); // the OutOfMemoryError
            m_env = nullptr;
            return;
        }
        m_env = env;
    }
    ~JavaCall()
    {
        if (m_env)
            m_env->PopLocalFrame(nullptr);
    }
    JavaCall(const JavaCall &) = delete;
    JavaCall &operator=(const JavaCall &) = delete;

    explicit operator bool() const { return m_env && !m_failed; }
    JNIEnv *env() const { return m_env; }

    // True, after clearing and logging it, when a Java exception is pending.
    bool check(const char *step = nullptr)
    {
        if (!m_env || !m_env->ExceptionCheck())
            return false;
        jthrowable thrown = m_env->ExceptionOccurred();
        m_env->ExceptionClear();
        systemLog(QStringLiteral("Java exception in %1: %2")
                      .arg(QLatin1String(step ? step : m_method), oneLine(describe(thrown))));
        m_env->DeleteLocalRef(thrown);
        m_failed = true;
        return true;
    }

    void fail(const QString &line)
    {
        systemLog(line);
        m_failed = true;
    }

    void staticVoid(const char *signature, const jvalue *args = nullptr)
    {
        if (jmethodID id = staticMethod(signature)) {
            m_env->CallStaticVoidMethodA(m_class, id, args);
            check();
        }
    }
    jint staticInt(const char *signature, const jvalue *args = nullptr)
    {
        jint result = 0;
        if (jmethodID id = staticMethod(signature)) {
            result = m_env->CallStaticIntMethodA(m_class, id, args);
            if (check())
                result = 0;
        }
        return result;
    }
    bool staticBool(const char *signature, const jvalue *args = nullptr)
    {
        jboolean result = JNI_FALSE;
        if (jmethodID id = staticMethod(signature)) {
            result = m_env->CallStaticBooleanMethodA(m_class, id, args);
            if (check())
                result = JNI_FALSE;
        }
        return result == JNI_TRUE;
    }
    jobject staticObject(const char *signature, const jvalue *args = nullptr)
    {
        jobject result = nullptr;
        if (jmethodID id = staticMethod(signature)) {
            result = m_env->CallStaticObjectMethodA(m_class, id, args);
            if (check())
                result = nullptr;
        }
        return result;
    }
    QString staticString(const char *signature, const jvalue *args = nullptr)
    {
        return fromJava(static_cast<jstring>(staticObject(signature, args)));
    }

    // Getters on an object; the class is taken from the object every time.
    QString stringGetter(jobject object, const char *name)
    {
        jobject result = nullptr;
        if (jmethodID id = instanceMethod(object, name, "()Ljava/lang/String;")) {
            result = m_env->CallObjectMethod(object, id);
            if (check(name))
                return QString();
        }
        const QString text = fromJava(static_cast<jstring>(result));
        if (result)
            m_env->DeleteLocalRef(result);
        return text;
    }
    bool boolGetter(jobject object, const char *name)
    {
        if (jmethodID id = instanceMethod(object, name, "()Z")) {
            const jboolean result = m_env->CallBooleanMethod(object, id);
            return !check(name) && result == JNI_TRUE;
        }
        return false;
    }
    int intGetter(jobject object, const char *name)
    {
        if (jmethodID id = instanceMethod(object, name, "()I")) {
            const jint result = m_env->CallIntMethod(object, id);
            return check(name) ? 0 : result;
        }
        return 0;
    }

    int listSize(jobject list)
    {
        if (!*this || !list || !m_server->m_listClass)
            return 0;
        jmethodID id = m_env->GetMethodID(m_server->m_listClass, "size", "()I");
        if (check("size"))
            return 0;
        const jint size = m_env->CallIntMethod(list, id);
        return check("size") ? 0 : size;
    }
    // A new local reference the caller deletes.
    jobject listElement(jobject list, int index)
    {
        if (!*this)
            return nullptr;
        jmethodID id = m_env->GetMethodID(m_server->m_listClass, "get", "(I)Ljava/lang/Object;");
        if (check("get"))
            return nullptr;
        jobject element = m_env->CallObjectMethod(list, id, jint(index));
        return check("get") ? nullptr : element;
    }
    bool isString(jobject object)
    {
        return object && m_server->m_stringClass && m_env->IsInstanceOf(object, m_server->m_stringClass);
    }

    // UTF-16 both ways: modified UTF-8 would split characters outside the
    // Basic Multilingual Plane into surrogate triplets.
    jstring toJava(const QString &text)
    {
        if (!*this || text.isNull())
            return nullptr;
        jstring result = m_env->NewString(reinterpret_cast<const jchar *>(text.utf16()), jsize(text.size()));
        return check("NewString") ? nullptr : result;
    }
    QString fromJava(jstring text)
    {
        if (!m_env || !text)
            return QString();
        const jsize length = m_env->GetStringLength(text);
        const jchar *chars = m_env->GetStringChars(text, nullptr);
        if (!chars) {
            check("GetStringChars");
            return QString();
        }
        QString result = length == 0 ? QString(QLatin1String(""))
                                     : QString(reinterpret_cast<const QChar *>(chars), length);
        m_env->ReleaseStringChars(text, chars);
        return result;
    }

private:
    jmethodID staticMethod(const char *signature)
    {
        if (!*this)
            return nullptr;
        jmethodID id = m_env->GetStaticMethodID(m_class, m_method, signature);
        return check() ? nullptr : id;
    }
    jmethodID instanceMethod(jobject object, const char *name, const char *signature)
    {
        if (!*this || !object)
            return nullptr;
        jclass cls = m_env->GetObjectClass(object);
        jmethodID id = m_env->GetMethodID(cls, name, signature);
        m_env->DeleteLocalRef(cls);
        return check(name) ? nullptr : id;
    }

    // "<class>: <message>" as Throwable.toString() gives it.
    QString describe(jthrowable thrown)
    {
        QString text = QStringLiteral("unknown exception");
        jclass cls = m_env->FindClass("java/lang/Throwable");
        if (cls && thrown) {
            jmethodID toString = m_env->GetMethodID(cls, "toString", "()Ljava/lang/String;");
            if (toString) {
                auto description = static_cast<jstring>(m_env->CallObjectMethod(thrown, toString));
                if (!m_env->ExceptionCheck() && description) {
                    text = fromJava(description);
                    m_env->DeleteLocalRef(description);
                }
            }
        }
        if (m_env->ExceptionCheck())
            m_env->ExceptionClear();
        if (cls)
            m_env->DeleteLocalRef(cls);
        return text;
    }

    JNIServer *m_server;
    JNIEnv *m_env = nullptr;
    jclass m_class;
    const char *m_method;
    bool m_failed = false;
};

namespace {
jvalue intValue(int value)
{
    jvalue v;
    v.i = value;
    return v;
}
jvalue boolValue(bool value)
{
    jvalue v;
    v.z = value ? JNI_TRUE : JNI_FALSE;
    return v;
}
jvalue objectValue(jobject value)
{
    jvalue v;
    v.l = value;
    return v;
}
}

// ---- Lifecycle ----

void JNIServer::initWithRemoteEnabled(bool remote, bool portMapping)
{
    if (g_instance.load())
        return;
    auto *server = new JNIServer;
    {
        QMutexLocker lock(&gate());
        g_instance.store(server);
    }
    g_initialized.store(true);
    server->initJVMWithRemoteEnabled(remote, portMapping);
}

JNIServer *JNIServer::instance()
{
    JNIServer *server = g_instance.load();
    if (!server && !g_initialized.load())
        systemLog(QStringLiteral("Error: JNI Server instance has not been initialized"));
    return server;
}

void JNIServer::releaseInstance()
{
    delete g_instance.load();
}

bool JNIServer::initializedFlag()
{
    return g_initialized.load();
}

void JNIServer::setJvmLibraryPath(const QString &path)
{
    JvmLoader::setLibraryPath(path);
}

JNIServer::JNIServer()
{
    m_thread = QThread::currentThread();
    g_mainThreadId = QThread::currentThreadId();
    if (QCoreApplication *app = QCoreApplication::instance()) {
        connect(app, &QCoreApplication::aboutToQuit, this, [] {
            // From here on Java threads must not wait for the main thread.
            g_shuttingDown.store(true);
            releaseInstance();
        });
    }
}

JNIServer::~JNIServer()
{
    systemLog(QStringLiteral("JNIServer dealloc"));
    {
        QMutexLocker lock(&gate());
        if (g_instance.load() == this)
            g_instance.store(nullptr);
    }
    quit();
    stop();
    if (m_env && QThread::currentThreadId() == g_mainThreadId) {
        for (jclass cls : {m_controlClass, m_remoteManagerControlClass, m_listClass, m_stringClass})
            if (cls)
                m_env->DeleteGlobalRef(cls);
    }
}

void JNIServer::error(const QString &message)
{
    systemLog(message);
    if (m_failureReason.isEmpty() && !isAvailable())
        m_failureReason = message;
}

bool JNIServer::isAvailable() const
{
    return m_env && m_controlClass;
}

void JNIServer::initJVMWithRemoteEnabled(bool remote, bool portMapping)
{
    qputenv("JAVA_JVM_VERSION", "1.7");
    if (!createJVM()) {
        qputenv("JAVA_JVM_VERSION", "1.5");
        if (!createJVM()) {
            error(QStringLiteral("Quillon needs Java version 1.5 or higher"));
            return;
        }
    }

    // Global references: the classes stay usable whatever local frame a
    // later call runs in.
    JNIEnv *env = m_env;
    auto bind = [env](const char *name) -> jclass {
        jclass local = env->FindClass(name);
        if (env->ExceptionCheck()) {
            jthrowable thrown = env->ExceptionOccurred();
            env->ExceptionClear();
            jclass throwable = env->FindClass("java/lang/Throwable");
            jmethodID toString = throwable ? env->GetMethodID(throwable, "toString", "()Ljava/lang/String;") : nullptr;
            QString text = QStringLiteral("unknown exception");
            if (toString) {
                auto description = static_cast<jstring>(env->CallObjectMethod(thrown, toString));
                if (!env->ExceptionCheck() && description) {
                    const jchar *chars = env->GetStringChars(description, nullptr);
                    text = QString(reinterpret_cast<const QChar *>(chars), env->GetStringLength(description));
                    env->ReleaseStringChars(description, chars);
                }
                env->ExceptionClear();
            }
            systemLog(QStringLiteral("Java exception in FindClass %1: %2").arg(QLatin1String(name), oneLine(text)));
            env->DeleteLocalRef(thrown);
            if (throwable)
                env->DeleteLocalRef(throwable);
            return nullptr;
        }
        if (!local)
            return nullptr;
        auto global = static_cast<jclass>(env->NewGlobalRef(local));
        env->DeleteLocalRef(local);
        return global;
    };

    m_controlClass = bind(kServerControl);
    if (!m_controlClass)
        error(QStringLiteral("Couldn't load controller class"));
    m_remoteManagerControlClass = bind(kRemoteManagerControl);
    m_listClass = bind("java/util/List");
    if (!m_listClass)
        error(QStringLiteral("Couldn't load list class"));
    m_stringClass = bind("java/lang/String");

    if (m_remoteManagerControlClass) {
        const JNINativeMethod natives[] = {
            {const_cast<char *>("update"), const_cast<char *>("()V"), reinterpret_cast<void *>(&nativeUpdate)},
            {const_cast<char *>("connectionTestEnded"), const_cast<char *>("(Z)V"),
             reinterpret_cast<void *>(&nativeConnectionTestEnded)},
        };
        JavaCall call(this, m_remoteManagerControlClass, "RegisterNatives");
        if (call) {
            env->RegisterNatives(m_remoteManagerControlClass, natives, 2);
            call.check();
        }
    }

    {
        JavaCall call(this, m_controlClass, "init");
        jvalue folder = objectValue(call.toJava(applicationFolder()));
        call.staticVoid("(Ljava/lang/String;)V", &folder);
    }
    {
        JavaCall call(this, m_remoteManagerControlClass, "init");
        const jvalue flags[] = {boolValue(remote), boolValue(portMapping)};
        call.staticVoid("(ZZ)V", flags);
    }

    // Warm-up: the first listing of fonts and charsets is slow on the Java side.
    getAvailableFontFamilyNames();
    getAvailableEncodings();

    g_initialized.store(true);
}

bool JNIServer::createJVM()
{
    // One JVM per process: a singleton made again (tests) reuses it.
    if (JavaVM *vm = JvmLoader::createdJavaVM()) {
        JNIEnv *env = nullptr;
        if (vm->GetEnv(reinterpret_cast<void **>(&env), JNI_VERSION_1_4) != JNI_OK)
            return false;
        m_theVM = vm;
        m_env = env;
        return true;
    }

    const QString folder = Resources::folder();
    bool ok = true;
    auto resource = [&](const QString &name, const QString &type) {
        QString path = Resources::pathForResource(name, type);
        if (path.isEmpty()) {
            path = folder + QLatin1Char('/') + name + QLatin1Char('.') + type;
            error(QStringLiteral("Missing file: %1").arg(path));
            ok = false;
        }
        return path;
    };
    const QString serverJar = resource(QStringLiteral("QuillonServer"), QStringLiteral("jar"));
    const QString jnaJar = resource(QStringLiteral("jna"), QStringLiteral("jar"));
    const QString agent = resource(QStringLiteral("libMiniAgent"), QStringLiteral("so"));

    // HotSpot ends the whole process on an agent it cannot load or start;
    // find out here instead.
    if (!agent.isEmpty() && QFile::exists(agent)) {
        void *library = dlopen(QFile::encodeName(agent).constData(), RTLD_NOW | RTLD_LOCAL);
        if (!library) {
            error(QStringLiteral("Can't load the JVM agent %1: %2").arg(agent, QString::fromLocal8Bit(dlerror())));
            ok = false;
        } else {
            if (!dlsym(library, "Agent_OnLoad")) {
                error(QStringLiteral("The JVM agent %1 has no Agent_OnLoad").arg(agent));
                ok = false;
            }
            dlclose(library);
        }
    }

    // A damaged jar still gets its JVM (the control classes are then missing,
    // as the log says next), but the file is named here.
    static QString checkedJar; // once, not again for the second version tried
    if (checkedJar != serverJar && QFile::exists(serverJar)) {
        checkedJar = serverJar;
        const QString problem = ServerJar::problem(
            serverJar, {QLatin1String(kServerControl) + QStringLiteral(".class"),
                        QLatin1String(kRemoteManagerControl) + QStringLiteral(".class")});
        if (!problem.isEmpty())
            error(QStringLiteral("The server jar %1 %2").arg(serverJar, problem));
    }

    QString thumbnailWidth = Info::value(QStringLiteral("maxThumbnailWidth"));
    if (thumbnailWidth.isEmpty())
        thumbnailWidth = QStringLiteral("256");

    const QString agentOption =
        QStringLiteral("-agentpath:%1=mode=fetch-absent-classes;class-cache-folder=%2quillon-server/class-cache/%3/;"
                       "class-load-url-prefix=%4/JVM/v1/classes/")
            .arg(agent, Resources::temporaryFolder(), Info::value(QStringLiteral("CFBundleShortVersionString")),
                 QLatin1String(kProductWebHost));
    const QStringList texts = {
        QStringLiteral("-Djava.class.path=%1:%2").arg(serverJar, jnaJar),
        QStringLiteral("-Djna.library.path=%1").arg(folder),
        QStringLiteral("-Djava.library.path=%1").arg(folder),
        QStringLiteral("-Dfile.encoding=utf-8"),
        QStringLiteral("-Djava.awt.headless=true"),
        QStringLiteral("-Dsun.font.fontmanager=com.brookfen.font.osx.HeadlessFontManager"),
        QStringLiteral("-Dquillon-max-thumbnail-width=%1").arg(thumbnailWidth),
        agentOption,
    };
    if (!ok)
        return false;

    const qsizetype first = optionStorage().size();
    for (const QString &text : texts)
        optionStorage().append(text.toUtf8());
    JavaVMOption options[8];
    for (int i = 0; i < 8; ++i) {
        options[i].optionString = optionStorage()[first + i].data();
        options[i].extraInfo = nullptr;
    }

    // "UTF-8" is the macOS name of the UTF-8 character type; glibc does not
    // know it, and an unknown LC_CTYPE leaves the JVM with an ASCII file-name
    // encoding (sun.jnu.encoding), so that non-ASCII media paths break.
    QByteArray ctype = "UTF-8";
    if (locale_t locale = newlocale(LC_CTYPE_MASK, ctype.constData(), locale_t(nullptr)))
        freelocale(locale);
    else
        ctype = "C.UTF-8";
    qputenv("LC_CTYPE", ctype);

    JavaVMInitArgs args;
    args.version = JNI_VERSION_1_4;
    args.nOptions = 8;
    args.options = options;
    args.ignoreUnrecognized = JNI_FALSE;
    JavaVM *vm = nullptr;
    JNIEnv *env = nullptr;
    const int result =
        JvmLoader::createJavaVM(QString::fromLocal8Bit(qgetenv("JAVA_JVM_VERSION")), &vm, &env, &args);
    if (result != JNI_OK)
        return false;
    m_theVM = vm;
    m_env = env;
    return true;
}

// ---- ServerControl ----

void JNIServer::initialized()
{
    JavaCall(this, m_controlClass, "initialized").staticVoid("()V");
}

int JNIServer::start()
{
    JavaCall call(this, m_controlClass, "startServer");
    const int port = call.staticInt("()I");
    if (call)
        systemLog(QStringLiteral("Server started on: %1").arg(port));
    return port;
}

void JNIServer::stop()
{
    if (isRunning())
        JavaCall(this, m_controlClass, "stopServer").staticVoid("()V");
}

void JNIServer::quit()
{
    if (isRunning())
        JavaCall(this, m_controlClass, "quit").staticVoid("()V");
}

bool JNIServer::isRunning()
{
    return JavaCall(this, m_controlClass, "serverRunning").staticBool("()Z");
}

void JNIServer::setDefaultPort(int port)
{
    const jvalue arg = intValue(port);
    JavaCall(this, m_controlClass, "setDefaultPort").staticVoid("(I)V", &arg);
}

void JNIServer::setConverterMaxWidth(int width)
{
    const jvalue arg = intValue(width);
    JavaCall(this, m_controlClass, "setConverterMaxWidth").staticVoid("(I)V", &arg);
}

void JNIServer::setConverterMaxHeight(int height)
{
    const jvalue arg = intValue(height);
    JavaCall(this, m_controlClass, "setConverterMaxHeight").staticVoid("(I)V", &arg);
}

void JNIServer::converterResetQueue()
{
    JavaCall(this, m_controlClass, "converterResetQueue").staticVoid("()V");
}

namespace {
void stringSetter(JavaCall &&call, const QString &text)
{
    const jvalue arg = objectValue(call.toJava(text));
    call.staticVoid("(Ljava/lang/String;)V", &arg);
}
}

void JNIServer::setComputerName(const QString &name)
{
    stringSetter(JavaCall(this, m_controlClass, "setComputerName"), name);
}

void JNIServer::setPasswordDigest(const QString &digest)
{
    stringSetter(JavaCall(this, m_controlClass, "setPasswordDigest"),
                 digest.isNull() ? QString(QLatin1String("")) : digest);
}

void JNIServer::setConverterFFMpegPath(const QString &path)
{
    stringSetter(JavaCall(this, m_controlClass, "setConverterFFMpegPath"), path);
}

void JNIServer::setConverterFaacPath(const QString &path)
{
    stringSetter(JavaCall(this, m_controlClass, "setConverterFaacPath"), path);
}

void JNIServer::setConverterMuxerPath(const QString &path)
{
    stringSetter(JavaCall(this, m_controlClass, "setConverterMuxerPath"), path);
}

void JNIServer::setFontSize(int size)
{
    const jvalue arg = intValue(size);
    JavaCall(this, m_controlClass, "setFontSize").staticVoid("(I)V", &arg);
}

void JNIServer::setDisableEmbeddedSubtitlesIfNoLanguageMatches(bool disable)
{
    const jvalue arg = boolValue(disable);
    JavaCall(this, m_controlClass, "setDisableEmbeddedSubtitlesIfNoLanguageMatches").staticVoid("(Z)V", &arg);
}

QString JNIServer::getDefaultCharset()
{
    return JavaCall(this, m_controlClass, "getDefaultCharset").staticString("()Ljava/lang/String;");
}

void JNIServer::setDefaultCharset(const QString &charset)
{
    stringSetter(JavaCall(this, m_controlClass, "setDefaultCharset"), charset);
}

QString JNIServer::getFontFamilyName()
{
    return JavaCall(this, m_controlClass, "getFontFamilyName").staticString("()Ljava/lang/String;");
}

void JNIServer::setFontFamilyName(const QString &name)
{
    stringSetter(JavaCall(this, m_controlClass, "setFontFamilyName"), name);
}

QList<Encoding> JNIServer::getAvailableEncodings()
{
    JavaCall call(this, m_controlClass, "getAvailableEncodings");
    const jobject list = call.staticObject("()Ljava/util/List;");
    const int size = call.listSize(list);
    QList<Encoding> encodings;
    for (int i = 0; i < size && call; ++i) {
        jobject element = call.listElement(list, i);
        if (!call)
            return {};
        if (!element) {
            call.fail(QStringLiteral("getAvailableEncodings: null element at %1").arg(i));
            return {};
        }
        const QString name = call.stringGetter(element, "getName");
        const QString charset = call.stringGetter(element, "getCharset");
        call.env()->DeleteLocalRef(element);
        if (!call)
            return {};
        encodings.append(Encoding(name, charset));
    }
    return encodings;
}

QStringList JNIServer::getAvailableFontFamilyNames()
{
    JavaCall call(this, m_controlClass, "getAvailableFontFamilyNames");
    const jobject list = call.staticObject("()Ljava/util/List;");
    const int size = call.listSize(list);
    QStringList names;
    for (int i = 0; i < size && call; ++i) {
        jobject element = call.listElement(list, i);
        if (!call)
            return {};
        if (call.isString(element)) {
            const QString name = call.fromJava(static_cast<jstring>(element));
            if (!name.isNull())
                names.append(name);
        }
        if (element)
            call.env()->DeleteLocalRef(element);
    }
    return call ? names : QStringList();
}

QStringList JNIServer::getAvailableLanguages()
{
    JavaCall call(this, m_controlClass, "getAvailableLanguages");
    const jobject list = call.staticObject("()Ljava/util/List;");
    const int size = call.listSize(list);
    QStringList languages;
    for (int i = 0; i < size && call; ++i) {
        jobject element = call.listElement(list, i);
        if (!call)
            return {};
        if (!call.isString(element)) {
            call.fail(QStringLiteral("getAvailableLanguages: %1 element at %2")
                          .arg(element ? QStringLiteral("non-text") : QStringLiteral("null"))
                          .arg(i));
            return {};
        }
        languages.append(call.fromJava(static_cast<jstring>(element)));
        call.env()->DeleteLocalRef(element);
    }
    return call ? languages : QStringList();
}

void JNIServer::setPreferredLanguages(const QStringList &languages)
{
    JavaCall call(this, m_controlClass, "setPreferredLanguages");
    if (!call)
        return;
    JNIEnv *env = call.env();
    jclass stringClass = env->FindClass("java/lang/String");
    if (call.check("FindClass java/lang/String") || !stringClass)
        return;
    jobjectArray array = env->NewObjectArray(jsize(languages.size()), stringClass, nullptr);
    if (call.check("NewObjectArray") || !array)
        return;
    for (qsizetype i = 0; i < languages.size(); ++i) {
        jstring item = call.toJava(languages.at(i));
        if (!call)
            return;
        env->SetObjectArrayElement(array, jsize(i), item);
        if (call.check("SetObjectArrayElement"))
            return;
        if (item)
            env->DeleteLocalRef(item);
    }
    const jvalue arg = objectValue(array);
    call.staticVoid("([Ljava/lang/String;)V", &arg);
}

QString JNIServer::getLog(const QString &logId)
{
    JavaCall call(this, m_controlClass, "getLog");
    const jvalue arg = objectValue(call.toJava(logId));
    return call.staticString("(Ljava/lang/String;)Ljava/lang/String;", &arg);
}

void JNIServer::clearLog(const QString &logId)
{
    stringSetter(JavaCall(this, m_controlClass, "clearLog"), logId);
}

QString JNIServer::getLastConversionLog()
{
    return JavaCall(this, m_controlClass, "getLastConversionLog").staticString("()Ljava/lang/String;");
}

QString JNIServer::getConverterQueueAsJSON()
{
    return JavaCall(this, m_controlClass, "getConverterQueueAsJSON").staticString("()Ljava/lang/String;");
}

// ---- RemoteManagerControl ----

void JNIServer::setEnableRemote(bool enable)
{
    const jvalue arg = boolValue(enable);
    JavaCall(this, m_remoteManagerControlClass, "setEnableRemote").staticVoid("(Z)V", &arg);
}

void JNIServer::setEnablePortMapping(bool enable)
{
    const jvalue arg = boolValue(enable);
    JavaCall(this, m_remoteManagerControlClass, "setEnablePortMapping").staticVoid("(Z)V", &arg);
}

void JNIServer::retry()
{
    JavaCall(this, m_remoteManagerControlClass, "retry").staticVoid("()V");
}

void JNIServer::testConnection()
{
    JavaCall(this, m_remoteManagerControlClass, "testConnection").staticVoid("()V");
}

std::optional<RemoteManagerState> JNIServer::getRemoteManagerState()
{
    JavaCall call(this, m_remoteManagerControlClass, "getState");
    const jobject object = call.staticObject("()Lcom/brookfen/quillon/common/control/RemoteManagerState;");
    if (!call || !object)
        return std::nullopt;
    RemoteManagerState state;
    state.setServerPin(call.stringGetter(object, "getServerPin"));
    state.setMessage(call.stringGetter(object, "getMessage"));
    state.setRetryVisible(call.boolGetter(object, "isRetryVisible"));
    state.setTestConnectionVisible(call.boolGetter(object, "isTestConnectionVisible"));
    state.setInProgress(call.boolGetter(object, "isInProgress"));
    state.setPort(call.intGetter(object, "getPort"));
    if (!call)
        return std::nullopt;
    return state;
}

// ---- Callbacks ----

void JNIServer::setTarget(QObject *target)
{
    m_target = target;
}

QObject *JNIServer::target() const
{
    return m_target.data();
}

void JNIServer::setUpdateSelector(std::function<void()> update)
{
    m_updateSelector = std::move(update);
}

std::function<void()> JNIServer::updateSelector() const
{
    return m_updateSelector;
}

void JNIServer::setConnectionTestEndedSelector(std::function<void(bool)> ended)
{
    m_connectionTestEndedSelector = std::move(ended);
}

std::function<void(bool)> JNIServer::connectionTestEndedSelector() const
{
    return m_connectionTestEndedSelector;
}

void JNIServer::performUpdate()
{
    // Every update gets its own delayed call; none replaces an earlier one.
    DelayedCall::perform(this, 100, [this] { performUpdate1(); });
}

void JNIServer::performUpdate1()
{
    if (m_target && g_instance.load() && m_updateSelector)
        m_updateSelector();
}

void JNIServer::performConnectionTestEnded(bool passed)
{
    if (m_target && m_connectionTestEndedSelector)
        m_connectionTestEndedSelector(passed);
}
