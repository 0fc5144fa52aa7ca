// The server jar hosted in this process the way the controller hosts it: same launch
// options (agent included), natives registered from C++, calls made through JNI.
#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QtTest>

#include <atomic>
#include <dlfcn.h>
#include <jni.h>
#include <thread>

namespace {

std::atomic<int> g_updates{0};
std::atomic<int> g_updatesOffMainThread{0};
std::atomic<int> g_testResults{0};
std::atomic<bool> g_lastTestPassed{false};
std::thread::id g_mainThread;

void JNICALL nativeUpdate(JNIEnv *, jclass)
{
    ++g_updates;
    if (std::this_thread::get_id() != g_mainThread)
        ++g_updatesOffMainThread;
}

void JNICALL nativeConnectionTestEnded(JNIEnv *, jclass, jboolean passed)
{
    g_lastTestPassed = passed == JNI_TRUE;
    ++g_testResults;
}

bool waitUntil(const std::function<bool()> &condition, int ms)
{
    QElapsedTimer t;
    t.start();
    while (!condition()) {
        if (t.elapsed() > ms)
            return false;
        QThread::msleep(20);
    }
    return true;
}

} // namespace

class TestJavaInProcess : public QObject
{
    Q_OBJECT

    QTemporaryDir m_tmp;
    JNIEnv *m_env = nullptr;
    jclass m_control = nullptr;
    jclass m_remote = nullptr;

    QString callString(const char *method, const char *arg)
    {
        jmethodID id = m_env->GetStaticMethodID(m_control, method, "(Ljava/lang/String;)Ljava/lang/String;");
        auto s = static_cast<jstring>(m_env->CallStaticObjectMethod(m_control, id, m_env->NewStringUTF(arg)));
        if (!s)
            return QString();
        const char *utf = m_env->GetStringUTFChars(s, nullptr);
        QString result = QString::fromUtf8(utf);
        m_env->ReleaseStringUTFChars(s, utf);
        return result;
    }

    jobject state()
    {
        jmethodID id = m_env->GetStaticMethodID(m_remote, "getState",
                                                "()Lcom/brookfen/quillon/common/control/RemoteManagerState;");
        return m_env->CallStaticObjectMethod(m_remote, id);
    }

    bool stateFlag(const char *getter)
    {
        jobject s = state();
        jmethodID id = m_env->GetMethodID(m_env->GetObjectClass(s), getter, "()Z");
        return m_env->CallBooleanMethod(s, id) == JNI_TRUE;
    }

private slots:
    void initTestCase();
    void serverRunsAndCallsBackThroughTheNatives();
};

void TestJavaInProcess::initTestCase()
{
    g_mainThread = std::this_thread::get_id();
    QVERIFY(m_tmp.isValid());
    void *jvm = dlopen(LIBJVM_PATH, RTLD_NOW | RTLD_GLOBAL);
    QVERIFY2(jvm, dlerror());
    using CreateFn = jint(JNICALL *)(JavaVM **, void **, void *);
    auto create = reinterpret_cast<CreateFn>(dlsym(jvm, "JNI_CreateJavaVM"));
    QVERIFY(create);

    const QString res = QStringLiteral(RESOURCE_DIR);
    const QString cache = m_tmp.path() + QStringLiteral("/quillon-server/class-cache/2.4/");
    QList<QByteArray> texts{
        ("-Djava.class.path=" + res + "/QuillonServer.jar:" + res + "/jna.jar").toUtf8(),
        ("-Djna.library.path=" + res).toUtf8(),
        ("-Djava.library.path=" + res).toUtf8(),
        "-Dfile.encoding=utf-8",
        "-Djava.awt.headless=true",
        "-Dsun.font.fontmanager=com.brookfen.font.osx.HeadlessFontManager",
        "-Dquillon-max-thumbnail-width=256",
        ("-agentpath:" + res + "/libMiniAgent.so=mode=fetch-absent-classes;class-cache-folder=" + cache
         + ";class-load-url-prefix=http://127.0.0.1:9/JVM/v1/classes/")
            .toUtf8(),
        "-Dquillon.bind.address=127.0.0.1",
    };
    QVector<JavaVMOption> options(texts.size());
    for (int i = 0; i < texts.size(); ++i)
        options[i] = JavaVMOption{texts[i].data(), nullptr};
    JavaVMInitArgs args{JNI_VERSION_1_4, jint(options.size()), options.data(), JNI_FALSE};
    JavaVM *vm = nullptr;
    QCOMPARE(create(&vm, reinterpret_cast<void **>(&m_env), &args), JNI_OK);
    QVERIFY(QFileInfo(cache).isDir());

    m_control = m_env->FindClass("com/brookfen/quillon/common/control/ServerControl");
    m_remote = m_env->FindClass("com/brookfen/quillon/common/control/RemoteManagerControl");
    QVERIFY(m_control && m_remote);
    JNINativeMethod natives[] = {
        {const_cast<char *>("update"), const_cast<char *>("()V"), reinterpret_cast<void *>(nativeUpdate)},
        {const_cast<char *>("connectionTestEnded"), const_cast<char *>("(Z)V"),
         reinterpret_cast<void *>(nativeConnectionTestEnded)},
    };
    QCOMPARE(m_env->RegisterNatives(m_remote, natives, 2), JNI_OK);

    const QByteArray app = (m_tmp.path() + QStringLiteral("/app")).toUtf8();
    m_env->CallStaticVoidMethod(m_control, m_env->GetStaticMethodID(m_control, "init", "(Ljava/lang/String;)V"),
                                m_env->NewStringUTF(app.constData()));
    m_env->CallStaticVoidMethod(m_remote, m_env->GetStaticMethodID(m_remote, "init", "(ZZ)V"), JNI_TRUE, JNI_FALSE);
    QVERIFY(!m_env->ExceptionCheck());
}

void TestJavaInProcess::serverRunsAndCallsBackThroughTheNatives()
{
    m_env->CallStaticVoidMethod(m_control, m_env->GetStaticMethodID(m_control, "setDefaultPort", "(I)V"), 0);
    const jint port = m_env->CallStaticIntMethod(m_control, m_env->GetStaticMethodID(m_control, "startServer", "()I"));
    QVERIFY(port > 0);
    QVERIFY(m_env->CallStaticBooleanMethod(m_control, m_env->GetStaticMethodID(m_control, "serverRunning", "()Z")));
    QVERIFY(callString("getLog", "remote").contains(QStringLiteral("Server started on port %1").arg(port)));
    QVERIFY(callString("getLog", "no-such-log").isNull());

    QVERIFY(waitUntil([] { return g_updates > 0; }, 5000));
    QCOMPARE(g_updatesOffMainThread.load(), g_updates.load());
    QVERIFY(waitUntil([this] { return stateFlag("isTestConnectionVisible"); }, 5000));
    jobject s = state();
    QCOMPARE(m_env->CallIntMethod(s, m_env->GetMethodID(m_env->GetObjectClass(s), "getPort", "()I")), port);

    m_env->CallStaticVoidMethod(m_remote, m_env->GetStaticMethodID(m_remote, "testConnection", "()V"));
    QVERIFY(waitUntil([] { return g_testResults > 0; }, 5000));
    QVERIFY(g_lastTestPassed);

    jobject list = m_env->CallStaticObjectMethod(
        m_control, m_env->GetStaticMethodID(m_control, "getAvailableEncodings", "()Ljava/util/List;"));
    jclass listClass = m_env->FindClass("java/util/List");
    QVERIFY(m_env->CallIntMethod(list, m_env->GetMethodID(listClass, "size", "()I")) > 10);

    m_env->CallStaticVoidMethod(m_control, m_env->GetStaticMethodID(m_control, "stopServer", "()V"));
    QVERIFY(!m_env->CallStaticBooleanMethod(m_control, m_env->GetStaticMethodID(m_control, "serverRunning", "()Z")));
    QVERIFY(!m_env->ExceptionCheck());
}

QTEST_GUILESS_MAIN(TestJavaInProcess)
#include "tst_java_inprocess.moc"
