#include "preferences/StartAtLogin.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString kProgram = QStringLiteral("/opt/quillon/bin/quillon-server");

// Each file's modification time and content, and with `withFolder` the
// folder's own time, so that any write, new file or removal shows.
QMap<QString, QString> folderState(const QString &folder, bool withFolder = true)
{
    QMap<QString, QString> state;
    QFileInfoList infos = QDir(folder).entryInfoList(QDir::Files | QDir::Hidden | QDir::System);
    if (withFolder)
        infos << QFileInfo(folder);
    for (const QFileInfo &info : infos) {
        QFile file(info.filePath());
        const QByteArray bytes = info.isFile() && file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
        state[info.fileName()] = QString::number(info.lastModified().toMSecsSinceEpoch()) + QString::fromUtf8(bytes);
    }
    return state;
}

// Pushes the times of the folder and its files into the past, so that a
// write within the same clock tick still shows as a change.
void ageFolder(const QString &folder)
{
    const struct timespec times[2] = {{1000000000, 0}, {1000000000, 0}};
    const QDir dir(folder);
    const QStringList names = dir.entryList(QDir::Files) << QStringLiteral(".");
    for (const QString &name : names)
        ::utimensat(AT_FDCWD, QFile::encodeName(dir.filePath(name)).constData(), times, 0);
}

QByteArray entryFor(const QString &exec, const char *extra = "")
{
    return "[Desktop Entry]\nType=Application\nName=Other\nExec=" + exec.toUtf8() + "\n" + extra;
}

}

class TestStartAtLogin : public QObject
{
    Q_OBJECT

    QTemporaryDir *m_dir = nullptr;
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
        m_dir = new QTemporaryDir;
        m_folder = m_dir->filePath(QStringLiteral("autostart"));
        QVERIFY(m_dir->isValid());
        StartAtLogin::setAutostartFolder(m_folder);
        StartAtLogin::setProgramPath(kProgram);
    }

    void cleanup()
    {
        StartAtLogin::setAutostartFolder(QString());
        StartAtLogin::setProgramPath(QString());
        QFile::setPermissions(m_folder, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        delete m_dir;
    }

    void defaultFolderAndProgram()
    {
        StartAtLogin::setAutostartFolder(QString());
        StartAtLogin::setProgramPath(QString());
        qputenv("XDG_CONFIG_HOME", "/somewhere/config");
        QCOMPARE(StartAtLogin::autostartFolder(), QStringLiteral("/somewhere/config/autostart"));
        qputenv("XDG_CONFIG_HOME", "relative/ignored");
        QCOMPARE(StartAtLogin::autostartFolder(), QDir::homePath() + QStringLiteral("/.config/autostart"));
        qunsetenv("XDG_CONFIG_HOME");
        QCOMPARE(StartAtLogin::autostartFolder(), QDir::homePath() + QStringLiteral("/.config/autostart"));
        QCOMPARE(StartAtLogin::programPath(), QCoreApplication::applicationFilePath());
    }

    void missingFolder()
    {
        QVERIFY(!StartAtLogin::startOnLogin());
        QVERIFY(StartAtLogin::setStartOnLogin(false)); // nothing to remove
        QVERIFY(!StartAtLogin::setStartOnLogin(true)); // nowhere to add: fails
        QVERIFY(!QFileInfo::exists(m_folder));

        // A plain file where the folder should be is no list either.
        QFile file(m_folder);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(entryFor(kProgram));
        file.close();
        QVERIFY(!StartAtLogin::startOnLogin());
        QVERIFY(!StartAtLogin::setStartOnLogin(true));
        QCOMPARE(file.size(), entryFor(kProgram).size());
    }

    void addsOneEntryAndLeavesOthersAlone()
    {
        QVERIFY(QDir().mkpath(m_folder));
        write("a-editor.desktop", entryFor("/usr/bin/editor --minimized %U", "Hidden=true\n"));
        write("notes.txt", "not an entry\n");
        write("quillon-server.desktop", entryFor("/usr/bin/quillon-server")); // another install
        // Paths that differ from this program's only by case, a trailing
        // "/", dots or being relative are other programs.
        write("upper.desktop", entryFor("/opt/Quillon/bin/quillon-server"));
        write("slash.desktop", entryFor(kProgram + QLatin1Char('/')));
        write("dots.desktop", entryFor("/opt/quillon/bin/../bin/quillon-server"));
        write("relative.desktop", entryFor("quillon-server"));
        write("z-chat.desktop", entryFor("\"/usr/lib/chat app/chat\" --tray"));
        ageFolder(m_folder);
        const auto before = folderState(m_folder);
        const auto others = folderState(m_folder, false);

        QVERIFY(!StartAtLogin::startOnLogin());
        QVERIFY(StartAtLogin::setStartOnLogin(false)); // already off: nothing written
        QCOMPARE(folderState(m_folder), before);

        QVERIFY(StartAtLogin::setStartOnLogin(true));
        QVERIFY(StartAtLogin::startOnLogin());
        auto after = folderState(m_folder, false);
        const QString added = QStringLiteral("quillon-server-2.desktop");
        QVERIFY(after.remove(added));
        QCOMPARE(after, others);
        QFile file(QDir(m_folder).filePath(added));
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QString text = QString::fromUtf8(file.readAll());
        QCOMPARE(StartAtLogin::entries(m_folder).size(), 8); // the text file is none
        QVERIFY(text.startsWith(QStringLiteral("[Desktop Entry]\nType=Application\n")));
        QVERIFY(text.contains(QStringLiteral("\nHidden=false\n")));
        QVERIFY(text.contains(QStringLiteral("\nExec=") + kProgram + QLatin1Char('\n')));

        // Enabling again writes nothing, not even the same bytes.
        ageFolder(m_folder);
        const auto enabled = folderState(m_folder);
        QVERIFY(StartAtLogin::setStartOnLogin(true));
        QCOMPARE(folderState(m_folder), enabled);

        // Disabling removes exactly the added entry.
        QVERIFY(StartAtLogin::setStartOnLogin(false));
        QVERIFY(!StartAtLogin::startOnLogin());
        QCOMPARE(folderState(m_folder, false), others);
    }

    void duplicateEntries()
    {
        QVERIFY(QDir().mkpath(m_folder));
        // Two equal entries: one removal takes both.
        write("one.desktop", entryFor(kProgram));
        write("two.desktop", entryFor(kProgram, "Hidden=false\nName=Renamed\n"));
        write("other.desktop", entryFor("/usr/bin/other"));
        QVERIFY(StartAtLogin::setStartOnLogin(false));
        QCOMPARE(files(), QStringList{"other.desktop"});

        // Entries that differ in Hidden: only those equal to the last match go,
        // and the program still starts at login through the others.
        write("a.desktop", entryFor(kProgram, "Hidden=true\n"));
        write("b.desktop", entryFor(kProgram));
        write("c.desktop", entryFor(kProgram, "Hidden=true\n"));
        write("d.desktop", entryFor(kProgram, "Hidden=false\n"));
        QVERIFY(StartAtLogin::setStartOnLogin(false)); // last match is d: not hidden
        QCOMPARE(files(), (QStringList{"a.desktop", "c.desktop", "other.desktop"}));
        QVERIFY(StartAtLogin::startOnLogin());
        QVERIFY(StartAtLogin::setStartOnLogin(true)); // a match exists: nothing added
        QCOMPARE(files().size(), 3);
        QVERIFY(StartAtLogin::setStartOnLogin(false));
        QCOMPARE(files(), QStringList{"other.desktop"});
    }

    // Defined below the class: moc cannot read raw string literals.
    void execParsing_data();
    void execParsing()
    {
        QFETCH(QString, exec);
        QFETCH(QString, program);
        QCOMPARE(StartAtLogin::programFromExec(exec), program);
    }

    void execRoundTrip();

    void brokenFilesAreNotEntries()
    {
        QVERIFY(QDir().mkpath(m_folder));
        const QByteArray exec = "Exec=" + kProgram.toUtf8() + "\n";
        write("1-empty.desktop", "");
        write("2-nogroup.desktop", exec);
        write("3-othergroup.desktop", "[Desktop Action Play]\n" + exec + "[Desktop Entry]\nName=X\n");
        write("4-localised.desktop", "[Desktop Entry]\nExec[de]=" + kProgram.toUtf8() + "\n");
        write("5-binary.desktop", QByteArray("\x00\xff\xfe[Desktop Entry\n=\n==\n\x01", 16));
        write("6-first-exec-wins.desktop", "[Desktop Entry]\nExec=/usr/bin/first\n" + exec);
        write("7-unterminated.desktop", "[Desktop Entry]\nExec=\"" + kProgram.toUtf8() + "\n");
        QVERIFY(QDir(m_folder).mkdir(QStringLiteral("8-folder.desktop")));
        write("9-huge.desktop", "[Desktop Entry]\nName=" + QByteArray(400 * 1024, 'x') + "\n" + exec);
        QVERIFY(!StartAtLogin::startOnLogin());
        QCOMPARE(StartAtLogin::entries(m_folder).size(), 8);

        // Blanks around "=", Windows line ends and comments are fine.
        write("ok.desktop", "# comment\r\n[Desktop Entry]\r\nExec = " + kProgram.toUtf8() + " %U\r\n");
        QVERIFY(StartAtLogin::startOnLogin());
    }

    void unwritableFolderFails()
    {
        if (::geteuid() == 0)
            QSKIP("permissions do not bind root");
        QVERIFY(QDir().mkpath(m_folder));
        QVERIFY(QFile::setPermissions(m_folder, QFileDevice::ReadOwner | QFileDevice::ExeOwner));
        QVERIFY(!StartAtLogin::setStartOnLogin(true));
        QVERIFY(files().isEmpty());
    }
};

void TestStartAtLogin::execParsing_data()
{
    QTest::addColumn<QString>("exec");
    QTest::addColumn<QString>("program");
    QTest::newRow("arguments") << "  /usr/bin/app --tray -x" << "/usr/bin/app";
    QTest::newRow("double quotes") << R"("/my apps/app" --x)" << "/my apps/app";
    QTest::newRow("quote escapes") << R"("/a\\"b\\$c\\`d\\\\e")" << R"(/a"b$c`d\e)";
    QTest::newRow("single quotes") << "'/my apps/app' -x" << "/my apps/app";
    QTest::newRow("backslash blank") << R"(/my\ apps/app)" << "/my apps/app";
    // \s becomes a blank before the line is split, so it separates too.
    QTest::newRow("string escape blank") << R"(/my\sapps/app)" << "/my";
    QTest::newRow("quoted string escape") << R"("/my\sapps/app")" << "/my apps/app";
    QTest::newRow("field codes") << "%U /usr/bin/100%%app %f" << "/usr/bin/100%app";
    QTest::newRow("env wrapper") << "env LANG=C /usr/bin/app" << "env";
    QTest::newRow("only field codes") << "%F %u" << "";
    QTest::newRow("unterminated double") << R"("/usr/bin/app --x)" << "";
    QTest::newRow("unterminated single") << "'/usr/bin/app" << "";
    QTest::newRow("trailing backslash") << R"(/usr/bin/app\)" << R"(/usr/bin/app\)";
}

void TestStartAtLogin::execRoundTrip()
{
    QCOMPARE(StartAtLogin::execValueFor("/my apps/x"), QStringLiteral("\"/my apps/x\""));
    QCOMPARE(StartAtLogin::execValueFor(R"(/a\b)"), QStringLiteral(R"("/a\\\\b")"));
    QVERIFY(QDir().mkpath(m_folder));
    for (const char *utf8 : {"/home/me/My Apps/quillon server", R"(/odd/"quoted"/back\slash/$HOME/`tick`)",
                             "/percent/100%/%U", "/tab\there/new\nline", "/home/zoë/🎬/quillon",
                             "/semi;colon/amp&/(paren)/#hash/'single'"}) {
        const QString path = QString::fromUtf8(utf8);
        const QString exec = StartAtLogin::execValueFor(path);
        QVERIFY2(!exec.contains(QLatin1Char('\n')), qPrintable(exec));
        QCOMPARE(StartAtLogin::programFromExec(exec), path);

        // And through a real file.
        StartAtLogin::setProgramPath(path);
        QVERIFY(StartAtLogin::setStartOnLogin(true));
        QVERIFY2(StartAtLogin::startOnLogin(), qPrintable(exec));
        QVERIFY(StartAtLogin::setStartOnLogin(false));
        QVERIFY(files().isEmpty());
    }
}

QTEST_GUILESS_MAIN(TestStartAtLogin)
#include "tst_startatlogin.moc"
