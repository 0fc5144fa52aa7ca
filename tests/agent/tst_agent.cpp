#include "AgentOptions.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>
#include <unistd.h>

class TestAgent : public QObject
{
    Q_OBJECT

private slots:
    void parsesOptions_data()
    {
        QTest::addColumn<QByteArray>("options");
        QTest::addColumn<QString>("parsed"); // mode|folder|url|notes
        // Null, empty and malformed options go through a real JVM below.
        QTest::newRow("any order, empty URL") << QByteArray("class-load-url-prefix=;class-cache-folder=/c;mode=m") << "m|/c||";
        // The URL keeps ";" and "=" until a known key begins; a look-alike does not end it.
        QTest::newRow("URL separators") << QByteArray("class-cache-folder=/c;class-load-url-prefix=http://h/a;b=c?d=e;f;")
                                        << "|/c|http://h/a;b=c?d=e;f;|";
        QTest::newRow("key after URL") << QByteArray("class-load-url-prefix=http://h/x;modex=1;mode;y;mode=fetch-absent-classes")
                                       << "fetch-absent-classes||http://h/x;modex=1;mode;y|";
        QTest::newRow("URL starting with =") << QByteArray("class-load-url-prefix==http://h/=;;") << "||=http://h/=;;|";
        QTest::newRow("duplicates and unknown keys")
            << QByteArray("mode=a;mode=b;class-cache-folder=/1;class-cache-folder=/2;colour=red;class-load-url-prefix=u1;"
                          "class-load-url-prefix=u2")
            << "b|/2|u2|duplicate key mode;duplicate key class-cache-folder;unknown key colour;duplicate key class-load-url-prefix";
        // A long run of separators ends promptly.
        QTest::newRow("many separators") << QByteArray(200000, ';') + "class-cache-folder=/z" << "|/z||";
    }

    void parsesOptions()
    {
        QFETCH(QByteArray, options);
        QFETCH(QString, parsed);
        const miniagent::AgentOptions o = miniagent::parseAgentOptions(options.isNull() ? nullptr : options.constData());
        QStringList notes;
        for (const std::string &note : o.notes)
            notes << QString::fromStdString(note);
        QCOMPARE(QStringList({QString::fromStdString(o.mode), QString::fromStdString(o.classCacheFolder),
                              QString::fromStdString(o.classLoadUrlPrefix), notes.join(QLatin1Char(';'))})
                     .join(QLatin1Char('|')),
                 parsed);
    }

    void jvmStartsWhateverTheOptions_data()
    {
        // %1 is a fresh folder holding a plain file "file"; "cache" is where the cached class is put first.
        QTest::addColumn<QString>("agentOptions"); // null: no agent at all
        QTest::addColumn<QString>("cache");
        QTest::addColumn<QString>("output");
        QTest::addColumn<QString>("agentLine");
        const QString good = QStringLiteral("=mode=fetch-absent-classes;class-cache-folder=%1/cache/2.4/;"
                                            "class-load-url-prefix=http://127.0.0.1:9/JVM/v1/classes/");
        const QString missing = QStringLiteral("missing");
        QTest::newRow("no options") << QString("") << QString() << missing << "no options; no class-cache-folder; class cache off";
        QTest::newRow("empty") << QString("=") << QString() << missing << "no class-cache-folder; class cache off";
        QTest::newRow("garbage") << QString("==;;x;=y;mode=zz;\x01\x7f") << QString() << missing
                                 << "value without a key; no value for x; value without a key; no value for \x01\x7f; "
                                    "unknown mode zz; no class-cache-folder; class cache off";
        QTest::newRow("folder under a file") << QString("=class-cache-folder=%1/file/sub/") << QString() << missing
                                             << "class cache off: %1/file is not a folder";
        QTest::newRow("relative folder") << QString("=class-cache-folder=rel/ative") << QString() << missing
                                         << "class cache off: not an absolute path: rel/ative";
        // The folder is made; once the class is cached there the agent has put it on the class path.
        QTest::newRow("empty cache") << good << QString() << missing << QString();
        QTest::newRow("cached class") << good << QString("cache/2.4") << "hello from the cache" << QString();
        QTest::newRow("no agent") << QString() << QString("cache/2.4") << missing << QString();
        QTest::newRow("cache writable by others") << QString("=class-cache-folder=%1/shared/cache") << QString("shared/cache")
                                                  << missing << "class cache off: %1/shared is writable by others";
        QTest::newRow("cache writable by the group") << QString("=class-cache-folder=%1/group/cache") << QString("group/cache")
                                                     << missing << "class cache off: %1/group is writable by others";
        QTest::newRow("cache of another user") << QString("=class-cache-folder=%1/foreign/cache") << QString("foreign/cache")
                                               << missing << "class cache off: %1/foreign belongs to another user";
    }

    void jvmStartsWhateverTheOptions()
    {
        QFETCH(QString, agentOptions);
        QFETCH(QString, cache);
        QFETCH(QString, output);
        QFETCH(QString, agentLine);
        QTemporaryDir tmp;
        QVERIFY(QFile(tmp.filePath(QStringLiteral("file"))).open(QIODevice::WriteOnly));
        if (!cache.isEmpty()) {
            const QString cls = QStringLiteral("/com/example/cache/CachedGreeting.class");
            QVERIFY(QDir().mkpath(QFileInfo(tmp.filePath(cache) + cls).path()));
            QVERIFY(QFile::copy(QStringLiteral(CACHED_CLASSES_DIR) + cls, tmp.filePath(cache) + cls));
            const QHash<QString, int> modes = {{"shared", 0x7707}, {"group", 0x7770}}; // writable by others, by the group
            const QString top = cache.section(QLatin1Char('/'), 0, 0);
            if (modes.contains(top))
                QVERIFY(QFile::setPermissions(tmp.filePath(top), QFileDevice::Permissions(modes.value(top))));
            if (cache.startsWith(QLatin1String("foreign")) && geteuid() != 0)
                QSKIP("only root can give a folder away");
            if (cache.startsWith(QLatin1String("foreign")))
                QCOMPARE(chown(QFile::encodeName(tmp.filePath(QStringLiteral("foreign"))).constData(), 65534, 65534), 0);
        }

        QStringList args{QStringLiteral("-cp"), QStringLiteral(PROBE_JAR), QStringLiteral("AgentProbe"),
                         QStringLiteral("com.example.cache.CachedGreeting")};
        if (!agentOptions.isNull())
            args.prepend(QStringLiteral("-agentpath:" MINIAGENT_PATH) + agentOptions.replace(QLatin1String("%1"), tmp.path()));
        QProcess p;
        p.start(QStringLiteral(JAVA_EXECUTABLE), args);
        QVERIFY(p.waitForFinished(30000));
        QCOMPARE(p.exitStatus(), QProcess::NormalExit);
        QCOMPARE(p.exitCode(), 0);
        QCOMPARE(QString::fromUtf8(p.readAllStandardOutput()).trimmed(), output);
        // At most one line from the agent, and only about its own trouble.
        const QStringList agentLines = QString::fromUtf8(p.readAllStandardError())
                                           .split(QLatin1Char('\n'))
                                           .filter(QRegularExpression(QStringLiteral("^MiniAgent: ")));
        agentLine.replace(QLatin1String("%1"), tmp.path());
        QCOMPARE(agentLines, agentLine.isEmpty() ? QStringList() : QStringList{QStringLiteral("MiniAgent: ") + agentLine});
        struct stat st; // the folders the agent makes are private
        if (agentOptions.contains(QLatin1String("cache/2.4")))
            QVERIFY(stat(QFile::encodeName(tmp.filePath(QStringLiteral("cache/2.4"))).constData(), &st) == 0 && S_ISDIR(st.st_mode)
                    && (!cache.isEmpty() || (st.st_mode & 077) == 0));
    }
};

QTEST_GUILESS_MAIN(TestAgent)
#include "tst_agent.moc"
