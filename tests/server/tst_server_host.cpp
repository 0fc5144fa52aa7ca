// The parts of the facade that need no Java: the computer name, the local
// addresses, and the whole facade when no Java runtime can be started.
#include "LogCapture.h"
#include "ServerTestSupport.h"
#include "bridge/JNIServer.h"
#include "platform/Resources.h"
#include "server/LocalIP.h"

#include <QHostInfo>
#include <QSignalSpy>

class TestServerHost : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;

private slots:
    void initTestCase() { ServerTest::useTemporaryHome(m_home); }

    void computerName_data()
    {
        QTest::addColumn<QByteArray>("content"); // null: no machine-info file
        QTest::addColumn<QString>("expected");   // null: the host name
        QTest::newRow("double quotes") << QByteArray("PRETTY_HOSTNAME=\"Living Room \\\"TV\\\"\"\n")
                                       << QStringLiteral("Living Room \"TV\"");
        QTest::newRow("single quotes") << QByteArray("ICON_NAME=computer-laptop\nPRETTY_HOSTNAME='B\xC3\xBCro \\ 2'\n")
                                       << QStringLiteral("B\u00fcro \\ 2");
        QTest::newRow("last wins") << QByteArray("PRETTY_HOSTNAME=One\r\nPRETTY_HOSTNAME=\"Two \xF0\x9F\x98\x80\"\r\n")
                                   << QStringLiteral("Two \U0001F600");
        QTest::newRow("commented out") << QByteArray("#PRETTY_HOSTNAME=Hidden\n") << QString();
        QTest::newRow("unterminated") << QByteArray("PRETTY_HOSTNAME=\"Open") << QStringLiteral("Open");
        QTest::newRow("binary") << QByteArray("\0\xff\xfe=\n\n=", 7) << QString();
        QTest::newRow("no file") << QByteArray() << QString();
    }

    void computerName()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, expected);
        QFile file(m_home.filePath(QStringLiteral("machine-info")));
        file.remove();
        QVERIFY(content.isNull() || (file.open(QIODevice::WriteOnly) && file.write(content) == content.size()));
        file.close();
        Server::setMachineInfoPath(file.fileName());
        QCOMPARE(Server::computerName(), expected.isNull() ? QHostInfo::localHostName() : expected);
    }

    // Only "en..." interfaces of three characters or more, with a link both
    // up and running, give their IPv4 addresses, in the system's order.
    void localAddresses()
    {
        using If = LocalIP::Interface;
        const auto entry = [](const char *name, bool ipv4, quint8 last, bool up = true, bool running = true) {
            return If{QString::fromLatin1(name), ipv4, {192, 168, 1, last}, up, running};
        };
        const QList<If> list{entry("enp3s0", true, 10), entry("en", true, 11),   entry("eth0", true, 12),
                             entry("wlan0", true, 13),  entry("en0", false, 14), entry("en1", true, 15, false),
                             entry("en2", true, 16, true, false), entry("enx0", true, 17), entry("xen0", true, 18)};
        QCOMPARE(LocalIP::addressesOf(list), (QStringList{"192.168.1.10", "192.168.1.17"}));

        // The system's list: the loopback is there, up and running.
        const QList<If> system = LocalIP::interfaces();
        QVERIFY(std::any_of(system.cbegin(), system.cend(), [](const If &i) {
            return i.name == QLatin1String("lo") && i.ipv4 && i.up && i.running && i.address[0] == 127;
        }));
    }

    // With no runtime to start, the facade is still a settings store, and
    // every list it shows is empty but for "None".
    void withoutJava()
    {
        QTemporaryDir empty;
        Resources::setFolder(empty.path());
        LogCapture log;
        Server *server = Server::instance();
        QVERIFY(server && !JNIServer::instance()->isAvailable() && log.contains(QStringLiteral("Missing file")));
        QSignalSpy announced(server, &Server::requestedStartFailed);
        server->setRunning(true);
        QVERIFY2(server->startFailure().startsWith("The server cannot run: Missing file: " + empty.path()),
                 qPrintable(server->startFailure()));
        QCOMPARE(announced.count(), 1);
        QCOMPARE(Defaults::standard().objectForKey(QStringLiteral("serverRunning")), QVariant(true));
        QVERIFY(!server->isRunning() && server->availableEncodings().isEmpty() && server->fontFamilyName().isNull());
        QCOMPARE(server->availableLanguages(), QStringList({"None"}));
        QVERIFY(!Defaults::standard().contains(QStringLiteral("SubtitleDefaultCharset"))); // nothing to write back

        log.clear();
        Server::releaseInstance();
        QCOMPARE(log.lines(), QStringList({"Server Dealloc"}));
    }
};

QTEST_GUILESS_MAIN(TestServerHost)
#include "tst_server_host.moc"
