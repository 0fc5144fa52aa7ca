// The server jar hosted in this process the way the controller hosts it: same launch
// options (agent included), natives registered from C++, calls made through JNI.
#include <QTemporaryDir>
#include <QtTest>

#include <atomic>
#include <dlfcn.h>
#include <jni.h>
#include <thread>

static std::atomic<int> g_updates{0}, g_updatesOffMainThread{0}, g_testResults{0};
static std::atomic<bool> g_lastTestPassed{false};
static std::thread::id g_mainThread;
#define STATE "com/brookfen/quillon/common/control/RemoteManagerState"

static void JNICALL nativeUpdate(JNIEnv *, jclass)
{
    ++g_updates;
    if (std::this_thread::get_id() != g_mainThread)
        ++g_updatesOffMainThread;
}

static void JNICALL nativeConnectionTestEnded(JNIEnv *, jclass, jboolean passed)
{
    g_lastTestPassed = passed == JNI_TRUE;
    ++g_testResults;
}

class TestJavaInProcess : public QObject
{
    Q_OBJECT

    QTemporaryDir m_tmp;
    JNIEnv *m_env = nullptr;
    jclass m_control = nullptr;
    jclass m_remote = nullptr;

    jmethodID control(const char *name, const char *signature) { return m_env->GetStaticMethodID(m_control, name, signature); }
    jmethodID remote(const char *name, const char *signature) { return m_env->GetStaticMethodID(m_remote, name, signature); }
    bool testOffered()
    {
        const jobject state = m_env->CallStaticObjectMethod(m_remote, remote("getState", "()L" STATE ";"));
        return m_env->CallBooleanMethod(state, m_env->GetMethodID(m_env->FindClass(STATE), "isTestConnectionVisible", "()Z"));
    }

private slots:
    void serverRunsAndCallsBackThroughTheNatives()
    {
        g_mainThread = std::this_thread::get_id();
        void *jvm = dlopen(LIBJVM_PATH, RTLD_NOW | RTLD_GLOBAL);
        QVERIFY2(jvm, dlerror());
        auto create = reinterpret_cast<jint(JNICALL *)(JavaVM **, void **, void *)>(dlsym(jvm, "JNI_CreateJavaVM"));
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
             + ";class-load-url-prefix=http://127.0.0.1:9/JVM/v1/classes/").toUtf8(),
            "-Dquillon.bind.address=127.0.0.1",
        };
        QVector<JavaVMOption> options;
        for (QByteArray &text : texts)
            options.append(JavaVMOption{text.data(), nullptr});
        JavaVMInitArgs args{JNI_VERSION_1_4, jint(options.size()), options.data(), JNI_FALSE};
        JavaVM *vm = nullptr;
        QCOMPARE(create(&vm, reinterpret_cast<void **>(&m_env), &args), JNI_OK);

        m_control = m_env->FindClass("com/brookfen/quillon/common/control/ServerControl");
        m_remote = m_env->FindClass("com/brookfen/quillon/common/control/RemoteManagerControl");
        QVERIFY(m_control && m_remote);
        JNINativeMethod natives[] = {
            {const_cast<char *>("update"), const_cast<char *>("()V"), reinterpret_cast<void *>(nativeUpdate)},
            {const_cast<char *>("connectionTestEnded"), const_cast<char *>("(Z)V"),
             reinterpret_cast<void *>(nativeConnectionTestEnded)},
        };
        QCOMPARE(m_env->RegisterNatives(m_remote, natives, 2), JNI_OK);
        m_env->CallStaticVoidMethod(m_control, control("init", "(Ljava/lang/String;)V"),
                                    m_env->NewStringUTF((m_tmp.path() + QStringLiteral("/app")).toUtf8().constData()));
        m_env->CallStaticVoidMethod(m_remote, remote("init", "(ZZ)V"), JNI_TRUE, JNI_FALSE);
        QVERIFY(!m_env->ExceptionCheck());
        m_env->CallStaticVoidMethod(m_control, control("setDefaultPort", "(I)V"), 0);
        const jint port = m_env->CallStaticIntMethod(m_control, control("startServer", "()I"));
        QVERIFY(port > 0 && m_env->CallStaticBooleanMethod(m_control, control("serverRunning", "()Z")));

        // Java calls the natives from its own threads.
        QTRY_VERIFY(g_updates > 0);
        QCOMPARE(g_updatesOffMainThread.load(), g_updates.load());
        QTRY_VERIFY(testOffered());
        m_env->CallStaticVoidMethod(m_remote, remote("testConnection", "()V"));
        QTRY_VERIFY(g_testResults > 0);
        QVERIFY(g_lastTestPassed);

        m_env->CallStaticVoidMethod(m_control, control("stopServer", "()V"));
        QVERIFY(!m_env->CallStaticBooleanMethod(m_control, control("serverRunning", "()Z")));
        QVERIFY(!m_env->ExceptionCheck());
    }
};

QTEST_GUILESS_MAIN(TestJavaInProcess)
#include "tst_java_inprocess.moc"
