#include "preferences/StartAtLogin.h"

#include <QtTest>

#include <optional>

#include <fcntl.h>
#include <sys/stat.h>

namespace {

const QString kProgram = QStringLiteral("/opt/quillon/bin/quillon-server");

// The modification time and content of each file, and under "." the folder's
// own time (unless `files` alone), so that any write, new file or removal shows.
// `age` first pushes the times into the past: a write within the same clock tick still shows.
QMap<QString, QByteArray> folderState(const QString &folder, bool age = false, bool files = false)
{
    QMap<QString, QByteArray> state;
    const QDir dir(folder);
    for (const QString &name : dir.entryList(QDir::AllEntries | QDir::Hidden | (files ? QDir::NoDotAndDotDot : QDir::NoDotDot))) {
        QFile file(dir.filePath(name));
        const struct timespec past[2] = {{1000000000, 0}, {1000000000, 0}};
        if (age)
            ::utimensat(AT_FDCWD, QFile::encodeName(file.fileName()).constData(), past, 0);
        state[name] = QByteArray::number(QFileInfo(file).lastModified().toMSecsSinceEpoch())
            + (file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray());
    }
    return state;
}

QByteArray entryFor(const QString &exec, const char *extra = "")
{
    return "[Desktop Entry]\nType=Application\nName=Other\nExec=" + exec.toUtf8() + "\n" + extra;
}

}

class TestStartAtLogin : public QObject
{
    Q_OBJECT

    std::optional<QTemporaryDir> m_dir; // a fresh one for each test
    QString m_folder;
    QStringList files() const { return QDir(m_folder).entryList(QDir::Files); }
    void write(const QString &name, const QByteArray &bytes)
    {
        QFile file(QDir(m_folder).filePath(name));
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(bytes);
    }

private slots:
    void init()
    {
        m_dir.emplace();
        m_folder = m_dir->filePath(QStringLiteral("autostart"));
        QVERIFY(m_dir->isValid() && QDir().mkpath(m_folder));
        StartAtLogin::setAutostartFolder(m_folder);
        StartAtLogin::setProgramPath(kProgram);
    }

    void defaultFolderAndProgram()
    {
        StartAtLogin::setAutostartFolder(QString());
        StartAtLogin::setProgramPath(QString());
        qputenv("XDG_CONFIG_HOME", "/somewhere/config");
        QCOMPARE(StartAtLogin::autostartFolder(), QStringLiteral("/somewhere/config/autostart"));
        qputenv("XDG_CONFIG_HOME", "relative/ignored");
        QCOMPARE(StartAtLogin::autostartFolder(), QDir::homePath() + QStringLiteral("/.config/autostart"));
        QCOMPARE(StartAtLogin::programPath(), QCoreApplication::applicationFilePath());
    }

    // No list to write to: a missing folder, a file where it should be, a
    // folder nobody may write into (root included). Enabling fails.
    void noListToWriteTo()
    {
        QVERIFY(QDir(m_folder).removeRecursively());
        QVERIFY(!StartAtLogin::startOnLogin() && StartAtLogin::setStartOnLogin(false)); // nothing to remove
        QVERIFY(!StartAtLogin::setStartOnLogin(true) && !QFileInfo::exists(m_folder));
        write(QString(), entryFor(kProgram));
        QVERIFY(!StartAtLogin::startOnLogin() && !StartAtLogin::setStartOnLogin(true));
        QCOMPARE(QFileInfo(m_folder).size(), entryFor(kProgram).size());
        StartAtLogin::setAutostartFolder(QStringLiteral("/proc/self"));
        QVERIFY(!StartAtLogin::setStartOnLogin(true));
    }

    void addsOneEntryAndLeavesOthersAlone()
    {
        write("a-editor.desktop", entryFor("/usr/bin/editor --minimized %U", "Hidden=true\n"));
        write("notes.txt", "not an entry\n");
        write("quillon-server.desktop", entryFor("/usr/bin/quillon-server")); // another install
        // Paths that differ only by case, a trailing "/" or dots are other programs.
        write("upper.desktop", entryFor("/opt/Quillon/bin/quillon-server"));
        write("slash.desktop", entryFor(kProgram + QLatin1Char('/')));
        write("dots.desktop", entryFor("/opt/quillon/bin/../bin/quillon-server"));
        const auto before = folderState(m_folder, true);
        const auto others = folderState(m_folder, false, true);
        QVERIFY(!StartAtLogin::startOnLogin() && StartAtLogin::setStartOnLogin(false)); // already off: nothing written
        QCOMPARE(folderState(m_folder), before);
        QVERIFY(StartAtLogin::setStartOnLogin(true) && StartAtLogin::startOnLogin());
        QCOMPARE(StartAtLogin::entries(m_folder).size(), 6); // the text file is none
        auto after = folderState(m_folder, false, true);
        const QString text = QString::fromUtf8(after.take(QStringLiteral("quillon-server-2.desktop")));
        QCOMPARE(after, others);
        QVERIFY(text.contains(QStringLiteral("[Desktop Entry]\nType=Application\n")));
        QVERIFY(text.contains(QStringLiteral("\nHidden=false\n")));
        QVERIFY(text.contains(QStringLiteral("\nExec=") + kProgram + QLatin1Char('\n')));

        // Enabling again writes nothing, not even the same bytes; disabling
        // removes exactly the added entry.
        const auto enabled = folderState(m_folder, true);
        QVERIFY(StartAtLogin::setStartOnLogin(true));
        QCOMPARE(folderState(m_folder), enabled);
        QVERIFY(StartAtLogin::setStartOnLogin(false) && !StartAtLogin::startOnLogin());
        QCOMPARE(folderState(m_folder, false, true), others);
    }

    void duplicateEntries()
    {
        // Entries that differ in "launch hidden": one removal takes every entry
        // equal to the last match, whatever else differs, and the program
        // still starts at login through the others.
        write("other.desktop", entryFor("/usr/bin/other"));
        write("a.desktop", entryFor(kProgram, "X-Quillon-Hide=true\n"));
        write("b.desktop", entryFor(kProgram, "Name=Renamed\n"));
        write("c.desktop", entryFor(kProgram, "X-Quillon-Hide=true\n"));
        write("d.desktop", entryFor(kProgram, "X-Quillon-Hide=false\n"));
        QVERIFY(StartAtLogin::setStartOnLogin(false)); // last match is d: not hidden
        QCOMPARE(files(), (QStringList{"a.desktop", "c.desktop", "other.desktop"}));
        QVERIFY(StartAtLogin::startOnLogin());
        QVERIFY(StartAtLogin::setStartOnLogin(false));
        QCOMPARE(files(), QStringList{"other.desktop"});
    }

    // An entry the desktop skips (Hidden=true means deleted, or GNOME's own
    // switch is off) does not start the program; enabling turns it back on
    // in place, keeping the rest of its bytes.
    void disabledEntries_data()
    {
        QTest::addColumn<QByteArray>("switches");
        QTest::addColumn<QByteArray>("enabled");
        QTest::newRow("Hidden") << QByteArray("Hidden=true\nX-Quillon-Hide=true\n")
                                << QByteArray("Hidden=false\nX-Quillon-Hide=true\n");
        QTest::newRow("GNOME switch") << QByteArray("X-GNOME-Autostart-enabled = false\nHidden=false\n")
                                      << QByteArray("X-GNOME-Autostart-enabled=true\nHidden=false\n");
    }

    void disabledEntries()
    {
        QFETCH(QByteArray, switches);
        QFETCH(QByteArray, enabled);
        const QByteArray action = "[Desktop Action x]\nHidden=true\n";
        write("mine.desktop", entryFor(kProgram + " --tray", switches) + action);
        write("other.desktop", entryFor("/usr/bin/other", switches));
        const auto before = folderState(m_folder, true);
        QVERIFY(!StartAtLogin::startOnLogin() && StartAtLogin::setStartOnLogin(false)); // nothing effective to remove
        QCOMPARE(folderState(m_folder), before);
        QVERIFY(StartAtLogin::setStartOnLogin(true) && StartAtLogin::startOnLogin());
        QCOMPARE(files(), (QStringList{"mine.desktop", "other.desktop"}));
        QFile mine(QDir(m_folder).filePath("mine.desktop"));
        QVERIFY(mine.open(QIODevice::ReadOnly));
        QCOMPARE(mine.readAll(), entryFor(kProgram + " --tray", enabled) + action);
        QCOMPARE(folderState(m_folder)["other.desktop"], before["other.desktop"]);
    }

    void execValues(); // below the class: moc cannot read raw string literals

    void brokenFilesAreNotEntries()
    {
        const QByteArray exec = "Exec=" + kProgram.toUtf8() + "\n";
        write("1-nogroup.desktop", exec);
        write("2-othergroup.desktop", "[Desktop Action Play]\n" + exec + "[Desktop Entry]\nName=X\n");
        write("3-localised.desktop", "[Desktop Entry]\nExec[de]=" + kProgram.toUtf8() + "\n");
        write("4-binary.desktop", QByteArray("\x00\xff\xfe[Desktop Entry\n=\n==\n\x01", 16));
        write("5-first-exec-wins.desktop", "[Desktop Entry]\nExec=/usr/bin/first\n" + exec);
        QVERIFY(QDir(m_folder).mkdir(QStringLiteral("6-folder.desktop")));
        write("7-huge.desktop", "[Desktop Entry]\nName=" + QByteArray(400 * 1024, 'x') + "\n" + exec);
        QVERIFY(!StartAtLogin::startOnLogin());
        QCOMPARE(StartAtLogin::entries(m_folder).size(), 6);

        // Blanks around "=", Windows line ends and comments are fine.
        write("ok.desktop", "# comment\r\n[Desktop Entry]\r\nExec = " + kProgram.toUtf8() + " %U\r\n");
        QVERIFY(StartAtLogin::startOnLogin());
    }
};

void TestStartAtLogin::execValues()
{
    const QList<QPair<QString, QString>> programs = {
        {"  /usr/bin/app --tray -x", "/usr/bin/app"},
        {R"("/my apps/app" --x)", "/my apps/app"},
        {R"("/a\\"b\\$c\\`d\\\\e")", R"(/a"b$c`d\e)"},
        {"'/my apps/app' -x", "/my apps/app"},
        {R"(/my\ apps/app)", "/my apps/app"},
        {R"(/my\sapps/app)", "/my"}, // \s is a blank before the line is split
        {R"("/my\sapps/app")", "/my apps/app"},
        {"%U /usr/bin/100%%app %f", "/usr/bin/100%app"},
        {"%F %u", ""},
        {R"("/usr/bin/app --x)", ""},
        {R"(/usr/bin/app\)", R"(/usr/bin/app\)"},
    };
    for (const auto &[exec, program] : programs)
        QCOMPARE(StartAtLogin::programFromExec(exec), program);

    QCOMPARE(StartAtLogin::execValueFor("/my apps/x"), QStringLiteral("\"/my apps/x\""));
    QCOMPARE(StartAtLogin::execValueFor(R"(/a\b$c)"), QStringLiteral(R"("/a\\\\b\\$c")"));
    for (const char *utf8 : {"/home/zoë/My Apps/🎬/100%/%U/tab\there/new\nline",
                             R"(/odd/"quoted"/back\slash/$HOME/`tick`/semi;colon/amp&/(paren)/#hash/'single')"}) {
        const QString path = QString::fromUtf8(utf8);
        const QString exec = StartAtLogin::execValueFor(path);
        QVERIFY2(!exec.contains(QLatin1Char('\n')), qPrintable(exec));
        QCOMPARE(StartAtLogin::programFromExec(exec), path);
        StartAtLogin::setProgramPath(path); // and through a real file
        QVERIFY2(StartAtLogin::setStartOnLogin(true) && StartAtLogin::startOnLogin(), qPrintable(exec));
        QVERIFY(StartAtLogin::setStartOnLogin(false) && files().isEmpty());
    }
}

QTEST_GUILESS_MAIN(TestStartAtLogin)
#include "tst_startatlogin.moc"
