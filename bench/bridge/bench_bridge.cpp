// Prints: resident memory before and after 100,000 calls of
// getConverterQueueAsJSON and of getLog (goal: growth under 1 MB each), and of
// a list walk and a state object call for comparison, and
// the time from process start to a started server, in-process through the
// bridge and stand-alone with "java -jar" (goal: in-process at most 1.1x).
// Uses the real server jar of the resource folder; each measurement runs in a
// child process of its own, since a process holds one JVM.
#include "bridge/JNIServer.h"
#include "bridge/JvmLoader.h"
#include "platform/Resources.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <functional>

#include <jni.h>
#include <malloc.h>

namespace {
const int kCalls = 100000;
const int kRuns = 5;
const int kRounds = 6;

qint64 residentKiB()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : status.readAll().split('\n'))
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toLongLong();
    return -1;
}

// Bytes of the C heap in use (the JVM's own allocations included).
qint64 mallocKiB()
{
    return qint64(mallinfo2().uordblks / 1024);
}

// Java heap in use after full collections: what the calls left alive there.
qint64 javaHeapKiB()
{
    JavaVM *vm = JvmLoader::createdJavaVM();
    JNIEnv *env = nullptr;
    if (!vm || vm->GetEnv(reinterpret_cast<void **>(&env), JNI_VERSION_1_4) != JNI_OK)
        return -1;
    env->PushLocalFrame(8);
    jclass system = env->FindClass("java/lang/System");
    jclass runtimeClass = env->FindClass("java/lang/Runtime");
    jobject runtime = env->CallStaticObjectMethod(runtimeClass,
                                                  env->GetStaticMethodID(runtimeClass, "getRuntime", "()Ljava/lang/Runtime;"));
    jmethodID gc = env->GetStaticMethodID(system, "gc", "()V");
    jmethodID total = env->GetMethodID(runtimeClass, "totalMemory", "()J");
    jmethodID free = env->GetMethodID(runtimeClass, "freeMemory", "()J");
    qint64 used = -1;
    for (int i = 0; i < 3; ++i) {
        env->CallStaticVoidMethod(system, gc);
        const qint64 now = env->CallLongMethod(runtime, total) - env->CallLongMethod(runtime, free);
        used = used < 0 ? now : std::min(used, now);
    }
    if (env->ExceptionCheck())
        env->ExceptionClear();
    env->PopLocalFrame(nullptr);
    return used / 1024;
}

// Child: the JVM in this process, then the two polling loops.
int memoryChild()
{
    JNIServer::initWithRemoteEnabled(false, false);
    JNIServer *server = JNIServer::instance();
    if (!server || !server->isAvailable())
        return 2;
    const struct
    {
        const char *name;
        int calls;
        std::function<qsizetype()> call;
    } loops[] = {
        {"getConverterQueueAsJSON", kCalls, [server] { return server->getConverterQueueAsJSON().size(); }},
        {"getLog", kCalls, [server] { return server->getLog(QStringLiteral("conversion")).size(); }},
        // A list walk and a state object: references of other shapes. The
        // server builds the language list anew each time (about 0.5 ms), so
        // fewer calls.
        {"getAvailableLanguages", kCalls / 20, [server] { return server->getAvailableLanguages().size(); }},
        {"getRemoteManagerState", kCalls, [server] {
             const std::optional<RemoteManagerState> state = server->getRemoteManagerState();
             return state ? state->serverPin().size() : qsizetype(0);
         }},
    };
    for (const auto &loop : loops) {
        qsizetype sink = 0;
        for (int i = 0; i < loop.calls / 50; ++i) // warm-up: JIT, first allocations
            sink += loop.call();
        const qint64 heapBefore = javaHeapKiB();
        const qint64 mallocBefore = mallocKiB();
        // The first round is the figure asked for; the later ones show
        // whether the growth goes on or is the JVM touching its young
        // generation once.
        QStringList rounds;
        qint64 first = 0;
        double microseconds = 0;
        for (int round = 0; round < kRounds; ++round) {
            const qint64 before = residentKiB();
            QElapsedTimer timer;
            timer.start();
            for (int i = 0; i < loop.calls; ++i)
                sink += loop.call();
            microseconds = timer.nsecsElapsed() / 1000.0 / loop.calls;
            const qint64 growth = residentKiB() - before;
            if (round == 0)
                first = growth;
            rounds << QString::number(growth);
        }
        const qint64 mallocAfter = mallocKiB();
        const qint64 heapAfter = javaHeapKiB();
        std::printf("%s (%.2f us/call, %lld chars read):\n"
                    "  RSS growth over the first %d calls: %lld KiB\n"
                    "  RSS growth per further %d calls: %s KiB\n"
                    "  over all %d calls: C heap in use %+lld KiB, Java heap in use after GC %+lld KiB\n",
                    loop.name, microseconds, static_cast<long long>(sink), loop.calls, first, loop.calls,
                    qPrintable(rounds.mid(1).join(QLatin1Char(' '))), loop.calls * kRounds, mallocAfter - mallocBefore,
                    heapAfter - heapBefore);
    }
    std::fflush(stdout);
    return 0;
}

// Child: the JVM and a started server; the parent times until the line.
int readyChild()
{
    QElapsedTimer timer;
    timer.start();
    JNIServer::initWithRemoteEnabled(false, false);
    const qint64 startUp = timer.elapsed();
    JNIServer *server = JNIServer::instance();
    if (!server || !server->isAvailable())
        return 2;
    server->setDefaultPort(0);
    const int port = server->start();
    std::printf("Server started on: %d\n", port);
    std::fprintf(stderr, "in-process: bridge start-up (JVM, init calls, font and charset warm-up) %lld ms, "
                         "startServer %lld ms\n", startUp, timer.elapsed() - startUp);
    std::fflush(stdout);
    server->quit();
    return 0;
}

// Milliseconds from starting `program` to its "Server started on: " line.
qint64 timeToServer(const QString &program, const QStringList &arguments, const QProcessEnvironment &environment)
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::SeparateChannels);
    QElapsedTimer timer;
    timer.start();
    process.start(program, arguments);
    QByteArray out;
    qint64 ready = -1;
    while (process.waitForReadyRead(60000)) {
        out += process.readAllStandardOutput();
        if (out.contains("Server started on: ")) {
            ready = timer.elapsed();
            break;
        }
    }
    process.kill();
    process.waitForFinished(10000);
    for (const QByteArray &line : process.readAllStandardError().split('\n'))
        if (line.startsWith("in-process:"))
            std::printf("  %s\n", line.constData());
    return ready;
}

qint64 median(QList<qint64> values)
{
    std::sort(values.begin(), values.end());
    return values.isEmpty() ? -1 : values.at(values.size() / 2);
}
}

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QString mode = app.arguments().value(1);
    if (mode == QLatin1String("--memory-child"))
        return memoryChild();
    if (mode == QLatin1String("--ready-child"))
        return readyChild();

    const QString jar = Resources::pathForResource(QStringLiteral("QuillonServer"), QStringLiteral("jar"));
    if (jar.isEmpty()) {
        std::fprintf(stderr, "No QuillonServer.jar in %s\n", qPrintable(Resources::folder()));
        return 1;
    }
    // The server writes its application folder under $HOME: keep it out of
    // the user's.
    QTemporaryDir home;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("HOME"), home.path());
    environment.insert(QStringLiteral("QUILLON_RESOURCE_DIR"), Resources::folder());
    std::printf("Resource folder: %s\n", qPrintable(Resources::folder()));
    std::fflush(stdout);

    // As shipped (the JVM sizes its heap from the machine's memory), and with
    // the heap bounded, where the young generation stops growing early.
    for (const char *options : {"", "-Xmx64m"}) {
        std::printf("\n== Memory, JVM %s\n", *options ? options : "defaults");
        std::fflush(stdout);
        QProcessEnvironment memoryEnvironment = environment;
        if (*options)
            memoryEnvironment.insert(QStringLiteral("JAVA_TOOL_OPTIONS"), QLatin1String(options));
        QProcess memory;
        memory.setProcessEnvironment(memoryEnvironment);
        memory.setProcessChannelMode(QProcess::ForwardedOutputChannel);
        memory.start(app.applicationFilePath(), {QStringLiteral("--memory-child")});
        if (!memory.waitForFinished(600000) || memory.exitCode() != 0)
            std::fprintf(stderr, "memory run failed (exit %d)\n", memory.exitCode());
    }
    std::printf("\n");

    QList<qint64> inProcess, standAlone;
    for (int run = 0; run < kRuns; ++run) {
        // Alternate so that neither launch always finds the caches warmer.
        standAlone << timeToServer(QStringLiteral(QUILLON_JAVA_EXECUTABLE),
                                   {QStringLiteral("-jar"), jar, QStringLiteral("serve"), QStringLiteral("0")},
                                   environment);
        inProcess << timeToServer(app.applicationFilePath(), {QStringLiteral("--ready-child")}, environment);
    }
    auto list = [](const QList<qint64> &values) {
        QStringList texts;
        for (qint64 v : values)
            texts << QString::number(v);
        return texts.join(QLatin1Char(' '));
    };
    const qint64 a = median(inProcess), b = median(standAlone);
    std::printf("Time to a started server, median of %d runs: in-process %lld ms [%s], stand-alone java -jar %lld ms [%s], "
                "ratio %.2f\n",
                kRuns, a, qPrintable(list(inProcess)), b, qPrintable(list(standAlone)), b > 0 ? double(a) / double(b) : 0.0);
    return 0;
}
