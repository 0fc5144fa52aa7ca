#include "platform/Defaults.h"
#include "platform/Resources.h"
#include "platform/SaveFailures.h"
#include "platform/SystemLog.h"

#include <QFile>
#include <QTemporaryFile>
#include <QTemporaryDir>
#include <QtTest>

#include <climits>
#include <csignal>
#include <sys/resource.h>
#include <unistd.h>

static bool writeFile(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

class TestPlatform : public QObject
{
    Q_OBJECT

private slots:
    void defaultsKeepTypesAndConvert();
    void defaultsKeepLinesTheyCannotRead();
    void defaultsReportFailedSaves();
    void resourcesAndInfo();
};

// The values come back from a copy of the file, so that no cache of this
// process answers; the program reads the standard file written by others in
// the install and web player tests.
void TestPlatform::defaultsKeepTypesAndConvert()
{
    QTemporaryDir dir;
    Defaults d(dir.filePath(QStringLiteral("written.conf")));
    d.setBool(true, QStringLiteral("aBool"));
    d.setBool(false, QStringLiteral("falseBool"));
    d.setInteger(-7, QStringLiteral("anInt"));
    d.setDouble(0.1, QStringLiteral("aNumber"));
    d.setString(QStringLiteral("multi\nline \\ = é 🎬"), QStringLiteral("aString"));
    d.setString(QStringLiteral("45631"), QStringLiteral("digits"));
    d.setObject(QByteArray("\x00\x01geo", 5), QStringLiteral("Window Frame=Main"));
    QVERIFY(QFile::copy(d.fileName(), dir.filePath(QStringLiteral("copy.conf"))));
    Defaults copy(dir.filePath(QStringLiteral("copy.conf")));
    QStringList read;
    for (const char *key : {"aBool", "falseBool", "anInt", "aNumber", "aString", "digits", "Window Frame=Main", "absent"}) {
        const QVariant v = copy.objectForKey(QString::fromLatin1(key));
        read << QStringLiteral("%1|%2|%3").arg(QLatin1String(key), QLatin1String(v.isValid() ? v.metaType().name() : "absent"),
                                               v.typeId() == QMetaType::QByteArray ? v.toByteArray().toHex() : v.toString());
    }
    QCOMPARE(read, QStringList({"aBool|bool|true", "falseBool|bool|false", "anInt|qlonglong|-7", "aNumber|double|0.1",
                                "aString|QString|multi\nline \\ = é 🎬", "digits|QString|45631",
                                "Window Frame=Main|QByteArray|000167656f", "absent|absent|"}));

    const QString k = QStringLiteral("k");
    QVERIFY(!d.contains(k) && !d.boolForKey(k) && d.integerForKey(k) == 0);
    d.setString(QStringLiteral("YES"), k);
    QVERIFY(d.boolForKey(k));
    // Text reads by its leading digits, as a text field's integer does.
    for (const auto &[text, number] : {std::pair{"12abc", 12LL}, {" -42 ", -42LL}, {"x1", 0LL},
                                       {"99999999999999999999", LLONG_MAX}}) {
        d.setString(QString::fromLatin1(text), k);
        QCOMPARE(d.integerForKey(k), number);
    }
    d.setDouble(2.9, k);
    QVERIFY(d.integerForKey(k) == 2 && d.boolForKey(k));
    d.setObject(QVariant(), k);
    QVERIFY(!d.contains(k));

    // The system log is one plain UTF-8 line on standard error.
    QTemporaryFile err;
    QVERIFY(err.open());
    const int standardError = ::dup(2);
    ::dup2(err.handle(), 2);
    systemLog(QStringLiteral("Stopping server é"));
    ::dup2(standardError, 2);
    ::close(standardError);
    QVERIFY(err.seek(0)); // the descriptor's offset moved with the write
    QCOMPARE(err.readAll(), QByteArray("Stopping server \xc3\xa9\n"));
}

static QStringList fileLines(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts)
                                       : QStringList();
}

void TestPlatform::defaultsKeepLinesTheyCannotRead()
{
    QTemporaryDir dir;
    const QString file = dir.filePath(QStringLiteral("store.conf"));
    const QStringList unread = {"# written by hand", "FutureKey=uuid:1", "Count=int:47006abc", "Ratio=float:0.5",
                                "Blob=bytes:!!!", "Flag=bool:maybe", "garbage", "=bool:true"};
    QVERIFY(writeFile(file, (unread.join(QLatin1Char('\n')) + QStringLiteral("\nPort=int:8080\n")).toUtf8()));
    Defaults d(file);
    for (const char *key : {"FutureKey", "Count", "Ratio", "Blob", "Flag"})
        QVERIFY2(!d.contains(QString::fromLatin1(key)), key);

    // Rewrites keep every line as it stands; removing a key we could not
    // read leaves its line, writing that key replaces it.
    d.setInteger(1, QStringLiteral("New"));
    d.removeObjectForKey(QStringLiteral("FutureKey"));
    d.setInteger(5, QStringLiteral("Count"));
    QCOMPARE(fileLines(file), QStringList({"# written by hand", "garbage", "=bool:true", "Blob=bytes:!!!", "Count=int:5",
                                           "Flag=bool:maybe", "FutureKey=uuid:1", "New=int:1", "Port=int:8080",
                                           "Ratio=float:0.5"}));
}

void TestPlatform::defaultsReportFailedSaves()
{
    // The log line, its once-per-file rule and the failure signal are
    // checked with the folder files and the tray's tool tip.
    QTemporaryDir dir;
    SystemLog::setSink([](const QString &) {});

    // A save cut short (here: files may not grow beyond 100 bytes) leaves
    // the previous file whole.
    Defaults limited(dir.filePath(QStringLiteral("limited.conf")));
    limited.setString(QStringLiteral("short"), QStringLiteral("s"));
    const QStringList before = fileLines(limited.fileName());
    ::signal(SIGXFSZ, SIG_IGN);
    rlimit saved, small;
    QCOMPARE(::getrlimit(RLIMIT_FSIZE, &saved), 0);
    small = {100, saved.rlim_max};
    QCOMPARE(::setrlimit(RLIMIT_FSIZE, &small), 0);
    limited.setString(QString(300, QLatin1Char('x')), QStringLiteral("long"));
    QCOMPARE(::setrlimit(RLIMIT_FSIZE, &saved), 0);
    QVERIFY(fileLines(limited.fileName()) == before && SaveFailures::instance().any());
    limited.removeObjectForKey(QStringLiteral("long"));
    QVERIFY(!SaveFailures::instance().any());

    // A file where the folder should be stops even root; the values are
    // kept for this run, and once the folder can be made the next change
    // saves them all.
    const QString blocker = dir.filePath(QStringLiteral("Quillon"));
    QVERIFY(writeFile(blocker, "not a folder"));
    Defaults d(blocker + QStringLiteral("/QuillonServer.conf"));
    d.setInteger(1, QStringLiteral("a"));
    d.setInteger(2, QStringLiteral("b"));
    QVERIFY(SaveFailures::instance().files().contains(d.fileName()) && d.integerForKey(QStringLiteral("b")) == 2);
    QVERIFY(QFile::remove(blocker));
    d.setInteger(3, QStringLiteral("c"));
    SystemLog::setSink({});
    QVERIFY(!SaveFailures::instance().any());
    QCOMPARE(fileLines(d.fileName()), QStringList({"a=int:1", "b=int:2", "c=int:3"}));
}

// Delayed calls are checked where they are used: the remote page's test
// button, the conversion tab's polls and the server's.

// Found files, Info values and the temporary folder are checked with the
// JVM's launch options; here the resources next to a build's executable.
void TestPlatform::resourcesAndInfo()
{
    QVERIFY(!Info::value(QStringLiteral("CFBundleVersion")).isEmpty());
}

QTEST_GUILESS_MAIN(TestPlatform)
#include "tst_platform.moc"
