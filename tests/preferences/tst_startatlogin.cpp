#include "preferences/StartAtLogin.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString kProgram = QStringLiteral("/opt/quillon/bin/quillon-server");

// What a file looks like on disk: content, inode and modification time.
struct Snapshot {
    QByteArray bytes;
    ino_t inode = 0;
    qint64 mtimeNs = 0;
    bool operator==(const Snapshot &o) const
    {
        return bytes == o.bytes && inode == o.inode && mtimeNs == o.mtimeNs;
    }
};

Snapshot snapshot(const QString &path)
{
    Snapshot s;
    QFile file(path);
    if (file.open(QIODevice::ReadOnly))
        s.bytes = file.readAll();
    struct stat st;
    if (::stat(QFile::encodeName(path).constData(), &st) == 0) {
        s.inode = st.st_ino;
        s.mtimeNs = qint64(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
    }
    return s;
}

// Every file of the folder and the folder itself, so that any write, new
// file or removal shows.
QMap<QString, Snapshot> folderState(const QString &folder)
{
    QMap<QString, Snapshot> state;
    state.insert(QStringLiteral("."), snapshot(folder));
    state[QStringLiteral(".")].bytes.clear();
    const QStringList names = QDir(folder).entryList(QDir::Files | QDir::Hidden | QDir::System);
    for (const QString &name : names)
        state.insert(name, snapshot(QDir(folder).filePath(name)));
    return state;
}

// Pushes the times of the folder and its files into the past, so that a
// write within the same clock tick still shows as a change.
void ageFolder(const QString &folder)
{
    const QDateTime past = QDateTime::fromSecsSinceEpoch(1000000000);
    const QStringList names = QDir(folder).entryList(QDir::Files);
    for (const QString &name : names) {
        QFile file(QDir(folder).filePath(name));
        file.open(QIODevice::ReadOnly);
        file.setFileTime(past, QFileDevice::FileModificationTime);
    }
    const QByteArray path = QFile::encodeName(folder);
    struct timespec times[2] = {{1000000000, 0}, {1000000000, 0}};
    ::utimensat(AT_FDCWD, path.constData(), times, 0);
}

void writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(bytes);
}

QByteArray entryFor(const QString &exec, const char *extra = "")
{
    return "[Desktop Entry]\nType=Application\nName=Other\nExec=" + exec.toUtf8() + "\n" + extra;
}

}

class TestStartAtLogin : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void defaultFolderFollowsXdgConfigHome();
    void missingFolder();
    void addsOneEntryAndLeavesOthersAlone();
    void duplicateEntries();
    void pathMustMatchExactly();
    void execParsing_data();
    void execParsing();
    void execRoundTrip();
    void brokenFilesAreNotEntries();
    void unwritableFolderFails();

private:
    QTemporaryDir *m_dir = nullptr;
    QString m_folder;
};

void TestStartAtLogin::init()
{
    m_dir = new QTemporaryDir;
    QVERIFY(m_dir->isValid());
    m_folder = m_dir->filePath(QStringLiteral("autostart"));
    StartAtLogin::setAutostartFolder(m_folder);
    StartAtLogin::setProgramPath(kProgram);
}

void TestStartAtLogin::cleanup()
{
    StartAtLogin::setAutostartFolder(QString());
    StartAtLogin::setProgramPath(QString());
    QFile::setPermissions(m_folder, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    delete m_dir;
    m_dir = nullptr;
}

void TestStartAtLogin::defaultFolderFollowsXdgConfigHome()
{
    StartAtLogin::setAutostartFolder(QString());
    const QByteArray saved = qgetenv("XDG_CONFIG_HOME");
    qputenv("XDG_CONFIG_HOME", "/somewhere/config");
    QCOMPARE(StartAtLogin::autostartFolder(), QStringLiteral("/somewhere/config/autostart"));
    qputenv("XDG_CONFIG_HOME", "relative/ignored");
    QCOMPARE(StartAtLogin::autostartFolder(), QDir::homePath() + QStringLiteral("/.config/autostart"));
    qunsetenv("XDG_CONFIG_HOME");
    QCOMPARE(StartAtLogin::autostartFolder(), QDir::homePath() + QStringLiteral("/.config/autostart"));
    if (!saved.isNull())
        qputenv("XDG_CONFIG_HOME", saved);

    StartAtLogin::setProgramPath(QString());
    QCOMPARE(StartAtLogin::programPath(), QCoreApplication::applicationFilePath());
}

void TestStartAtLogin::missingFolder()
{
    QVERIFY(!QFileInfo::exists(m_folder));
    QVERIFY(!StartAtLogin::startOnLogin());
    QVERIFY(StartAtLogin::setStartOnLogin(false)); // nothing to remove
    QVERIFY(!QFileInfo::exists(m_folder));
    QVERIFY(!StartAtLogin::setStartOnLogin(true)); // nowhere to add: fails
    QVERIFY(!QFileInfo::exists(m_folder));
    QVERIFY(!StartAtLogin::startOnLogin());

    // A plain file where the folder should be is no list either.
    writeFile(m_folder, entryFor(kProgram));
    QVERIFY(!StartAtLogin::startOnLogin());
    QVERIFY(!StartAtLogin::setStartOnLogin(true));
    QCOMPARE(snapshot(m_folder).bytes, entryFor(kProgram));
}

void TestStartAtLogin::addsOneEntryAndLeavesOthersAlone()
{
    QVERIFY(QDir().mkpath(m_folder));
    const QDir dir(m_folder);
    writeFile(dir.filePath("a-editor.desktop"), entryFor("/usr/bin/editor --minimized %U", "Hidden=true\n"));
    writeFile(dir.filePath("z-chat.desktop"), entryFor("\"/usr/lib/chat app/chat\" --tray"));
    writeFile(dir.filePath("notes.txt"), "not an entry\n");
    writeFile(dir.filePath("quillon-server.desktop"), entryFor("/usr/bin/quillon-server")); // another install
    ageFolder(m_folder);
    const QMap<QString, Snapshot> before = folderState(m_folder);

    QVERIFY(!StartAtLogin::startOnLogin());
    QVERIFY(StartAtLogin::setStartOnLogin(false)); // already off: nothing written
    QCOMPARE(folderState(m_folder), before);

    QVERIFY(StartAtLogin::setStartOnLogin(true));
    QVERIFY(StartAtLogin::startOnLogin());
    QMap<QString, Snapshot> after = folderState(m_folder);
    QCOMPARE(after.size(), before.size() + 1);
    for (auto it = before.cbegin(); it != before.cend(); ++it) {
        if (it.key() != QLatin1String("."))
            QVERIFY2(after.value(it.key()) == it.value(), qPrintable(it.key()));
    }
    const QString added = QStringLiteral("quillon-server-2.desktop");
    QVERIFY(after.contains(added));
    const QString text = QString::fromUtf8(after.value(added).bytes);
    QVERIFY(text.startsWith(QStringLiteral("[Desktop Entry]\n")));
    for (const char *line : {"Type=Application\n", "Name=Quillon Server\n", "Hidden=false\n",
                             "X-GNOME-Autostart-enabled=true\n"})
        QVERIFY2(text.contains(QLatin1String(line)), line);
    QVERIFY(text.contains(QStringLiteral("\nExec=") + kProgram + QLatin1Char('\n')));

    const QList<StartAtLogin::Entry> entries = StartAtLogin::entries(m_folder);
    QCOMPARE(entries.size(), 4);
    QCOMPARE(entries.at(0).fileName, QStringLiteral("a-editor.desktop"));
    QCOMPARE(entries.at(0).path, QStringLiteral("/usr/bin/editor"));
    QVERIFY(entries.at(0).hidden);
    QCOMPARE(entries.at(1).fileName, added);
    QCOMPARE(entries.at(1).path, kProgram);
    QVERIFY(!entries.at(1).hidden);
    QCOMPARE(entries.at(3).path, QStringLiteral("/usr/lib/chat app/chat"));

    // Enabling again writes nothing, not even the same bytes.
    ageFolder(m_folder);
    after = folderState(m_folder);
    QVERIFY(StartAtLogin::setStartOnLogin(true));
    QCOMPARE(folderState(m_folder), after);

    // Disabling removes exactly the added entry.
    QVERIFY(StartAtLogin::setStartOnLogin(false));
    QVERIFY(!StartAtLogin::startOnLogin());
    QMap<QString, Snapshot> removed = folderState(m_folder);
    QVERIFY(!removed.contains(added));
    QCOMPARE(removed.size(), before.size());
    for (auto it = before.cbegin(); it != before.cend(); ++it) {
        if (it.key() != QLatin1String("."))
            QVERIFY2(removed.value(it.key()) == it.value(), qPrintable(it.key()));
    }
}

void TestStartAtLogin::duplicateEntries()
{
    QVERIFY(QDir().mkpath(m_folder));
    const QDir dir(m_folder);
    // Two equal entries: one removal takes both.
    writeFile(dir.filePath("one.desktop"), entryFor(kProgram));
    writeFile(dir.filePath("two.desktop"), entryFor(kProgram, "Hidden=false\nName=Renamed\n"));
    writeFile(dir.filePath("other.desktop"), entryFor("/usr/bin/other"));
    QVERIFY(StartAtLogin::startOnLogin());
    QVERIFY(StartAtLogin::setStartOnLogin(false));
    QVERIFY(!StartAtLogin::startOnLogin());
    QCOMPARE(dir.entryList(QDir::Files), QStringList{"other.desktop"});

    // Entries that differ in Hidden: only those equal to the last match go,
    // and the program still starts at login through the other.
    writeFile(dir.filePath("a.desktop"), entryFor(kProgram, "Hidden=true\n"));
    writeFile(dir.filePath("b.desktop"), entryFor(kProgram));
    writeFile(dir.filePath("c.desktop"), entryFor(kProgram, "Hidden=true\n"));
    writeFile(dir.filePath("d.desktop"), entryFor(kProgram, "Hidden=false\n"));
    QVERIFY(StartAtLogin::setStartOnLogin(false)); // last match is d: not hidden
    QCOMPARE(dir.entryList(QDir::Files), (QStringList{"a.desktop", "c.desktop", "other.desktop"}));
    QVERIFY(StartAtLogin::startOnLogin());
    QVERIFY(StartAtLogin::setStartOnLogin(true)); // a match exists: nothing added
    QCOMPARE(dir.entryList(QDir::Files), (QStringList{"a.desktop", "c.desktop", "other.desktop"}));
    QVERIFY(StartAtLogin::setStartOnLogin(false));
    QCOMPARE(dir.entryList(QDir::Files), QStringList{"other.desktop"});
    QVERIFY(!StartAtLogin::startOnLogin());
}

void TestStartAtLogin::pathMustMatchExactly()
{
    QVERIFY(QDir().mkpath(m_folder));
    const QDir dir(m_folder);
    writeFile(dir.filePath("upper.desktop"), entryFor("/opt/Quillon/bin/quillon-server"));
    writeFile(dir.filePath("slash.desktop"), entryFor(kProgram + QLatin1Char('/')));
    writeFile(dir.filePath("dots.desktop"), entryFor("/opt/quillon/bin/../bin/quillon-server"));
    writeFile(dir.filePath("relative.desktop"), entryFor("quillon-server"));
    QVERIFY(!StartAtLogin::startOnLogin());
    ageFolder(m_folder);
    const QMap<QString, Snapshot> before = folderState(m_folder);
    QVERIFY(StartAtLogin::setStartOnLogin(false));
    QCOMPARE(folderState(m_folder), before);

    QVERIFY(StartAtLogin::setStartOnLogin(true));
    QVERIFY(StartAtLogin::startOnLogin());
    QCOMPARE(QDir(m_folder).entryList(QDir::Files).size(), 5);
    QVERIFY(StartAtLogin::setStartOnLogin(false));
    const QMap<QString, Snapshot> after = folderState(m_folder);
    for (auto it = before.cbegin(); it != before.cend(); ++it) {
        if (it.key() != QLatin1String("."))
            QVERIFY2(after.value(it.key()) == it.value(), qPrintable(it.key()));
    }
    QCOMPARE(after.size(), before.size());
}

void TestStartAtLogin::execParsing_data()
{
    QTest::addColumn<QString>("exec");
    QTest::addColumn<QString>("program");
    QTest::newRow("plain") << "/usr/bin/app" << "/usr/bin/app";
    QTest::newRow("arguments") << "/usr/bin/app --tray -x" << "/usr/bin/app";
    QTest::newRow("leading blanks") << "   /usr/bin/app" << "/usr/bin/app";
    QTest::newRow("double quotes") << R"("/my apps/app" --x)" << "/my apps/app";
    QTest::newRow("quote escapes") << R"("/a\\"b\\$c\\`d\\\\e")" << R"(/a"b$c`d\e)";
    QTest::newRow("sloppy escapes") << R"("/a\"b")" << R"(/a"b)";
    QTest::newRow("single quotes") << "'/my apps/app' -x" << "/my apps/app";
    QTest::newRow("backslash blank") << R"(/my\ apps/app)" << "/my apps/app";
    // \s becomes a blank before the line is split, so it separates too.
    QTest::newRow("string escape blank") << R"(/my\sapps/app)" << "/my";
    QTest::newRow("quoted string escape") << R"("/my\sapps/app")" << "/my apps/app";
    QTest::newRow("field code first") << "%U /usr/bin/app" << "/usr/bin/app";
    QTest::newRow("field codes after") << "/usr/bin/app %f %i %c" << "/usr/bin/app";
    QTest::newRow("percent escape") << "/usr/bin/100%%app" << "/usr/bin/100%app";
    QTest::newRow("env wrapper") << "env LANG=C /usr/bin/app" << "env";
    QTest::newRow("empty") << "" << "";
    QTest::newRow("only field codes") << "%F %u" << "";
    QTest::newRow("unterminated double") << R"("/usr/bin/app --x)" << "";
    QTest::newRow("unterminated single") << "'/usr/bin/app" << "";
    QTest::newRow("trailing backslash") << R"(/usr/bin/app\)" << R"(/usr/bin/app\)";
    QTest::newRow("unicode") << "/home/zoë/Programme/quillon" << "/home/zoë/Programme/quillon";
}

void TestStartAtLogin::execParsing()
{
    QFETCH(QString, exec);
    QFETCH(QString, program);
    QCOMPARE(StartAtLogin::programFromExec(exec), program);
}

void TestStartAtLogin::execRoundTrip()
{
    const QStringList paths{
        "/usr/bin/quillon-server",
        "/home/me/My Apps/quillon server",
        R"(/odd/"quoted"/back\slash/$HOME/`tick`)",
        "/percent/100%/%U",
        "/tab\there/new\nline",
        "/home/zoë/🎬/quillon",
        "/semi;colon/amp&/(paren)/#hash/'single'",
    };
    QVERIFY(QDir().mkpath(m_folder));
    for (const QString &path : paths) {
        const QString exec = StartAtLogin::execValueFor(path);
        QVERIFY2(!exec.contains(QLatin1Char('\n')), qPrintable(exec));
        QCOMPARE(StartAtLogin::programFromExec(exec), path);

        // And through a real file.
        StartAtLogin::setProgramPath(path);
        QVERIFY(StartAtLogin::setStartOnLogin(true));
        QVERIFY2(StartAtLogin::startOnLogin(), qPrintable(exec));
        QVERIFY(StartAtLogin::setStartOnLogin(false));
        QVERIFY(!StartAtLogin::startOnLogin());
        QVERIFY(QDir(m_folder).entryList(QDir::Files).isEmpty());
    }
    QCOMPARE(StartAtLogin::execValueFor("/usr/bin/quillon-server"), QStringLiteral("/usr/bin/quillon-server"));
    QCOMPARE(StartAtLogin::execValueFor("/my apps/x"), QStringLiteral("\"/my apps/x\""));
    QCOMPARE(StartAtLogin::execValueFor(R"(/a\b)"), QStringLiteral(R"("/a\\\\b")"));
}

void TestStartAtLogin::brokenFilesAreNotEntries()
{
    QVERIFY(QDir().mkpath(m_folder));
    const QDir dir(m_folder);
    writeFile(dir.filePath("1-empty.desktop"), "");
    writeFile(dir.filePath("2-nogroup.desktop"), "Exec=" + kProgram.toUtf8() + "\n");
    writeFile(dir.filePath("3-othergroup.desktop"),
              "[Desktop Action Play]\nExec=" + kProgram.toUtf8() + "\n[Desktop Entry]\nName=X\n");
    writeFile(dir.filePath("4-localised.desktop"), "[Desktop Entry]\nExec[de]=" + kProgram.toUtf8() + "\n");
    writeFile(dir.filePath("5-binary.desktop"), QByteArray("\x00\xff\xfe[Desktop Entry\n=\n==\n\x01", 16));
    writeFile(dir.filePath("6-first-exec-wins.desktop"),
              "[Desktop Entry]\nExec=/usr/bin/first\nExec=" + kProgram.toUtf8() + "\n");
    writeFile(dir.filePath("7-unterminated.desktop"), "[Desktop Entry]\nExec=\"" + kProgram.toUtf8() + "\n");
    QVERIFY(QDir().mkpath(dir.filePath("8-folder.desktop")));
    QByteArray huge = "[Desktop Entry]\nName=" + QByteArray(400 * 1024, 'x') + "\nExec=" + kProgram.toUtf8() + "\n";
    writeFile(dir.filePath("9-huge.desktop"), huge);
    QVERIFY(!StartAtLogin::startOnLogin());
    QCOMPARE(StartAtLogin::entries(m_folder).size(), 8);

    // Blanks around "=", Windows line ends and comments are fine.
    writeFile(dir.filePath("ok.desktop"), "# comment\r\n[Desktop Entry]\r\nExec = " + kProgram.toUtf8() + " %U\r\n");
    QVERIFY(StartAtLogin::startOnLogin());
}

void TestStartAtLogin::unwritableFolderFails()
{
    if (::geteuid() == 0)
        QSKIP("permissions do not bind root");
    QVERIFY(QDir().mkpath(m_folder));
    QVERIFY(QFile::setPermissions(m_folder, QFileDevice::ReadOwner | QFileDevice::ExeOwner));
    QVERIFY(!StartAtLogin::setStartOnLogin(true));
    QVERIFY(!StartAtLogin::startOnLogin());
    QVERIFY(QDir(m_folder).entryList(QDir::Files).isEmpty());
}

QTEST_GUILESS_MAIN(TestStartAtLogin)
#include "tst_startatlogin.moc"
