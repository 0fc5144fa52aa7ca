#include "platform/DelayedCall.h"
#include "platform/Defaults.h"
#include "platform/Resources.h"
#include "platform/SystemLog.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

static bool writeFile(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

// A child run of this test executable writes or reads the store, so that
// values are seen to cross a process boundary.
static int childMain(const QString &mode)
{
    Defaults &d = Defaults::standard();
    if (mode == QLatin1String("write")) {
        d.setBool(true, QStringLiteral("aBool"));
        d.setBool(false, QStringLiteral("falseBool"));
        d.setInteger(-7, QStringLiteral("anInt"));
        d.setDouble(0.1, QStringLiteral("aNumber"));
        d.setString(QStringLiteral("multi\nline \\ = é 🎬"), QStringLiteral("aString"));
        d.setString(QStringLiteral("45631"), QStringLiteral("digits"));
        d.setObject(QByteArray("\x00\x01geo", 5), QStringLiteral("Window Frame=Main"));
        return 0;
    }
    QTextStream out(stdout);
    for (const char *key : {"aBool", "falseBool", "anInt", "aNumber", "aString", "digits", "Window Frame=Main", "absent"}) {
        const QVariant v = d.objectForKey(QString::fromLatin1(key));
        out << key << '|' << (v.isValid() ? v.metaType().name() : "absent") << '|'
            << (v.typeId() == QMetaType::QByteArray ? v.toByteArray().toHex() : v.toString().toUtf8()).toPercentEncoding()
            << '\n';
    }
    out.flush();
    systemLog(QStringLiteral("Stopping server é"));
    return 0;
}

class TestPlatform : public QObject
{
    Q_OBJECT

private slots:
    void defaultsKeepTypesAcrossProcesses();
    void defaultsAbsentAndConversions();
    void delayedCallsRunAndCancelPerTarget();
    void resourcesAndInfo();
};

void TestPlatform::defaultsKeepTypesAcrossProcesses()
{
    QTemporaryDir home;
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.path());
    p.setProcessEnvironment(env);
    for (const char *mode : {"write", "read"}) {
        p.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--child"), QString::fromLatin1(mode)});
        QVERIFY(p.waitForFinished(20000));
    }
    QVERIFY(QFile::exists(home.path() + QStringLiteral("/Quillon/QuillonServer.conf")));
    QCOMPARE(QString::fromUtf8(p.readAllStandardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts),
             QStringList({"aBool|bool|true", "falseBool|bool|false", "anInt|qlonglong|-7", "aNumber|double|0.1",
                          "aString|QString|multi%0Aline%20%5C%20%3D%20%C3%A9%20%F0%9F%8E%AC", "digits|QString|45631",
                          "Window Frame=Main|QByteArray|000167656f", "absent|absent|"}));
    // The system log is one plain line on standard error.
    QCOMPARE(p.readAllStandardError(), QByteArray("Stopping server \xc3\xa9\n"));
}

void TestPlatform::defaultsAbsentAndConversions()
{
    QTemporaryDir dir;
    Defaults d(dir.path() + QStringLiteral("/store.conf"));
    const QString k = QStringLiteral("k");
    QVERIFY(!d.contains(k) && !d.objectForKey(k).isValid() && !d.boolForKey(k) && d.integerForKey(k) == 0);

    d.setString(QStringLiteral("YES"), k);
    QVERIFY(d.boolForKey(k));
    d.setString(QStringLiteral("12abc"), k);
    QCOMPARE(d.integerForKey(k), 0); // not a whole number
    d.setString(QStringLiteral(" 42 "), k);
    QCOMPARE(d.integerForKey(k), 42);
    d.setDouble(2.9, k);
    QVERIFY(d.integerForKey(k) == 2 && d.boolForKey(k));
    d.setBool(true, k);
    QCOMPARE(d.integerForKey(k), 1);
    d.setObject(QVariant(), k);
    QVERIFY(!d.contains(k));

    // A damaged line is skipped, the rest of the file still reads.
    const QString file = dir.path() + QStringLiteral("/broken.conf");
    QVERIFY(writeFile(file, "garbage\nA=int:notanumber\nB=int:5\nC=unknown:1\n=bool:true\nD=bool:true\n"));
    Defaults broken(file);
    QVERIFY(!broken.contains(QStringLiteral("A")) && !broken.contains(QStringLiteral("C")));
    QCOMPARE(broken.objectForKey(QStringLiteral("B")), QVariant(qlonglong(5)));
    QCOMPARE(broken.objectForKey(QStringLiteral("D")), QVariant(true));
}

void TestPlatform::delayedCallsRunAndCancelPerTarget()
{
    QObject a, b;
    int ranA = 0, ranB = 0;
    DelayedCall::perform(&a, 10, [&] { ++ranA; });
    DelayedCall::perform(&a, 10, [&] { ++ranA; });
    DelayedCall::perform(&b, 10, [&] { ++ranB; });
    QCOMPARE(DelayedCall::pendingCount(&a), 2);
    DelayedCall::cancelAll(&a);
    QTRY_COMPARE(ranB, 1);
    QTest::qWait(50);
    QVERIFY(ranA == 0 && DelayedCall::pendingCount(&a) == 0);

    // A call that re-arms itself, as the polls do, keeps exactly one pending.
    int passes = 0;
    std::function<void()> poll = [&] {
        ++passes;
        DelayedCall::perform(&a, 5, poll);
    };
    DelayedCall::perform(&a, 5, poll);
    QTRY_VERIFY(passes >= 3);
    QCOMPARE(DelayedCall::pendingCount(&a), 1);
    DelayedCall::cancelAll(&a);
    const int stopped = passes;
    bool ran = false;
    // A destroyed target takes its pending calls with it.
    DelayedCall::perform(std::make_unique<QObject>().get(), 5, [&] { ran = true; });
    QTest::qWait(40);
    QVERIFY(passes == stopped && !ran);
}

void TestPlatform::resourcesAndInfo()
{
    QTemporaryDir dir;
    QVERIFY(writeFile(dir.filePath(QStringLiteral("Info.ini")), "CFBundleVersion=240\nCFBundleShortVersionString=2.4\n"));
    QVERIFY(writeFile(dir.filePath(QStringLiteral("QuillonServer.jar")), QByteArray()));
    Resources::setFolder(dir.path());
    QCOMPARE(Resources::pathForResource(QStringLiteral("QuillonServer"), QStringLiteral("jar")),
             dir.filePath(QStringLiteral("QuillonServer.jar")));
    QCOMPARE(Resources::pathForResource(QStringLiteral("jna"), QStringLiteral("jar")), QString());
    QCOMPARE(Info::value(QStringLiteral("CFBundleShortVersionString")), QStringLiteral("2.4"));
    QCOMPARE(Info::value(QStringLiteral("maxThumbnailWidth")), QString());
    Resources::setFolder(QString());
    // The build tree's own folder holds the generated Info values.
    QVERIFY(!Info::value(QStringLiteral("CFBundleVersion")).isEmpty());
    QVERIFY(Resources::temporaryFolder().endsWith(QLatin1Char('/')));
}

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    if (argc == 3 && qstrcmp(argv[1], "--child") == 0)
        return childMain(QString::fromLatin1(argv[2]));
    TestPlatform test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_platform.moc"
