// The parts of the facade that need no Java: the computer name, the local
// addresses, and the whole facade when no Java runtime can be started.
#include "LogCapture.h"
#include "ServerTestSupport.h"
#include "bridge/JNIServer.h"
#include "platform/Resources.h"
#include "server/LocalIP.h"
#include "server/Server.h"

#include <QHostInfo>
#include <QNetworkInterface>
#include <QSignalSpy>

class TestServerHost : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;

    void writeMachineInfo(const QByteArray &content)
    {
        QFile file(m_home.filePath(QStringLiteral("machine-info")));
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(content);
        file.close();
        Server::setMachineInfoPath(file.fileName());
    }

private slots:
    void initTestCase()
    {
        ServerTest::useTemporaryHome(m_home);
    }

    void computerName_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("expected"); // null: the host name
        QTest::newRow("double quotes") << QByteArray("PRETTY_HOSTNAME=\"Living Room \\\"TV\\\"\"\n")
                                       << QStringLiteral("Living Room \"TV\"");
        QTest::newRow("single quotes") << QByteArray("ICON_NAME=computer-laptop\nPRETTY_HOSTNAME='B\xC3\xBCro \\ 2'\n")
                                       << QStringLiteral("B\u00fcro \\ 2");
        QTest::newRow("bare") << QByteArray("PRETTY_HOSTNAME=Kitchen\n") << QStringLiteral("Kitchen");
        QTest::newRow("last wins") << QByteArray("PRETTY_HOSTNAME=One\r\nPRETTY_HOSTNAME=\"Two \xF0\x9F\x98\x80\"\r\n")
                                   << QStringLiteral("Two \U0001F600");
        QTest::newRow("commented out") << QByteArray("#PRETTY_HOSTNAME=Hidden\n") << QString();
        QTest::newRow("empty") << QByteArray("PRETTY_HOSTNAME=\n") << QString();
        QTest::newRow("empty quotes") << QByteArray("PRETTY_HOSTNAME=\"\"\n") << QString();
        QTest::newRow("unterminated") << QByteArray("PRETTY_HOSTNAME=\"Open") << QStringLiteral("Open");
        QTest::newRow("binary") << QByteArray("\0\xff\xfe=\n\n=", 7) << QString();
    }

    void computerName()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, expected);
        writeMachineInfo(content);
        QCOMPARE(Server::computerName(), expected.isNull() ? QHostInfo::localHostName() : expected);
    }

    void computerNameWithoutMachineInfo()
    {
        Server::setMachineInfoPath(QString());
        qInfo() << "computerName on this machine:" << Server::computerName();
        Server::setMachineInfoPath(m_home.filePath(QStringLiteral("no-such-file")));
        QVERIFY(!Server::computerName().isEmpty());
        QCOMPARE(Server::computerName(), QHostInfo::localHostName());
    }

    // The same set that Qt's own interface list gives.
    void localIPs()
    {
        QStringList expected;
        for (const QNetworkInterface &interface : QNetworkInterface::allInterfaces()) {
            const auto flags = interface.flags();
            if (!interface.name().startsWith(QLatin1String("en")) || interface.name().size() < 3
                || !flags.testFlag(QNetworkInterface::IsUp) || !flags.testFlag(QNetworkInterface::IsRunning))
                continue;
            for (const QNetworkAddressEntry &entry : interface.addressEntries())
                if (entry.ip().protocol() == QAbstractSocket::IPv4Protocol)
                    expected << entry.ip().toString();
        }
        QStringList actual = LocalIP::localIPs();
        qInfo() << "localIPs on this machine:" << actual;
        for (const QString &address : actual)
            QVERIFY2(QHostAddress(address).protocol() == QAbstractSocket::IPv4Protocol, qPrintable(address));
        actual.sort();
        expected.sort();
        QCOMPARE(actual, expected);
    }

    // With no runtime to start, the facade is still a settings store and
    // nothing breaks.
    void withoutJava()
    {
        QTemporaryDir empty;
        Resources::setFolder(empty.path());
        LogCapture log;
        QVERIFY(Server::preferencesIsRunning()); // absent wish
        Server *server = Server::instance();
        QVERIFY(server);
        QVERIFY(!JNIServer::instance()->isAvailable());
        QVERIFY(log.contains(QStringLiteral("Missing file")));
        QVERIFY(!server->isRunning());

        QSignalSpy running(server, &Server::runningChanged);
        server->setRunning(true);
        QCOMPARE(running.count(), 1);
        QCOMPARE(Defaults::standard().objectForKey(QStringLiteral("serverRunning")), QVariant(true));
        QVERIFY(!server->isRunning());

        server->setCustomPort(8080);
        QCOMPARE(server->customPort(), 8080);
        QCOMPARE(server->availableLanguages(), QStringList({"None"}));
        QVERIFY(server->availableEncodings().isEmpty());
        QVERIFY(server->defaultEncoding().charset().isNull());
        QVERIFY(server->fontFamilyName().isNull());
        QVERIFY(!Defaults::standard().contains(QStringLiteral("SubtitleDefaultCharset")));
        QCOMPARE(Defaults::standard().objectForKey(QStringLiteral("SubtitleFontSize")).toInt(), 100);

        log.clear();
        Server::releaseInstance();
        QCOMPARE(log.lines(), QStringList({"Server Dealloc"}));
        QVERIFY(!Server::instance());
    }
};

QTEST_GUILESS_MAIN(TestServerHost)
#include "tst_server_host.moc"
