#include "AgentOptions.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>
#include <unistd.h>

using miniagent::AgentOptions;
using miniagent::parseAgentOptions;

namespace {

const QString kGreeting = QStringLiteral("hello from the cache");
const QString kCachedClass = QStringLiteral("com.example.cache.CachedGreeting");

struct JavaRun {
    int exitCode = -1;
    QString out;
    QString err;
};

JavaRun runProbe(const QStringList &jvmArgs)
{
    QProcess p;
    p.start(QStringLiteral(JAVA_EXECUTABLE),
            jvmArgs + QStringList{QStringLiteral("-cp"), QStringLiteral(PROBE_JAR), QStringLiteral("AgentProbe"),
                                  kCachedClass});
    JavaRun r;
    if (!p.waitForFinished(30000)) {
        p.kill();
        p.waitForFinished();
        return r;
    }
    r.exitCode = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -2;
    r.out = QString::fromUtf8(p.readAllStandardOutput()).trimmed();
    r.err = QString::fromUtf8(p.readAllStandardError());
    return r;
}

QString agentArg(const QString &options)
{
    return QStringLiteral("-agentpath:") + QStringLiteral(MINIAGENT_PATH) + options;
}

bool copyTree(const QString &from, const QString &to)
{
    QDir src(from);
    if (!QDir().mkpath(to))
        return false;
    for (const QFileInfo &fi : src.entryInfoList(QDir::NoDotAndDotDot | QDir::AllEntries)) {
        const QString target = to + QLatin1Char('/') + fi.fileName();
        if (fi.isDir() ? !copyTree(fi.filePath(), target) : !QFile::copy(fi.filePath(), target))
            return false;
    }
    return true;
}

int agentLines(const QString &err)
{
    return err.count(QStringLiteral("MiniAgent:"));
}

} // namespace

class TestAgent : public QObject
{
    Q_OBJECT

private slots:
    void parsesTheControllersOptions();
    void urlPrefixKeepsSeparators();
    void nullEmptyAndGarbageOptions();
    void duplicatesAndUnknownKeys();
    void folderSafety();
    void jvmStartsWhateverTheOptions_data();
    void jvmStartsWhateverTheOptions();
    void cachedClassIsLoaded();
    void unsafeCacheFolderIsNotSearched();
};

void TestAgent::parsesTheControllersOptions()
{
    AgentOptions o = parseAgentOptions("mode=fetch-absent-classes;class-cache-folder=/tmp/x/quillon-server/class-cache/2.4/;"
                                       "class-load-url-prefix=http://classes.example.net/JVM/v1/classes/");
    QCOMPARE(o.mode, std::string("fetch-absent-classes"));
    QCOMPARE(o.classCacheFolder, std::string("/tmp/x/quillon-server/class-cache/2.4/"));
    QCOMPARE(o.classLoadUrlPrefix, std::string("http://classes.example.net/JVM/v1/classes/"));
    QVERIFY(o.notes.empty());

    // Order does not matter, and an empty URL is an empty value, not a problem.
    o = parseAgentOptions("class-load-url-prefix=;class-cache-folder=/c;mode=m");
    QCOMPARE(o.classLoadUrlPrefix, std::string());
    QCOMPARE(o.classCacheFolder, std::string("/c"));
    QCOMPARE(o.mode, std::string("m"));
    QVERIFY(o.notes.empty());
}

void TestAgent::urlPrefixKeepsSeparators()
{
    AgentOptions o = parseAgentOptions("class-cache-folder=/c;class-load-url-prefix=http://h/a;b=c?d=e;f;");
    QCOMPARE(o.classLoadUrlPrefix, std::string("http://h/a;b=c?d=e;f;"));
    QCOMPARE(o.classCacheFolder, std::string("/c"));

    // A known key after the URL ends it; something that merely looks like one does not.
    o = parseAgentOptions("class-load-url-prefix=http://h/x;modex=1;mode;y;mode=fetch-absent-classes");
    QCOMPARE(o.classLoadUrlPrefix, std::string("http://h/x;modex=1;mode;y"));
    QCOMPARE(o.mode, std::string("fetch-absent-classes"));
    QVERIFY(o.notes.empty());

    o = parseAgentOptions("class-load-url-prefix==http://h/=;;");
    QCOMPARE(o.classLoadUrlPrefix, std::string("=http://h/=;;"));
}

void TestAgent::nullEmptyAndGarbageOptions()
{
    AgentOptions o = parseAgentOptions(nullptr);
    QVERIFY(o.mode.empty() && o.classCacheFolder.empty() && o.classLoadUrlPrefix.empty());
    QCOMPARE(o.notes.size(), size_t(1));

    o = parseAgentOptions("");
    QVERIFY(o.mode.empty() && o.classCacheFolder.empty() && o.notes.empty());

    o = parseAgentOptions(";;;");
    QVERIFY(o.classCacheFolder.empty() && o.notes.empty());

    o = parseAgentOptions("==;=x;mode;class-cache-folder");
    QVERIFY(o.mode.empty() && o.classCacheFolder.empty());
    QCOMPARE(o.notes.size(), size_t(4));
    QCOMPARE(o.notes[2], std::string("no value for mode"));

    // A long run of separators ends promptly.
    const std::string many(200000, ';');
    o = parseAgentOptions((many + "class-cache-folder=/z").c_str());
    QCOMPARE(o.classCacheFolder, std::string("/z"));
}

void TestAgent::duplicatesAndUnknownKeys()
{
    AgentOptions o = parseAgentOptions("mode=a;mode=b;class-cache-folder=/1;class-cache-folder=/2;colour=red;"
                                       "class-load-url-prefix=u1;class-load-url-prefix=u2");
    QCOMPARE(o.mode, std::string("b"));
    QCOMPARE(o.classCacheFolder, std::string("/2"));
    QCOMPARE(o.classLoadUrlPrefix, std::string("u2"));
    const std::vector<std::string> expected{"duplicate key mode", "duplicate key class-cache-folder",
                                            "unknown key colour", "duplicate key class-load-url-prefix"};
    QCOMPARE(o.notes, expected);
}

void TestAgent::folderSafety()
{
    QTemporaryDir tmp;
    QVERIFY(tmp.isValid());
    const std::string base = tmp.path().toStdString();
    std::string why;

    const std::string nested = base + "/a/b/c/";
    QVERIFY(miniagent::isTrustedFolder(nested, &why));
    QVERIFY(miniagent::makeFolders(nested, &why));
    QVERIFY(QFileInfo(QString::fromStdString(nested)).isDir());
    struct stat st;
    QCOMPARE(stat((base + "/a/b").c_str(), &st), 0);
    QCOMPARE(int(st.st_mode & 0777) & 077, 0);
    QVERIFY(miniagent::makeFolders(nested, &why)); // already there

    QVERIFY(!miniagent::isTrustedFolder("relative/path", &why));
    QVERIFY(!miniagent::isTrustedFolder("", &why));

    // A file in the way can be neither trusted nor made.
    QFile file(tmp.path() + QStringLiteral("/file"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.close();
    QVERIFY(!miniagent::isTrustedFolder(base + "/file/sub", &why));
    QVERIFY(!miniagent::makeFolders(base + "/file/sub", &why));

    // Writable by others: refused, unless sticky like /tmp.
    QCOMPARE(chmod((base + "/a").c_str(), 0777), 0);
    QVERIFY(!miniagent::isTrustedFolder(nested, &why));
    QVERIFY(QString::fromStdString(why).endsWith(QStringLiteral("/a is writable by others")));
    QCOMPARE(chmod((base + "/a").c_str(), 01777), 0);
    QVERIFY(miniagent::isTrustedFolder(nested, &why));

    if (geteuid() == 0) {
        QCOMPARE(chown((base + "/a/b").c_str(), 65534, 65534), 0);
        QVERIFY(!miniagent::isTrustedFolder(nested, &why));
        QVERIFY(QString::fromStdString(why).contains(QStringLiteral("another user")));
    }
}

void TestAgent::jvmStartsWhateverTheOptions_data()
{
    QTest::addColumn<QString>("options");
    QTest::addColumn<bool>("complains");
    QTest::newRow("null") << QString() << true;
    QTest::newRow("empty") << QStringLiteral("=") << true;
    QTest::newRow("garbage") << QStringLiteral("==;;x;=y;mode=zz;\x01\x7f") << true;
    QTest::newRow("folder under a file") << QStringLiteral("=class-cache-folder=%1/file/sub/") << true;
    QTest::newRow("relative folder") << QStringLiteral("=class-cache-folder=rel/ative") << true;
    QTest::newRow("good") << QStringLiteral("=mode=fetch-absent-classes;class-cache-folder=%1/cache/2.4/;"
                                            "class-load-url-prefix=http://127.0.0.1:9/JVM/v1/classes/")
                          << false;
}

void TestAgent::jvmStartsWhateverTheOptions()
{
    QFETCH(QString, options);
    QFETCH(bool, complains);
    QTemporaryDir tmp;
    QVERIFY(tmp.isValid());
    QFile file(tmp.path() + QStringLiteral("/file"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.close();
    if (options.contains(QStringLiteral("%1")))
        options = options.arg(tmp.path());

    const JavaRun r = runProbe({agentArg(options)});
    QCOMPARE(r.exitCode, 0);
    QCOMPARE(r.out, QStringLiteral("missing"));
    QCOMPARE(agentLines(r.err), complains ? 1 : 0);
}

void TestAgent::cachedClassIsLoaded()
{
    QTemporaryDir tmp;
    QVERIFY(tmp.isValid());
    const QString cache = tmp.path() + QStringLiteral("/quillon-server/class-cache/2.4/");
    const QString options = QStringLiteral("=mode=fetch-absent-classes;class-cache-folder=%1;"
                                           "class-load-url-prefix=http://127.0.0.1:9/JVM/v1/classes/")
                                .arg(cache);

    JavaRun r = runProbe({agentArg(options)});
    QCOMPARE(r.exitCode, 0);
    QCOMPARE(r.out, QStringLiteral("missing"));
    QVERIFY(QFileInfo(cache).isDir());

    QVERIFY(copyTree(QStringLiteral(CACHED_CLASSES_DIR), cache));
    r = runProbe({agentArg(options)});
    QCOMPARE(r.exitCode, 0);
    QCOMPARE(r.out, kGreeting);
    QCOMPARE(agentLines(r.err), 0);

    // Without the agent the same class is not found: the agent is what put it on the path.
    r = runProbe({});
    QCOMPARE(r.exitCode, 0);
    QCOMPARE(r.out, QStringLiteral("missing"));
}

void TestAgent::unsafeCacheFolderIsNotSearched()
{
    QTemporaryDir tmp;
    QVERIFY(tmp.isValid());
    const QString shared = tmp.path() + QStringLiteral("/shared");
    const QString cache = shared + QStringLiteral("/cache");
    QVERIFY(copyTree(QStringLiteral(CACHED_CLASSES_DIR), cache));
    QVERIFY(QFile::setPermissions(shared, QFileDevice::Permissions(0x7777)));

    const JavaRun r = runProbe({agentArg(QStringLiteral("=class-cache-folder=") + cache)});
    QCOMPARE(r.exitCode, 0);
    QCOMPARE(r.out, QStringLiteral("missing"));
    QVERIFY2(r.err.contains(QStringLiteral("writable by others")), qPrintable(r.err));
}

QTEST_GUILESS_MAIN(TestAgent)
#include "tst_agent.moc"
