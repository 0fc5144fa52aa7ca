#include "platform/DelayedCall.h"
#include "platform/Defaults.h"
#include "platform/Resources.h"
#include "platform/SystemLog.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

// A child run of this test executable writes or reads the store, so that
// values are seen to cross a process boundary.
static int childMain(const QString &mode)
{
    Defaults &d = Defaults::standard();
    if (mode == QLatin1String("write")) {
        d.setBool(true, QStringLiteral("aBool"));
        d.setBool(false, QStringLiteral("falseBool"));
        d.setInteger(45631, QStringLiteral("anInt"));
        d.setInteger(-7, QStringLiteral("negative"));
        d.setDouble(0.1, QStringLiteral("aNumber"));
        d.setString(QStringLiteral("multi\nline \\ = text é 🎬"), QStringLiteral("aString"));
        d.setString(QStringLiteral("45631"), QStringLiteral("digits"));
        d.setObject(QByteArray("\x00\x01geometry", 10), QStringLiteral("Window Frame=Main"));
        return 0;
    }
    QTextStream out(stdout);
    for (const char *key : {"aBool", "falseBool", "anInt", "negative", "aNumber", "aString", "digits", "Window Frame=Main", "absent"}) {
        const QVariant v = d.objectForKey(QString::fromLatin1(key));
        out << key << '|' << (v.isValid() ? v.metaType().name() : "absent") << '|'
            << (v.typeId() == QMetaType::QByteArray ? QString::fromLatin1(v.toByteArray().toHex()) : v.toString()).toUtf8().toHex() << '\n';
    }
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
    void systemLogSink();
};

void TestPlatform::defaultsKeepTypesAcrossProcesses()
{
    QTemporaryDir home;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.path());
    auto run = [&](const QString &mode) {
        QProcess p;
        p.setProcessEnvironment(env);
        p.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--child"), mode});
        [&] { QVERIFY(p.waitForFinished(20000)); }();
        return QString::fromUtf8(p.readAllStandardOutput());
    };
    run(QStringLiteral("write"));
    QVERIFY(QFile::exists(home.path() + QStringLiteral("/Quillon/QuillonServer.conf")));
    const QStringList lines = run(QStringLiteral("read")).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QMap<QString, QPair<QString, QString>> seen;
    for (const QString &line : lines) {
        const QStringList parts = line.split(QLatin1Char('|'));
        QCOMPARE(parts.size(), 3);
        seen.insert(parts[0], {parts[1], QString::fromUtf8(QByteArray::fromHex(parts[2].toLatin1()))});
    }
    QCOMPARE(seen.value("aBool"), qMakePair(QStringLiteral("bool"), QStringLiteral("true")));
    QCOMPARE(seen.value("falseBool"), qMakePair(QStringLiteral("bool"), QStringLiteral("false")));
    QCOMPARE(seen.value("anInt"), qMakePair(QStringLiteral("qlonglong"), QStringLiteral("45631")));
    QCOMPARE(seen.value("negative"), qMakePair(QStringLiteral("qlonglong"), QStringLiteral("-7")));
    QCOMPARE(seen.value("aNumber"), qMakePair(QStringLiteral("double"), QStringLiteral("0.1")));
    QCOMPARE(seen.value("aString"), qMakePair(QStringLiteral("QString"), QStringLiteral("multi\nline \\ = text é 🎬")));
    QCOMPARE(seen.value("digits"), qMakePair(QStringLiteral("QString"), QStringLiteral("45631")));
    QCOMPARE(seen.value("Window Frame=Main").first, QStringLiteral("QByteArray"));
    QCOMPARE(seen.value("Window Frame=Main").second, QStringLiteral("0001") + QString::fromLatin1(QByteArray("geometry").toHex()));
    QCOMPARE(seen.value("absent").first, QStringLiteral("absent"));
}

void TestPlatform::defaultsAbsentAndConversions()
{
    QTemporaryDir dir;
    Defaults d(dir.path() + QStringLiteral("/store.conf"));
    QVERIFY(!d.contains(QStringLiteral("k")));
    QVERIFY(!d.objectForKey(QStringLiteral("k")).isValid());
    QCOMPARE(d.boolForKey(QStringLiteral("k")), false);
    QCOMPARE(d.integerForKey(QStringLiteral("k")), 0);

    d.setString(QStringLiteral("YES"), QStringLiteral("k"));
    QVERIFY(d.boolForKey(QStringLiteral("k")));
    d.setString(QStringLiteral("12abc"), QStringLiteral("k"));
    QCOMPARE(d.integerForKey(QStringLiteral("k")), 0); // not a whole number
    d.setString(QStringLiteral(" 42 "), QStringLiteral("k"));
    QCOMPARE(d.integerForKey(QStringLiteral("k")), 42);
    d.setDouble(2.9, QStringLiteral("k"));
    QCOMPARE(d.integerForKey(QStringLiteral("k")), 2);
    QVERIFY(d.boolForKey(QStringLiteral("k")));
    d.setBool(true, QStringLiteral("k"));
    QCOMPARE(d.integerForKey(QStringLiteral("k")), 1);

    d.setObject(QVariant(), QStringLiteral("k"));
    QVERIFY(!d.contains(QStringLiteral("k")));

    // A damaged line is skipped, the rest of the file still reads.
    QFile f(dir.path() + QStringLiteral("/broken.conf"));
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write("garbage\nA=int:notanumber\nB=int:5\nC=unknown:1\n=bool:true\nD=bool:true\n");
    f.close();
    Defaults broken(f.fileName());
    QVERIFY(!broken.contains(QStringLiteral("A")));
    QCOMPARE(broken.objectForKey(QStringLiteral("B")), QVariant(qlonglong(5)));
    QVERIFY(!broken.contains(QStringLiteral("C")));
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
    QCOMPARE(DelayedCall::pendingCount(&a), 0);
    QTRY_COMPARE(ranB, 1);
    QTest::qWait(50);
    QCOMPARE(ranA, 0);

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
    QTest::qWait(40);
    QCOMPARE(passes, stopped);

    // A destroyed target takes its pending calls with it.
    bool ran = false;
    {
        QObject gone;
        DelayedCall::perform(&gone, 5, [&] { ran = true; });
    }
    QTest::qWait(30);
    QVERIFY(!ran);
}

void TestPlatform::resourcesAndInfo()
{
    QTemporaryDir dir;
    QFile info(dir.path() + QStringLiteral("/Info.ini"));
    QVERIFY(info.open(QIODevice::WriteOnly));
    info.write("CFBundleVersion=240\nCFBundleShortVersionString=2.4\n");
    info.close();
    QFile jar(dir.path() + QStringLiteral("/QuillonServer.jar"));
    QVERIFY(jar.open(QIODevice::WriteOnly));
    jar.close();

    Resources::setFolder(dir.path());
    QCOMPARE(Resources::pathForResource(QStringLiteral("QuillonServer"), QStringLiteral("jar")), jar.fileName());
    QCOMPARE(Resources::pathForResource(QStringLiteral("jna"), QStringLiteral("jar")), QString());
    QCOMPARE(Info::value(QStringLiteral("CFBundleShortVersionString")), QStringLiteral("2.4"));
    QCOMPARE(Info::value(QStringLiteral("maxThumbnailWidth")), QString());
    Resources::setFolder(QString());

    // The build tree's own folder holds the generated Info values.
    QVERIFY(!Info::value(QStringLiteral("CFBundleVersion")).isEmpty());
    QVERIFY(Resources::temporaryFolder().endsWith(QLatin1Char('/')));
}

void TestPlatform::systemLogSink()
{
    QStringList lines;
    SystemLog::setSink([&](const QString &line) { lines << line; });
    systemLog(QStringLiteral("Stopping server"));
    SystemLog::setSink({});
    QCOMPARE(lines, QStringList{QStringLiteral("Stopping server")});
}

int main(int argc, char *argv[])
{
    if (argc == 3 && qstrcmp(argv[1], "--child") == 0) {
        QCoreApplication app(argc, argv);
        return childMain(QString::fromLatin1(argv[2]));
    }
    QCoreApplication app(argc, argv);
    TestPlatform test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_platform.moc"
