#include "BridgeFixture.h"

#include "bridge/JvmLoader.h"

#include <jni.h>

#include <cstdio>

namespace {
const char *const kServerControl = "com/brookfen/quillon/common/control/ServerControl";
const char *const kRemoteManagerControl = "com/brookfen/quillon/common/control/RemoteManagerControl";

// The main thread's environment within a local frame of its own.
class Frame
{
public:
    Frame()
    {
        JavaVM *vm = JvmLoader::createdJavaVM();
        if (!vm || vm->GetEnv(reinterpret_cast<void **>(&env), JNI_VERSION_1_4) != JNI_OK || env->PushLocalFrame(64) != 0)
            env = nullptr;
    }
    ~Frame()
    {
        if (env)
            env->PopLocalFrame(nullptr);
    }
    bool failed()
    {
        if (!env->ExceptionCheck())
            return false;
        env->ExceptionDescribe();
        env->ExceptionClear();
        return true;
    }
    jstring string(const QString &text)
    {
        if (text.isNull())
            return nullptr;
        return env->NewString(reinterpret_cast<const jchar *>(text.utf16()), jsize(text.size()));
    }
    QString text(jobject object)
    {
        if (!object)
            return QString();
        auto string = static_cast<jstring>(object);
        const jchar *chars = env->GetStringChars(string, nullptr);
        QString result(reinterpret_cast<const QChar *>(chars), env->GetStringLength(string));
        env->ReleaseStringChars(string, chars);
        return result;
    }
    QStringList strings(jobject list)
    {
        QStringList result;
        if (!list)
            return result;
        jclass listClass = env->FindClass("java/util/List");
        jmethodID size = env->GetMethodID(listClass, "size", "()I");
        jmethodID get = env->GetMethodID(listClass, "get", "(I)Ljava/lang/Object;");
        const jint count = env->CallIntMethod(list, size);
        for (jint i = 0; i < count && !failed(); ++i)
            result << text(env->CallObjectMethod(list, get, i));
        return result;
    }
    jclass cls(const char *name)
    {
        jclass result = env->FindClass(name);
        return failed() ? nullptr : result;
    }
    // A static method by name and signature, or nullptr.
    jmethodID method(jclass c, const char *name, const char *signature)
    {
        if (!c)
            return nullptr;
        jmethodID id = env->GetStaticMethodID(c, name, signature);
        return failed() ? nullptr : id;
    }

    JNIEnv *env = nullptr;
};

void callVoid(const char *className, const char *name, const char *signature, const jvalue *args)
{
    Frame frame;
    if (!frame.env)
        return;
    jclass c = frame.cls(className);
    if (jmethodID id = frame.method(c, name, signature)) {
        frame.env->CallStaticVoidMethodA(c, id, args);
        frame.failed();
    }
}
}

void BridgeFixture::script(const QString &key, const QString &value)
{
    Frame frame;
    if (!frame.env)
        return;
    jclass c = frame.cls(kServerControl);
    if (jmethodID id = frame.method(c, "script", "(Ljava/lang/String;Ljava/lang/String;)V")) {
        frame.env->CallStaticVoidMethod(c, id, frame.string(key), frame.string(value.isNull() ? QStringLiteral("<null>") : value));
        frame.failed();
    }
}

void BridgeFixture::resetScript()
{
    callVoid(kServerControl, "resetScript", "()V", nullptr);
}

QString BridgeFixture::scripted(const QString &key)
{
    Frame frame;
    if (!frame.env)
        return QString();
    jclass c = frame.cls(kServerControl);
    if (jmethodID id = frame.method(c, "scripted", "(Ljava/lang/String;)Ljava/lang/String;")) {
        jobject value = frame.env->CallStaticObjectMethod(c, id, frame.string(key));
        if (!frame.failed())
            return frame.text(value);
    }
    return QString();
}

QStringList BridgeFixture::recordedCalls()
{
    Frame frame;
    if (!frame.env)
        return {};
    jclass c = frame.cls(kServerControl);
    if (jmethodID id = frame.method(c, "getRecordedCalls", "()Ljava/util/List;")) {
        jobject list = frame.env->CallStaticObjectMethod(c, id);
        if (!frame.failed())
            return frame.strings(list);
    }
    return {};
}

void BridgeFixture::clearRecordedCalls()
{
    callVoid(kServerControl, "clearRecordedCalls", "()V", nullptr);
}

QString BridgeFixture::property(const QString &name)
{
    Frame frame;
    if (!frame.env)
        return QString();
    jclass c = frame.cls(kRemoteManagerControl);
    if (jmethodID id = frame.method(c, "property", "(Ljava/lang/String;)Ljava/lang/String;")) {
        jobject value = frame.env->CallStaticObjectMethod(c, id, frame.string(name));
        if (!frame.failed())
            return frame.text(value);
    }
    return QString();
}

QStringList BridgeFixture::inputArguments()
{
    Frame frame;
    if (!frame.env)
        return {};
    jclass c = frame.cls(kRemoteManagerControl);
    if (jmethodID id = frame.method(c, "inputArguments", "()Ljava/util/List;")) {
        jobject list = frame.env->CallStaticObjectMethod(c, id);
        if (!frame.failed())
            return frame.strings(list);
    }
    return {};
}

qint64 BridgeFixture::usedHeapAfterGc()
{
    Frame frame;
    if (!frame.env)
        return -1;
    jclass c = frame.cls(kRemoteManagerControl);
    if (jmethodID id = frame.method(c, "usedHeapAfterGc", "()J")) {
        const jlong used = frame.env->CallStaticLongMethod(c, id);
        if (!frame.failed())
            return used;
    }
    return -1;
}

void BridgeFixture::fireUpdates(int threads, int perThread)
{
    jvalue args[2];
    args[0].i = threads;
    args[1].i = perThread;
    callVoid(kRemoteManagerControl, "fireUpdates", "(II)V", args);
}

void BridgeFixture::fireConnectionTestEnded(bool passed)
{
    jvalue arg;
    arg.z = passed ? JNI_TRUE : JNI_FALSE;
    callVoid(kRemoteManagerControl, "fireConnectionTestEnded", "(Z)V", &arg);
}

void BridgeFixture::startBurst(int threads)
{
    jvalue arg;
    arg.i = threads;
    callVoid(kRemoteManagerControl, "startBurst", "(I)V", &arg);
}
